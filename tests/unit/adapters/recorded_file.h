#pragma once

#include "tests/support/open_facade.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// An open file of a recording double: what the facade is asked to write or read arrives there.
class Recorded_File : public Recorded_Facade
{
public:
    /// @param mode  1 to read what stands in log->blocks, 2 to write
    explicit Recorded_File(unsigned mode)
    {
        EXPECT_TRUE(io.open("file", mode, 0, 0));
        log->calls.clear();
    }

    /// The sizes of all writes so far, failed ones included.
    std::vector<std::uint64_t> write_sizes() const
    {
        std::vector<std::uint64_t> sizes;
        for (const std::string& call : log->calls)
            if (call.starts_with("write("))
                sizes.push_back(std::stoull(call.substr(call.rfind(' '))));
        return sizes;
    }
};
