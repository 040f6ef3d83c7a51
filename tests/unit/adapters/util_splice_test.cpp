#include "client_io/util.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"
#include "tests/support/allocation_count.h"
#include "tests/support/log_capture.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/util_pipe.h"

#include <ace/Log_Priority.h>
#include <ace/os_include/os_fcntl.h>

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::MatchesRegex;
using testing::StartsWith;

namespace
{

constexpr std::size_t several_megabytes = (5U << 20U) + 12345;

/// Takes bytes in without an allocation, and counts them.
class Sink_IO : public Recording_IO
{
public:
    using Recording_IO::size;

    explicit Sink_IO(std::vector<std::uint64_t>& steps)
        : Recording_IO(std::make_shared<Recording>()), steps_(steps)
    {
        steps_.reserve(1000);
    }

    bool connect(const URI&, const Options&) override { return true; }
    bool is_connected() const override { return true; }
    bool is_open() const override { return true; }
    bool write(const void*, std::uint64_t size) override
    {
        steps_.push_back(size);
        return true;
    }

private:
    std::vector<std::uint64_t>& steps_;
};

Util_Handle open_local(const std::string& path, int flags)
{
    Util_Handle file(file_system::open(path.c_str(), flags, file_system::share_all));
    EXPECT_NE(file.get(), ACE_INVALID_HANDLE) << path;
    return file;
}

/// The text of the one line that was logged, an error.
std::string only_error(const Log_Capture& log)
{
    EXPECT_EQ(log.messages().size(), 1U);
    if (log.messages().empty())
        return {};
    EXPECT_EQ(log.messages()[0].priority, LM_ERROR);
    return log.messages()[0].text;
}

bool says_reader_gone(const std::string& text)
{
    const std::string start = "Failed to write pipe, errno=";
    EXPECT_THAT(text, StartsWith(start));
    return text.size() > start.size() &&
           os_error::is_reader_gone(std::atoi(text.c_str() + start.size()));
}

TEST(Client_IO_Splice_From, EverythingThatAWriterSendsUntilItClosesIsWritten)
{
    const std::string data = sample_bytes(several_megabytes);
    Util_Pipe pipe;
    Recorded_File target(Client_IO::mode_write);
    bool sent = false;
    std::thread writer([&] {
        sent = pipe.writer.write(data);
        pipe.writer.close();
    });
    const Log_Capture log;
    EXPECT_TRUE(client_io_splice_from(target.io, pipe.reader.pointer()));
    writer.join();
    EXPECT_TRUE(sent);
    EXPECT_TRUE(target.log->written == data) << target.log->written.size();
    EXPECT_TRUE(log.messages().empty());
}

TEST(Client_IO_Splice_From, APipeWhoseWriterIsGoneAlreadyIsAnEmptyInput)
{
    Util_Pipe pipe;
    pipe.writer.close();
    Recorded_File target(Client_IO::mode_write);
    const Log_Capture log;
    EXPECT_TRUE(client_io_splice_from(target.io, pipe.reader.pointer()));
    EXPECT_EQ(target.log->count("write("), 0U);
    EXPECT_TRUE(log.messages().empty());
}

TEST(Client_IO_Splice_From, WhatAWriterLeftInThePipeIsStillRead)
{
    Util_Pipe pipe;
    ASSERT_TRUE(pipe.writer.write("left behind"));
    pipe.writer.close();
    Recorded_File target(Client_IO::mode_write);
    EXPECT_TRUE(client_io_splice_from(target.io, pipe.reader.pointer()));
    EXPECT_EQ(target.log->written, "left behind");
}

TEST(Client_IO_Splice_From, AFileIsReadFromWhereItStands)
{
    const Temp_Directory directory;
    write_local(directory / "a", "0123456789");
    const Util_Handle file = open_local(directory / "a", O_RDONLY);
    ASSERT_EQ(file_system::seek(file.get(), 4, SEEK_SET), 4);
    Recorded_File target(Client_IO::mode_write);
    EXPECT_TRUE(client_io_splice_from(target.io, file.pointer()));
    EXPECT_EQ(target.log->written, "456789");
}

TEST(Client_IO_Splice_From, EightKilobytesAtATimeAreMovedWithoutAllocating)
{
    const Temp_Directory directory;
    write_local(directory / "a", sample_bytes(20000));
    const Util_Handle file = open_local(directory / "a", O_RDONLY);
    std::vector<std::uint64_t> steps;
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Sink_IO>(steps)));
    io.write_mode_ = true;
    const Allocation_Count count;
    EXPECT_TRUE(client_io_splice_from(io, file.pointer()));
    EXPECT_EQ(count.allocations(), 0U);
    EXPECT_THAT(steps, ElementsAre(8192U, 8192U, 3616U));
}

