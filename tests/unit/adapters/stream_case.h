#pragma once

#include "platform/lzop/lzop.h"
#include "platform/runtime/compression_method.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <vector>

/// How a file is stored, and the bytes of a stream's buffer.
using Stream_Case = std::tuple<Compression_Method, std::uint64_t>;

/// Every way of storing that this build has, with small buffers and large ones.
inline auto stream_cases()
{
    std::vector<Compression_Method> methods = {COMPRESSION_NONE, COMPRESSION_ZSTD};
    if (lzop_available())
        methods.push_back(COMPRESSION_LZOP);
    return testing::Combine(testing::ValuesIn(methods),
                            testing::Values<std::uint64_t>(1, 7, 4096, 65536));
}

inline std::string stream_case_name(const testing::TestParamInfo<Stream_Case>& info)
{
    const auto [method, size] = info.param;
    const char* const name = compression_value_to_name(method);
    return std::string(name == nullptr ? "plain" : name) + "_" + std::to_string(size);
}
