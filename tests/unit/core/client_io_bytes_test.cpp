#include "tests/support/log_capture.h"
#include "tests/support/open_facade.h"

#include <gtest/gtest.h>

namespace
{

class Facade_Bytes : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(facade_.connected); }

    bool open(unsigned mode, std::uint64_t offset = 0)
    {
        const bool result = io_.open("file", mode, offset, 0);
        log_.calls.clear();
        return result;
    }

    Recorded_Facade facade_;
    Open_Facade& io_ = facade_.io;
    Recording& log_ = *facade_.log;
    char buffer_[16] = {};
    const void* data_ = nullptr;
    std::uint64_t size_ = 0;
};

TEST_F(Facade_Bytes, AReadOfNoBytesFailsAndLeavesThePosition)
{
    ASSERT_TRUE(open(1, 100));
    log_.blocks = {"data"};
    const Log_Capture capture;
    EXPECT_EQ(io_.read(buffer_, 0), -1);
    EXPECT_EQ(io_.tell(), 100);
    EXPECT_EQ(log_.count("read"), 0U);
}

TEST_F(Facade_Bytes, AWriteOfNoBytesSucceedsAndCallsNothing)
{
    ASSERT_TRUE(open(2, 100));
    EXPECT_TRUE(io_.write(buffer_, 0));
    EXPECT_EQ(io_.tell(), 100);
    EXPECT_EQ(io_.original_size(), 0U);
    EXPECT_EQ(log_.count("write"), 0U);
}

TEST_F(Facade_Bytes, AWriteOfNoBytesIsStillRefusedWhereWritesAre)
{
    EXPECT_FALSE(io_.write(buffer_, 0));
    EXPECT_EQ(io_.error(), "Not open");
    ASSERT_TRUE(open(1));
    EXPECT_FALSE(io_.write(buffer_, 0));
    EXPECT_EQ(io_.error(), "Operation not permitted in read mode");
}

TEST_F(Facade_Bytes, ReadsAdvanceThePositionByWhatTheyBring)
{
    ASSERT_TRUE(open(1, 100));
    log_.blocks = {"12345", "678"};
    EXPECT_EQ(io_.read(buffer_, 16), 5);
    EXPECT_EQ(io_.tell(), 105);
    EXPECT_TRUE(io_.read(data_, size_));
    EXPECT_EQ(std::string(static_cast<const char*>(data_), size_), "678");
    EXPECT_EQ(io_.tell(), 108);
    EXPECT_EQ(io_.read(buffer_, 16), 0);
    EXPECT_EQ(io_.tell(), 108);
}

TEST_F(Facade_Bytes, FailedReadsLeaveThePosition)
{
    ASSERT_TRUE(open(1, 100));
    log_.failing = {"read", "read_block"};
    log_.blocks = {"12345"};
    EXPECT_EQ(io_.read(buffer_, 16), -1);
    size_ = 77;
    EXPECT_FALSE(io_.read(data_, size_));
    EXPECT_EQ(io_.tell(), 100);
}

TEST_F(Facade_Bytes, WritesAdvanceThePositionAndTheByteCount)
{
    ASSERT_TRUE(open(2, 100));
    EXPECT_TRUE(io_.write("12345", 5));
    EXPECT_TRUE(io_.write("678", 3));
    EXPECT_EQ(io_.tell(), 108);
    EXPECT_EQ(io_.original_size(), 8U);
    EXPECT_EQ(log_.written, "12345678");
}

TEST_F(Facade_Bytes, AFailedWriteCountsNothing)
{
    ASSERT_TRUE(open(2, 100));
    log_.failing = {"write"};
    EXPECT_FALSE(io_.write("12345", 5));
    EXPECT_EQ(io_.tell(), 100);
    EXPECT_EQ(io_.original_size(), 0U);
}