TEST(Client_IO_Splice_From, AHandleThatCannotBeReadIsOneLineWithTheNumberAndTheReason)
{
    Recorded_File target(Client_IO::mode_write);
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_from(target.io, as_pointer(ACE_INVALID_HANDLE)));
    EXPECT_THAT(only_error(log), MatchesRegex("Failed to read handle, errno=" +
                                              std::to_string(os_error::bad_handle) + ", .+\n"));
    EXPECT_EQ(target.log->count("write("), 0U);
}

TEST(Client_IO_Splice_From, ATargetThatTakesNoMoreIsOneLineWithItsReason)
{
    Util_Pipe pipe;
    ASSERT_TRUE(pipe.writer.write("data"));
    Recorded_File target(Client_IO::mode_write);
    target.log->failing = {"write"};
    target.log->error = "the target is 100% full";
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_from(target.io, pipe.reader.pointer()));
    EXPECT_EQ(only_error(log), "Failed to write client io, the target is 100% full\n");
    EXPECT_EQ(target.io.error(), "the target is 100% full");
}

TEST(Client_IO_Splice_From, AFileThatIsOpenForReadingRefuses)
{
    Util_Pipe pipe;
    ASSERT_TRUE(pipe.writer.write("data"));
    Recorded_File target(Client_IO::mode_read);
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_from(target.io, pipe.reader.pointer()));
    EXPECT_EQ(only_error(log), "Failed to write client io, Operation not permitted in read mode\n");
}

TEST(Client_IO_Splice_To, AFileOfAnySizeArrivesWholeThroughAPipe)
{
    const std::string data = sample_bytes(several_megabytes);
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_read);
    // One block that no pipe takes at once, and one of a byte.
    source.log->blocks = {data.substr(0, several_megabytes - 1),
                          data.substr(several_megabytes - 1)};
    std::string arrived;
    std::thread reader([&] { arrived = pipe.reader.read_all(); });
    const Log_Capture log;
    EXPECT_TRUE(client_io_splice_to(source.io, pipe.writer.pointer()));
    pipe.writer.close();
    reader.join();
    EXPECT_TRUE(arrived == data) << arrived.size();
    EXPECT_TRUE(log.messages().empty());
}

TEST(Client_IO_Splice_To, AFileArrivesWholeInAFile)
{
    const std::string data = sample_bytes(several_megabytes);
    const Temp_Directory directory;
    const Util_Handle file = open_local(directory / "a", O_WRONLY | O_CREAT | O_TRUNC);
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {data};
    EXPECT_TRUE(client_io_splice_to(source.io, file.pointer()));
    EXPECT_TRUE(read_local(directory / "a") == data);
}

TEST(Client_IO_Splice_To, AnEmptyFileIsNothingAndSuccess)
{
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_read);
    const Log_Capture log;
    EXPECT_TRUE(client_io_splice_to(source.io, pipe.writer.pointer()));
    pipe.writer.close();
    EXPECT_EQ(pipe.reader.read_all(), "");
    EXPECT_TRUE(log.messages().empty());
}

