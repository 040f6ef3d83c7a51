#pragma once

#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>

#include <filesystem>
#include <gtest/gtest.h>

class File_Writer_Test : public testing::Test
{
protected:
    static constexpr std::uint64_t mib = 1U << 20U;
    static constexpr int fresh = O_CREAT | O_TRUNC;

    bool open(int flags = fresh, const File_Options& options = {}, bool buffered = true)
    {
        return writer.open(path.c_str(), flags, buffered, file_system::share_all, options);
    }

    bool write(const std::string& data, std::uint64_t* accepted = nullptr)
    {
        return writer.write(data.data(), data.size(), accepted);
    }

    std::string stored() const { return read_local(path); }

    Temp_Directory directory;
    std::string path = directory / "file";
    File_Writer writer;
};
