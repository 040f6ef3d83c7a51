#include "platform/runtime/directory_reader.h"

#include "tests/support/temp_directory.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>
#include <utime.h>

namespace fs = std::filesystem;

namespace
{

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

TEST_F(Directory_Reader_Test, AnEmptyDirectoryHasNoEntries)
{
    EXPECT_TRUE(list().empty());
}

TEST_F(Directory_Reader_Test, EntriesCarryTheirRecord)
{
    write_local(root / "file", "12345");
    chmod((root / "file").c_str(), 0640);
    const utimbuf times = {1000000000, 1234567890};
    utime((root / "file").c_str(), &times);
    fs::create_directory(root / "directory");
    const auto found = list();
    ASSERT_EQ(found.size(), 2U);
    const auto& file = found.at("file");
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(file.mtime, 1234567890);
    EXPECT_EQ(file.mode, static_cast<std::uint32_t>(S_IFREG | 0640));
    EXPECT_FALSE(file.is_dir());
    EXPECT_TRUE(found.at("directory").is_dir());
}

TEST_F(Directory_Reader_Test, TimesBeforeTheEpochAndLargeSizesAreExact)
{
    write_local(root / "file", "");
    fs::resize_file(root / "file", 5ULL << 30U);
    const utimbuf times = {-5, -5};
    utime((root / "file").c_str(), &times);
    const auto found = list();
    EXPECT_EQ(found.at("file").size, 5ULL << 30U);
    EXPECT_EQ(found.at("file").mtime, -5);
}

TEST_F(Directory_Reader_Test, NamesOfAnyBytesAreGivenAsTheyAre)
{
    const std::string names[] = {"a b", "%41",     "\"'\\",       "\xff\xfe",           "\xc3\xa9",
                                 "...", ".hidden", "line\nbreak", std::string(255, 'x')};
    for (const std::string& name : names)
        write_local(root / name, "");
    const auto found = list();
    EXPECT_EQ(found.size(), std::size(names));
    for (const std::string& name : names)
        EXPECT_EQ(found.count(name), 1U) << name;
}

class Link_Test : public Directory_Reader_Test
{
protected:
    Link_Test()
    {
        write_local(root / "file", "12345");
        fs::create_directory(root / "directory");
        fs::create_symlink("file", root / "to file");
        fs::create_directory_symlink("directory", root / "to directory");
        fs::create_symlink("nowhere", root / "dangling");
        fs::create_symlink("circle", root / "circle");
        fs::create_symlink("file/x", root / "through file");
    }
};

TEST_F(Link_Test, LinksShowWhatTheyPointAtWhenFollowed)
{
    const auto found = list(true);
    EXPECT_EQ(found.size(), 7U);
    EXPECT_TRUE(S_ISREG(found.at("to file").mode));
    EXPECT_EQ(found.at("to file").size, 5U);
    EXPECT_TRUE(found.at("to directory").is_dir());
}

TEST_F(Link_Test, OnlyLinksToFilesShowTheirTargetOtherwise)
{
    const auto found = list(false);
    EXPECT_EQ(found.size(), 7U);
    EXPECT_TRUE(S_ISREG(found.at("to file").mode));
    EXPECT_EQ(found.at("to file").size, 5U);
    EXPECT_TRUE(S_ISLNK(found.at("to directory").mode));
    EXPECT_FALSE(found.at("to directory").is_dir());
}

TEST_F(Link_Test, LinksThatLeadNowhereStayLinks)
{
    for (const bool follow : {false, true}) {
        const auto found = list(follow);
        for (const char* name : {"dangling", "circle", "through file"})
            EXPECT_TRUE(S_ISLNK(found.at(name).mode)) << name;
    }
}

TEST_F(Directory_Reader_Test, LimitEndsTheListing)
{
    for (const char* name : {"a", "b", "c"})
        write_local(root / name, "");
    Directory_Reader::Entry entry;
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 2));
    EXPECT_EQ(reader.read(entry), 1);
    EXPECT_EQ(reader.read(entry), 1);
    EXPECT_EQ(reader.read(entry), 0);
    EXPECT_EQ(reader.read(entry), 0);
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 3));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(reader.read(entry), 1);
    EXPECT_EQ(reader.read(entry), 0);
}

TEST_F(Directory_Reader_Test, EntriesThatVanishedArePassedOver)
{
    for (int i = 0; i < 20; ++i)
        write_local(root / std::to_string(i), "");
    Directory_Reader::Entry entry;
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 0));
    ASSERT_EQ(reader.read(entry), 1);
    for (int i = 0; i < 20; ++i)
        if (std::to_string(i) != entry.name)
            fs::remove(root / std::to_string(i));
    EXPECT_EQ(reader.read(entry), 0);
}

TEST_F(Directory_Reader_Test, WhatIsNoDirectoryIsNotOpened)
{
    write_local(root / "file", "");
    EXPECT_FALSE(reader.open((root / "file").c_str(), false, 0));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(reader.open((root / "missing").c_str(), false, 0));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(reader.open("", false, 0));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(reader.open(nullptr, false, 0));
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Directory_Reader_Test, WithoutADirectoryReadingFails)
{
    Directory_Reader::Entry entry;
    EXPECT_EQ(reader.read(entry), -1);
    EXPECT_EQ(errno, EBADF);
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 0));
    reader.close();
    EXPECT_EQ(reader.read(entry), -1);
    EXPECT_EQ(errno, EBADF);
    reader.close();
}

TEST_F(Directory_Reader_Test, AFailedOpenClosesTheEarlierDirectory)
{
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 0));
    EXPECT_FALSE(reader.open((root / "missing").c_str(), false, 0));
    Directory_Reader::Entry entry;
    EXPECT_EQ(reader.read(entry), -1);
}

TEST_F(Directory_Reader_Test, ManyEntriesAreEachGivenOnce)
{
    constexpr std::size_t count = 5000;
    for (std::size_t i = 0; i < count; ++i)
        write_local(root / ("entry " + std::to_string(i)), "");
    EXPECT_EQ(list().size(), count);
}

} // namespace