TEST(Client_IO_Splice_To, AnEmptyFileDoesNotTouchTheHandle)
{
    Recorded_File source(Client_IO::mode_read);
    EXPECT_TRUE(client_io_splice_to(source.io, as_pointer(ACE_INVALID_HANDLE)));
}

TEST(Client_IO_Splice_To, EachReadIsToldTheSizeOfTheOneBefore)
{
    /// Hands out two blocks and notes what it was given.
    class Noting_IO : public Recording_IO
    {
    public:
        using Recording_IO::read;
        using Recording_IO::size;

        Noting_IO(std::shared_ptr<Recording> recording, std::vector<std::uint64_t>& sizes)
            : Recording_IO(std::move(recording)), sizes_(sizes)
        {}
        bool read(const void*& data, std::uint64_t& size) override
        {
            sizes_.push_back(size);
            return Recording_IO::read(data, size);
        }

    private:
        std::vector<std::uint64_t>& sizes_;
    };
    const auto log = std::make_shared<Recording>();
    log->blocks = {"first", "two"};
    std::vector<std::uint64_t> sizes;
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Noting_IO>(log, sizes)));
    log->open = true;
    Util_Pipe pipe;
    EXPECT_TRUE(client_io_splice_to(io, pipe.writer.pointer()));
    EXPECT_THAT(sizes, ElementsAre(0U, 5U, 3U));
}

TEST(Client_IO_Splice_To, AFailedReadIsOneLineWithItsReasonAfterWhatWasReadBefore)
{
    /// Hands out one block and fails then.
    class One_Block_IO : public Recording_IO
    {
    public:
        using Recording_IO::read;
        using Recording_IO::size;

        explicit One_Block_IO(std::shared_ptr<Recording> recording)
            : Recording_IO(recording), log_(std::move(recording))
        {}
        bool read(const void*& data, std::uint64_t& size) override
        {
            if (log_->blocks.empty())
                log_->failing = {"read_block"};
            return Recording_IO::read(data, size);
        }

    private:
        std::shared_ptr<Recording> log_;
    };
    const auto recording = std::make_shared<Recording>();
    recording->blocks = {"begun"};
    recording->error = "the line is dead";
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<One_Block_IO>(recording)));
    recording->open = true;
    Util_Pipe pipe;
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(io, pipe.writer.pointer()));
    EXPECT_EQ(only_error(log), "Failed to read from client io, the line is dead\n");
    pipe.writer.close();
    EXPECT_EQ(pipe.reader.read_all(), "begun");
}

TEST(Client_IO_Splice_To, AFileThatIsOpenForWritingRefuses)
{
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_write);
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    EXPECT_EQ(only_error(log),
              "Failed to read from client io, Operation not permitted in write mode\n");
}

TEST(Client_IO_Splice_To, AHandleThatCannotBeWrittenIsOneLineWithTheNumberAndTheReason)
{
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"data", "more"};
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, as_pointer(ACE_INVALID_HANDLE)));
    EXPECT_THAT(only_error(log), MatchesRegex("Failed to write pipe, errno=" +
                                              std::to_string(os_error::bad_handle) + ", .+\n"));
    EXPECT_EQ(source.log->blocks.size(), 1U) << "nothing is read after the failure";
}

TEST(Client_IO_Splice_To, APipeWhoseReaderIsGoneIsAFailure)
{
    Util_Pipe pipe;
    pipe.reader.close();
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"data"};
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    EXPECT_TRUE(says_reader_gone(only_error(log)));
}

TEST(Client_IO_Splice_To, AReaderThatGoesInTheMiddleEndsIt)
{
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {sample_bytes(several_megabytes)};
    std::thread reader([&] {
        char byte = 0;
        EXPECT_EQ(ACE_OS::read(pipe.reader.get(), &byte, 1), 1);
        pipe.reader.close();
    });
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    reader.join();
    EXPECT_TRUE(says_reader_gone(only_error(log)));
}

} // namespace
