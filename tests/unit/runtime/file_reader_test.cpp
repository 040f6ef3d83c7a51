#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"
#include "tests/unit/runtime/file_reader_fixture.h"

#include <ace/OS_NS_unistd.h>

#include <fstream>

namespace fs = std::filesystem;

namespace
{

TEST_F(File_Reader_Test, FilesOfEverySizeAroundABlockAreReadWhole)
{
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131072U, 200000U}) {
        const std::string data = sample_bytes(size);
        ASSERT_TRUE(open(file(data)));
        EXPECT_TRUE(rest() == data) << size;
        EXPECT_EQ(block(), "");
        EXPECT_TRUE(reader.close());
    }
}

TEST_F(File_Reader_Test, BlocksAreFullUpToTheLast)
{
    ASSERT_TRUE(open(file(sample_bytes(100000))));
    EXPECT_EQ(reader.buffer_size(), 65536U);
    EXPECT_EQ(block().size(), 65536U);
    EXPECT_EQ(block().size(), 34464U);
    EXPECT_EQ(block().size(), 0U);
}

TEST_F(File_Reader_Test, BlockSizeIsTaken)
{
    const std::string data = sample_bytes(10);
    ASSERT_TRUE(open(file(data), {.block_size = 4}));
    EXPECT_EQ(reader.buffer_size(), 4U);
    EXPECT_EQ(block(), data.substr(0, 4));
    EXPECT_EQ(block(), data.substr(4, 4));
    EXPECT_EQ(block(), data.substr(8));
}

TEST_F(File_Reader_Test, BlocksLieInTheBuffer)
{
    ASSERT_TRUE(open(file("abc")));
    char* data = nullptr;
    std::int64_t size = 0;
    ASSERT_TRUE(reader.read(data, size));
    EXPECT_EQ(data, reader.buffer());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 4096, 0U);
}

TEST_F(File_Reader_Test, BlocksThatAreTooLargeAreRefused)
{
    EXPECT_FALSE(open(file("abc"), {.block_size = File_Buffer_T<char>::max_size + 1}));
    EXPECT_EQ(reader.last_error(), os_error::invalid_argument);
    EXPECT_FALSE(open(file("abc"), {.block_size = ~std::uint64_t{0}}));
    EXPECT_EQ(reader.last_error(), os_error::invalid_argument);
    EXPECT_FALSE(reader);
    EXPECT_TRUE(open(file("abc"), {.block_size = File_Buffer_T<char>::max_size}));
    EXPECT_EQ(rest(), "abc");
}

TEST_F(File_Reader_Test, AFileThatGrowsIsReadFurther)
{
    ASSERT_TRUE(open(file("abc")));
    EXPECT_EQ(rest(), "abc");
    std::ofstream(fs::path(directory / "file"), std::ios::app) << "def";
    EXPECT_EQ(rest(), "def");
}

TEST_F(File_Reader_Test, AFileThatShrinksEndsEarly)
{
    ASSERT_TRUE(open(file(sample_bytes(200000))));
    EXPECT_EQ(block().size(), 65536U);
    fs::resize_file(directory / "file", 70000);
    EXPECT_EQ(block().size(), 70000U - 65536U);
    EXPECT_EQ(block(), "");
}

TEST_F(File_Reader_Test, SeekMovesInEveryWay)
{
    const std::string data = sample_bytes(200000);
    ASSERT_TRUE(open(file(data)));
    EXPECT_EQ(reader.seek(150000, SEEK_SET), 150000);
    EXPECT_EQ(reader.seek(-50000, SEEK_CUR), 100000);
    EXPECT_TRUE(rest() == data.substr(100000));
    EXPECT_EQ(reader.seek(-10, SEEK_END), 199990);
    EXPECT_EQ(block(), data.substr(199990));
    EXPECT_EQ(reader.seek(300000, SEEK_SET), 300000);
    EXPECT_EQ(block(), "");
}

