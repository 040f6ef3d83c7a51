#include "platform/runtime/os_error.h"
#include "tests/unit/runtime/file_writer_fixture.h"

#include <ace/OS_NS_unistd.h>

#include <cstdlib>
#include <iostream>
#include <random>

namespace fs = std::filesystem;

namespace
{

using this_system::Unwritable_File;

TEST_F(File_Writer_Test, SmallWritesWaitInTheBufferUntilItIsFull)
{
    ASSERT_TRUE(open(fresh, {.block_size = 8}));
    EXPECT_EQ(writer.buffer_size(), 8U);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(write("defg"));
    EXPECT_EQ(stored(), "");
    EXPECT_TRUE(write("hi"));
    EXPECT_EQ(stored(), "abcdefgh");
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(stored(), "abcdefghi");
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abcdefghi");
}

TEST_F(File_Writer_Test, WholeBlocksAreNotGathered)
{
    ASSERT_TRUE(open(fresh, {.block_size = 8}));
    EXPECT_TRUE(write("0123456789abcdefXY"));
    EXPECT_EQ(stored(), "0123456789abcdef");
    EXPECT_TRUE(write("Z"));
    EXPECT_EQ(stored(), "0123456789abcdef");
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "0123456789abcdefXYZ");
}

TEST_F(File_Writer_Test, UnbufferedWritesReachTheSystemAtOnce)
{
    ASSERT_TRUE(open(fresh, {}, false));
    EXPECT_TRUE(write("a"));
    EXPECT_EQ(stored(), "a");
    EXPECT_TRUE(write("bc"));
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, AcceptedCountsWhatWasTaken)
{
    std::uint64_t accepted = 77;
    ASSERT_TRUE(open());
    EXPECT_TRUE(write(sample_bytes(100000), &accepted));
    EXPECT_EQ(accepted, 100000U);
    EXPECT_TRUE(write("", &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_TRUE(writer.write(nullptr, 0, &accepted));
}

TEST_F(File_Writer_Test, NullDataIsRefusedAndHarmless)
{
    ASSERT_TRUE(open());
    std::uint64_t accepted = 77;
    EXPECT_FALSE(writer.write(nullptr, 1, &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_EQ(writer.last_error(), os_error::invalid_argument);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, DestructionForgetsTheBuffer)
{
    {
        File_Writer other;
        ASSERT_TRUE(other.open(path.c_str(), fresh, true, 7, {.block_size = 8}));
        ASSERT_TRUE(other.write("0123456789", 10, nullptr));
    }
    EXPECT_EQ(stored(), "01234567");
}

TEST_F(File_Writer_Test, AnotherOpenForgetsTheBuffer)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("lost"));
    ASSERT_TRUE(open(0));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "");
}

TEST_F(File_Writer_Test, AppendStartsAtTheEnd)
{
    write_local(path, "old");
    ASSERT_TRUE(open(O_APPEND));
    EXPECT_TRUE(write("new"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "oldnew");
}

TEST_F(File_Writer_Test, FlagsAreThoseOfTheSystem)
{
    EXPECT_FALSE(open(0));
    EXPECT_EQ(writer.last_error(), os_error::no_such_file);
    EXPECT_FALSE(fs::exists(path));
    write_local(path, "kept");
    EXPECT_FALSE(open(O_CREAT | O_EXCL));
    EXPECT_EQ(writer.last_error(), os_error::file_exists);
    EXPECT_FALSE(writer);
    EXPECT_EQ(stored(), "kept");
    ASSERT_TRUE(open(O_WRONLY));
    EXPECT_TRUE(write("K"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "Kept");
    ASSERT_TRUE(open(O_RDWR));
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, HandlesAreNotInherited)
{
    ASSERT_TRUE(open());
    EXPECT_FALSE(this_system::is_inherited(writer.handle()));
}

TEST_F(File_Writer_Test, ADirectoryIsNotOpened)
{
    EXPECT_FALSE(writer.open(directory.str().c_str(), 0, true, 7, {}));
    EXPECT_EQ(writer.last_error(), this_system::errors.open_directory);
    EXPECT_FALSE(writer.open(nullptr, 0, true, 7, {}));
    EXPECT_EQ(writer.last_error(), os_error::invalid_argument);
}

TEST_F(File_Writer_Test, BlocksThatAreTooLargeAreRefusedBeforeAFileIsMade)
{
    EXPECT_FALSE(open(fresh, {.block_size = File_Buffer_T<char>::max_size + 1}));
    EXPECT_EQ(writer.last_error(), os_error::invalid_argument);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(File_Writer_Test, SeekCountsWhatIsBuffered)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abcdef"));
    EXPECT_EQ(writer.seek(0, SEEK_CUR), 6);
    EXPECT_EQ(stored(), "abcdef");
    EXPECT_EQ(writer.seek(-4, SEEK_CUR), 2);
    EXPECT_TRUE(write("XY"));
    EXPECT_EQ(writer.seek(0, SEEK_END), 6);
    EXPECT_TRUE(write("g"));
    EXPECT_EQ(writer.seek(10, SEEK_SET), 10);
    EXPECT_TRUE(write("h"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), std::string("abXYefg\0\0\0h", 11));
}

TEST_F(File_Writer_Test, AFailedSeekLosesNothing)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abc"));
    EXPECT_EQ(writer.seek(-1, SEEK_SET), -1);
    EXPECT_EQ(writer.last_error(), this_system::errors.seek_before_start);
    EXPECT_TRUE(write("def"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abcdef");
}

TEST_F(File_Writer_Test, WithoutAFileEverythingButCloseFails)
{
    std::uint64_t accepted = 77;
    EXPECT_FALSE(writer);
    EXPECT_FALSE(write("a", &accepted));
    EXPECT_EQ(accepted, 0U);
    EXPECT_EQ(writer.last_error(), os_error::bad_handle);
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(writer.seek(0, SEEK_SET), -1);
    EXPECT_TRUE(writer.close());
    ASSERT_TRUE(open());
    EXPECT_TRUE(writer.close());
    EXPECT_FALSE(write("a"));
    EXPECT_TRUE(writer.close());
}

TEST_F(File_Writer_Test, AFailedWriteIsMetByFlush)
{
    Unwritable_File file;
    path = file.path();
    ASSERT_TRUE(open(0));
    file.take_no_more();
    EXPECT_TRUE(write("abc"));
    EXPECT_FALSE(writer.flush());
    EXPECT_EQ(writer.last_error(), Unwritable_File::errnum());
}

TEST_F(File_Writer_Test, AFailedWriteIsMetByCloseAtTheLatest)
{
    Unwritable_File file;
    path = file.path();
    ASSERT_TRUE(open(0));
    file.take_no_more();
    EXPECT_TRUE(write("abc"));
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), Unwritable_File::errnum());
    EXPECT_EQ(ACE_OS::last_error(), Unwritable_File::errnum());
    EXPECT_FALSE(writer);
}

TEST_F(File_Writer_Test, AfterAFailureEverythingFailsForTheSameReason)
{
    Unwritable_File file;
    path = file.path();
    ASSERT_TRUE(open(0, {}, false));
    file.take_no_more();
    const std::size_t open_before = this_system::open_handles();
    std::uint64_t accepted = 77;
    EXPECT_FALSE(write("abc", &accepted));
    EXPECT_EQ(accepted, 0U);
    for (int i = 0; i < 2; ++i) {
        ACE_OS::last_error(0);
        EXPECT_FALSE(write("abc"));
        EXPECT_EQ(ACE_OS::last_error(), Unwritable_File::errnum());
        EXPECT_FALSE(writer.flush());
        EXPECT_EQ(writer.seek(0, SEEK_SET), -1);
        EXPECT_EQ(writer.last_error(), Unwritable_File::errnum());
    }
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), Unwritable_File::errnum());
    EXPECT_EQ(this_system::open_handles(), open_before - 1) << "the file is closed all the same";
    EXPECT_FALSE(writer.close());
}

