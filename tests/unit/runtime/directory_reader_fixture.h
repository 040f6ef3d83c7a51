#pragma once

#include "platform/runtime/directory_reader.h"
#include "tests/support/temp_directory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>

class Directory_Reader_Test : public testing::Test
{
protected:
    std::map<std::string, Directory_Reader::Entry> list(bool follow_links = false)
    {
        std::map<std::string, Directory_Reader::Entry> found;
        EXPECT_TRUE(reader.open(root.str().c_str(), follow_links, 0));
        Directory_Reader::Entry entry;
        int result = 0;
        while ((result = reader.read(entry)) == 1)
            EXPECT_TRUE(found.emplace(entry.name, entry).second) << entry.name;
        EXPECT_EQ(result, 0);
        return found;
    }

    Temp_Directory root;
    Directory_Reader reader;
};