TEST_F(File_Reader_Test, SeekToANegativePositionFailsAndMovesNothing)
{
    ASSERT_TRUE(open(file("abcdef")));
    EXPECT_EQ(reader.seek(3, SEEK_SET), 3);
    EXPECT_EQ(reader.seek(-1, SEEK_SET), -1);
    EXPECT_EQ(reader.last_error(), this_system::errors.seek_before_start);
    EXPECT_EQ(rest(), "def");
}

TEST_F(File_Reader_Test, OffsetsBeyondFourGibAreExact)
{
    constexpr std::uint64_t offset = 5ULL << 30U;
    const std::string path = empty_space(offset);
    std::ofstream(fs::path(path), std::ios::app | std::ios::binary) << "end";
    ASSERT_TRUE(open(path));
    EXPECT_EQ(reader.seek(static_cast<std::int64_t>(offset), SEEK_SET),
              static_cast<std::int64_t>(offset));
    EXPECT_EQ(rest(), "end");
}

TEST_F(File_Reader_Test, WhatIsMissingIsNotOpened)
{
    EXPECT_FALSE(open(directory / "missing"));
    EXPECT_EQ(reader.last_error(), os_error::no_such_file);
    EXPECT_FALSE(reader);
    EXPECT_FALSE(fs::exists(directory / "missing"));
    EXPECT_FALSE(reader.open(nullptr, 0, {}, 7, false));
    EXPECT_EQ(reader.last_error(), os_error::invalid_argument);
}

TEST_F(File_Reader_Test, ADirectoryIsNotOpened)
{
    EXPECT_FALSE(open(directory.str()));
    EXPECT_EQ(reader.last_error(), this_system::errors.open_directory);
    EXPECT_FALSE(reader);
}

TEST_F(File_Reader_Test, WriteFlagsDoNotMakeAReaderWrite)
{
    ASSERT_TRUE(reader.open(file("abc").c_str(), O_WRONLY, {}, 7, false));
    EXPECT_EQ(rest(), "abc");
}

TEST_F(File_Reader_Test, AFailedOpenClosesTheEarlierFile)
{
    ASSERT_TRUE(open(file("abc")));
    EXPECT_FALSE(open(directory / "missing"));
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
}

TEST_F(File_Reader_Test, AnotherOpenStartsAfresh)
{
    ASSERT_TRUE(open(file("abcdef")));
    EXPECT_EQ(reader.seek(4, SEEK_SET), 4);
    ASSERT_TRUE(open(directory / "file"));
    EXPECT_EQ(rest(), "abcdef");
    EXPECT_EQ(reader.last_error(), 0);
}

TEST_F(File_Reader_Test, WithoutAFileEverythingFails)
{
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
    EXPECT_EQ(reader.last_error(), os_error::bad_handle);
    EXPECT_EQ(reader.seek(0, SEEK_SET), -1);
    EXPECT_TRUE(reader.close());
    ASSERT_TRUE(open(file("abc")));
    EXPECT_TRUE(reader.close());
    EXPECT_FALSE(reader);
    EXPECT_EQ(block(), "<failed>");
}

TEST_F(File_Reader_Test, HandlesAreNotInheritedAndNotLeaked)
{
    const std::size_t before = this_system::open_handles();
    ASSERT_TRUE(open(file("abc")));
    EXPECT_FALSE(this_system::is_inherited(reader.handle()));
    EXPECT_EQ(this_system::open_handles(), before + 1);
    ASSERT_TRUE(open(file("abc")));
    EXPECT_EQ(this_system::open_handles(), before + 1);
    EXPECT_FALSE(open(directory.str()));
    EXPECT_EQ(this_system::open_handles(), before);
    {
        File_Reader other;
        ASSERT_TRUE(other.open((directory / "file").c_str(), 0, {}, 7, false));
        EXPECT_EQ(this_system::open_handles(), before + 1);
    }
    EXPECT_EQ(this_system::open_handles(), before);
}

TEST_F(File_Reader_Test, AFailedCloseIsReported)
{
    ASSERT_TRUE(open(file("abc")));
    ACE_OS::close(reader.handle());
    EXPECT_FALSE(reader.close());
    EXPECT_EQ(reader.last_error(), os_error::bad_handle);
    EXPECT_FALSE(reader);
}

} // namespace
