#pragma once

#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>

#include <filesystem>
#include <gtest/gtest.h>

class File_Reader_Test : public testing::Test
{
protected:
    std::string file(const std::string& data)
    {
        write_local(directory / "file", data);
        return directory / "file";
    }

    // A file of zeros that takes no space.
    std::string empty_space(std::uint64_t size)
    {
        file("");
        this_system::resize_with_hole(directory / "file", size);
        return directory / "file";
    }

    // The next block; "<failed>" when there is none.
    std::string block()
    {
        char* data = nullptr;
        std::int64_t size = 0;
        if (!reader.read(data, size)) {
            EXPECT_EQ(size, -1);
            return "<failed>";
        }
        return {data, static_cast<std::size_t>(size)};
    }

    std::string rest()
    {
        std::string all;
        for (std::string next = block(); !next.empty(); next = block()) {
            if (next == "<failed>")
                return next;
            all += next;
        }
        return all;
    }

    bool open(const std::string& path, const File_Options& options = {}, bool prefetch = false)
    {
        return reader.open(path.c_str(), O_RDONLY, options, file_system::share_all, prefetch);
    }

    Temp_Directory directory;
    File_Reader reader;
};
