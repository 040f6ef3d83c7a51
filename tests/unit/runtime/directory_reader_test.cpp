#include "platform/runtime/os_error.h"
#include "tests/support/this_system.h"
#include "tests/unit/runtime/directory_reader_fixture.h"

#include <ace/OS_NS_errno.h>

namespace fs = std::filesystem;

namespace
{

TEST_F(Directory_Reader_Test, AnEmptyDirectoryHasNoEntries)
{
    EXPECT_TRUE(list().empty());
}

TEST_F(Directory_Reader_Test, EntriesCarryTheirRecord)
{
    write_local(root / "file", "12345");
    this_system::set_modification_time(root / "file", 1234567890);
    fs::create_directory(root / "directory");
    const auto found = list();
    ASSERT_EQ(found.size(), 2U);
    const auto& file = found.at("file");
    EXPECT_EQ(file.size, 5U);
    EXPECT_EQ(file.mtime, 1234567890);
    EXPECT_EQ(file.mode & 0xF000U, 0x8000U);
    EXPECT_FALSE(file.is_dir());
    EXPECT_TRUE(found.at("directory").is_dir());
}

TEST_F(Directory_Reader_Test, TimesBeforeTheEpochAndLargeSizesAreExact)
{
    write_local(root / "file", "");
    this_system::resize_with_hole(root / "file", 5ULL << 30U);
    this_system::set_modification_time(root / "file", -5);
    const auto found = list();
    EXPECT_EQ(found.at("file").size, 5ULL << 30U);
    EXPECT_EQ(found.at("file").mtime, -5);
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

TEST_F(Directory_Reader_Test, WhatIsNoDirectoryIsNotOpened)
{
    write_local(root / "file", "");
    EXPECT_FALSE(reader.open((root / "file").c_str(), false, 0));
    EXPECT_EQ(ACE_OS::last_error(), os_error::not_a_directory);
    EXPECT_FALSE(reader.open((root / "missing").c_str(), false, 0));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_FALSE(reader.open("", false, 0));
    EXPECT_EQ(ACE_OS::last_error(), os_error::no_such_directory);
    EXPECT_FALSE(reader.open(nullptr, false, 0));
    EXPECT_EQ(ACE_OS::last_error(), os_error::invalid_argument);
}

TEST_F(Directory_Reader_Test, WithoutADirectoryReadingFails)
{
    Directory_Reader::Entry entry;
    EXPECT_EQ(reader.read(entry), -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::bad_handle);
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 0));
    reader.close();
    EXPECT_EQ(reader.read(entry), -1);
    EXPECT_EQ(ACE_OS::last_error(), os_error::bad_handle);
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
