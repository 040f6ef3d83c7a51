#pragma once

#include "platform/runtime/copy_file.h"
#include "platform/runtime/file_system.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <set>

class Copy_File_Test : public testing::Test
{
protected:
    using Names = std::set<std::string>;

    static Names names_in(const std::string& path)
    {
        Names names;
        for (const auto& entry : std::filesystem::directory_iterator(path))
            names.insert(entry.path().filename().string());
        return names;
    }

    bool copy(const std::string& from, const std::string& to)
    {
        error = "old";
        const bool copied = copy_file(from.c_str(), to.c_str(), file_system::share_all, &error);
        reason = ACE_OS::last_error();
        return copied;
    }

    Temp_Directory directory;
    std::string source = directory / "source";
    std::string target = directory / "target";
    std::string error;
    int reason = 0;
};