TEST_F(File_Writer_Test, AnotherOpenForgetsTheFailure)
{
    const std::string good = path;
    Unwritable_File file;
    path = file.path();
    ASSERT_TRUE(open(0, {}, false));
    file.take_no_more();
    EXPECT_FALSE(write("abc"));
    path = good;
    ASSERT_TRUE(open());
    EXPECT_EQ(writer.last_error(), 0);
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    EXPECT_EQ(stored(), "abc");
}

TEST_F(File_Writer_Test, AFailedCloseOfTheHandleIsAFailure)
{
    ASSERT_TRUE(open());
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.flush());
    ACE_OS::close(writer.handle());
    EXPECT_FALSE(writer.close());
    EXPECT_EQ(writer.last_error(), os_error::bad_handle);
    EXPECT_FALSE(writer);
}

TEST_F(File_Writer_Test, RandomWritesSeeksAndFlushesMakeTheExpectedFile)
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const auto seed = given != nullptr
                          ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                          : std::random_device()();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    std::mt19937 random(seed);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    const std::string data = sample_bytes(5000);
    for (int round = 0; round < 50; ++round) {
        const std::size_t block = 1 + below(600);
        ASSERT_TRUE(
            open(fresh, {.block_size = block, .write_behind = 1 + below(3000)}, below(4) != 0));
        std::string expected;
        std::size_t position = 0;
        for (int step = 0; step < 100; ++step) {
            switch (below(8)) {
            case 0:
                ASSERT_TRUE(writer.flush());
                ASSERT_TRUE(stored() == expected);
                break;
            case 1:
                position = below(expected.size() + 50);
                ASSERT_EQ(writer.seek(static_cast<std::int64_t>(position), SEEK_SET),
                          static_cast<std::int64_t>(position));
                break;
            default:
                const std::size_t size = below(step % 10 == 0 ? 4000 : 300);
                const std::string piece = data.substr(below(1000), size);
                ASSERT_TRUE(write(piece));
                if (piece.empty())
                    break;
                expected.resize(std::max(expected.size(), position + size));
                expected.replace(position, size, piece);
                position += size;
            }
        }
        ASSERT_TRUE(writer.close());
        ASSERT_TRUE(stored() == expected) << "round " << round;
    }
}

} // namespace