TEST_F(Facade_Bytes, EveryByteOperationIsRefusedWithoutAnOpenFile)
{
    const auto expect_not_open = [&](const char* what) {
        EXPECT_EQ(io_.error(), "Not open") << what;
        io_.error_.clear();
    };
    EXPECT_EQ(io_.read(buffer_, 1), -1);
    expect_not_open("read");
    EXPECT_FALSE(io_.read(data_, size_));
    expect_not_open("zero-copy read");
    EXPECT_FALSE(io_.write("x", 1));
    expect_not_open("write");
    EXPECT_FALSE(io_.flush());
    expect_not_open("flush");
    EXPECT_FALSE(io_.seek(0, 0));
    expect_not_open("seek");
    EXPECT_FALSE(io_.close());
    expect_not_open("close");
    EXPECT_EQ(io_.size(), Client_IO_Base::size_unknown);
    EXPECT_TRUE(log_.actions().empty());
}

TEST_F(Facade_Bytes, ReadsAreRefusedInEveryWriteMode)
{
    for (const unsigned mode : {2U, 3U, 4U, 0x102U, 0x103U}) {
        ASSERT_TRUE(open(mode));
        EXPECT_EQ(io_.read(buffer_, 1), -1) << mode;
        EXPECT_EQ(io_.error(), "Operation not permitted in write mode") << mode;
        io_.error_.clear();
        EXPECT_FALSE(io_.read(data_, size_)) << mode;
        EXPECT_EQ(io_.error(), "Operation not permitted in write mode") << mode;
        EXPECT_TRUE(io_.writable()) << mode;
        EXPECT_EQ(log_.count("read"), 0U);
    }
}

TEST_F(Facade_Bytes, WritesAndFlushAreRefusedInReadMode)
{
    for (const unsigned mode : {1U, 0x101U}) {
        ASSERT_TRUE(open(mode));
        EXPECT_FALSE(io_.write("x", 1));
        EXPECT_EQ(io_.error(), "Operation not permitted in read mode");
        io_.error_.clear();
        EXPECT_FALSE(io_.flush());
        EXPECT_EQ(io_.error(), "Operation not permitted in read mode");
        EXPECT_FALSE(io_.writable());
        EXPECT_TRUE(log_.actions().empty());
    }
}

TEST_F(Facade_Bytes, FlushGoesToTheStackWhenWriting)
{
    ASSERT_TRUE(open(2));
    EXPECT_TRUE(io_.flush());
    log_.failing = {"flush"};
    EXPECT_FALSE(io_.flush());
    EXPECT_EQ(log_.count("flush()"), 2U);
}

TEST_F(Facade_Bytes, SeekMovesThePositionOnlyWhenItSucceeds)
{
    ASSERT_TRUE(open(1));
    EXPECT_TRUE(io_.seek(500, 20));
    EXPECT_EQ(io_.tell(), 500);
    log_.failing = {"seek"};
    EXPECT_FALSE(io_.seek(900, 0));
    EXPECT_EQ(io_.tell(), 500);
    EXPECT_EQ(log_.actions(), (std::vector<std::string>{"seek(500, 20)", "seek(900, 0)"}));
}

TEST_F(Facade_Bytes, SeekDoesNotReconnect)
{
    ASSERT_TRUE(open(1));
    log_.connected = false;
    EXPECT_TRUE(io_.seek(5, 0));
    EXPECT_EQ(log_.count("reconnect"), 0U);
}

TEST_F(Facade_Bytes, ADroppedConnectionIsEstablishedAgainByTheNextOperation)
{
    ASSERT_TRUE(open(1));
    log_.blocks = {"data"};
    log_.connected = false;
    EXPECT_EQ(io_.read(buffer_, 4), 4);
    EXPECT_EQ(log_.count("reconnect()"), 1U);
    EXPECT_TRUE(io_.is_connected());
}

TEST_F(Facade_Bytes, OperationsFailWithNotConnectedWhenReconnectingFails)
{
    ASSERT_TRUE(open(1));
    log_.connected = false;
    log_.failing = {"reconnect"};
    log_.error = "the line is cut";
    const auto expect_not_connected = [&](const char* what, std::size_t tries) {
        EXPECT_EQ(io_.error(), "Not connected") << what;
        EXPECT_EQ(log_.count("reconnect()"), tries) << what;
    };
    EXPECT_EQ(io_.read(buffer_, 1), -1);
    expect_not_connected("read", 1);
    EXPECT_FALSE(io_.read(data_, size_));
    expect_not_connected("zero-copy read", 2);
    EXPECT_FALSE(io_.write("x", 1));
    expect_not_connected("write", 3);
    EXPECT_FALSE(io_.flush());
    expect_not_connected("flush", 4);
    EXPECT_FALSE(io_.close());
    expect_not_connected("close", 5);
    EXPECT_FALSE(io_.open("a", 1, 0, 0));
    expect_not_connected("open", 6);
    EXPECT_EQ(io_.size("a"), Client_IO_Base::size_unknown);
    expect_not_connected("size", 7);
    EXPECT_FALSE(io_.remove("a"));
    expect_not_connected("remove", 8);
}

TEST_F(Facade_Bytes, ConstOperationsNeverReconnect)
{
    ASSERT_TRUE(open(1));
    log_.connected = false;
    log_.stream_size = log_.storage = log_.original = 5;
    log_.config = "value";
    EXPECT_EQ(io_.size(), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_.storage_size(), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_.original_size(), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_.get_config("key"), "");
    EXPECT_TRUE(log_.actions().empty());
}

TEST_F(Facade_Bytes, SizesAndSettingsComeFromTheStack)
{
    ASSERT_TRUE(open(1));
    log_.stream_size = 100;
    log_.storage = 60;
    log_.config = "value";
    EXPECT_EQ(io_.size(), 100U);
    EXPECT_EQ(io_.storage_size(), 60U);
    EXPECT_EQ(io_.get_config("key"), "value");
    EXPECT_EQ(log_.count("get_config(key)"), 1U);
}

TEST_F(Facade_Bytes, OriginalSizeOfAFileOpenForReadingIsItsSize)
{
    log_.stream_size = 100;
    log_.original = 333;
    ASSERT_TRUE(open(2));
    ASSERT_TRUE(io_.write("12345", 5));
    EXPECT_EQ(io_.original_size(), 5U);
    ASSERT_TRUE(open(1));
    EXPECT_EQ(io_.original_size(), 100U);
}

TEST_F(Facade_Bytes, OriginalSizeStillAnswersAfterClose)
{
    ASSERT_TRUE(open(2));
    ASSERT_TRUE(io_.write("12345", 5));
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(io_.original_size(), 5U);
    EXPECT_TRUE(io_.writable());
}

TEST_F(Facade_Bytes, CloseForgetsThePositionAlsoWhenItFails)
{
    ASSERT_TRUE(open(2, 10));
    log_.failing = {"close"};
    log_.error = "disk full";
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "disk full");
    EXPECT_EQ(io_.tell(), -1);
}

TEST_F(Facade_Bytes, ErrorRightAfterABackendFailureIsTheBackendsText)
{
    EXPECT_FALSE(io_.close());
    ASSERT_EQ(io_.error(), "Not open");
    ASSERT_TRUE(open(1));
    log_.failing = {"read"};
    log_.error = "the backend's own words";
    log_.errnum = 77;
    log_.retriable = true;
    EXPECT_EQ(io_.read(buffer_, 1), -1);
    EXPECT_EQ(io_.error(), "the backend's own words");
    EXPECT_EQ(io_.errnum(), 77);
    EXPECT_TRUE(io_.retriable());
}

TEST_F(Facade_Bytes, TheFacadesOwnTextHidesTheBackends)
{
    log_.error = "the backend's own words";
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "Not open");
}

TEST_F(Facade_Bytes, OperationsHandTheirArgumentsDownUnchanged)
{
    ASSERT_TRUE(open(1));
    EXPECT_EQ(io_.read(buffer_, 9), 0);
    EXPECT_EQ(log_.actions(),
              std::vector<std::string>{call_text("read", static_cast<void*>(buffer_), 9)});
    ASSERT_TRUE(open(2));
    EXPECT_TRUE(io_.write(buffer_, 9));
    EXPECT_EQ(log_.actions(),
              std::vector<std::string>{call_text("write", static_cast<void*>(buffer_), 9)});
}

} // namespace
