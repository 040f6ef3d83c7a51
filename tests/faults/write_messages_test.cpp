#include "tests/faults/retry_fixture.h"

#include <limits>

/// What is logged, how long is waited and what is tried again when a write, flush or close fails.

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned writing = Client_IO_Base::mode_write;

struct Resumed
{
    const char* name;
    const char* failing; ///< name in the recording
    const char* action;  ///< as it is noted
    std::function<bool(Resumption_IO&)> call;
};

std::ostream& operator<<(std::ostream& out, const Resumed& resumed)
{
    return out << resumed.name;
}

const std::vector<Resumed> all_resumed = {
    {"Write", "write", "write(*)", [](Resumption_IO& io) { return io.write("12", 2); }},
    {"Flush", "flush", "flush()", [](Resumption_IO& io) { return io.flush(); }},
    {"Close", "close", "close()", [](Resumption_IO& io) { return io.close(); }},
};

/// The file was opened empty and holds "abcdef", of which the buffer holds "cdef".
class Resumption : public Retry_Fixture, public testing::WithParamInterface<Resumed>
{
protected:
    void prepare(std::uint64_t max_retry, unsigned mode = writing)
    {
        ASSERT_TRUE(connect_to("http://server:8080/dir", max_retry));
        ASSERT_TRUE(io_->open("file", mode, 0, 0));
        if (mode != Client_IO_Base::mode_read) {
            ASSERT_TRUE(io_->write("abcdef", 6));
        }
        below_->calls.clear();
        below_->stream_size = 6;
    }

    /// From now on the operation fails, and with it the connection.
    void fail(bool retriable)
    {
        set_failing(GetParam().failing, true);
        below_->retriable = retriable;
        below_->open = false;
    }

    bool call() { return GetParam().call(*io_); }

    const std::vector<std::string> pass_{"reconnect()", "open(file, 3, 0, 0)", GetParam().action};
};

INSTANTIATE_TEST_SUITE_P(Of, Resumption, testing::ValuesIn(all_resumed),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Resumption, WithoutTimeForItTheFailureIsReturnedAtOnce)
{
    prepare(0);
    fail(true);
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(),
                ElementsAre("DEBUG Not retry writing file since max_seconds_retry is 0\n"));
    EXPECT_THAT(actions(), ElementsAre(GetParam().action));
    EXPECT_THAT(pauses_, IsEmpty());
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Resumption, AFailureThatIsNotRetriableIsReturnedAtOnce)
{
    prepare(600);
    fail(false);
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(), ElementsAre("DEBUG Not retry writing file since the error is not "
                                      "retriable: down\n"));
    EXPECT_THAT(actions(), ElementsAre(GetParam().action));
    EXPECT_THAT(pauses_, IsEmpty());
}

TEST_P(Resumption, SaysWhereItWentOn)
{
    prepare(600);
    fail(true);
    recover_after(2);
    below_->failing.insert("reconnect");
    clock_.on_sleep = [&](auto) { below_->error = "the layer's own"; };
    EXPECT_TRUE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20));
    EXPECT_THAT(logged(), ElementsAre("DEBUG file is resumed successfully from 6\n"));
    EXPECT_THAT(actions(), ElementsAre(GetParam().action, "reconnect()", "reconnect()",
                                       "open(file, 3, 0, 0)", GetParam().action));
    EXPECT_EQ(io_->error(), "the layer's own"); // no text of a failure is left
}

TEST_P(Resumption, KeepsTheFlagsOfTheModeAndGoesOnInsteadOfBeginningAgain)
{
    prepare(600, Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite);
    fail(true);
    recover_after(1);
    EXPECT_TRUE(call());
    EXPECT_EQ(below_->count("open(file, 259, 0, 0)"), 1U); // 0x103
    EXPECT_EQ(below_->count("open("), 1U);
}

TEST_P(Resumption, LeavesAppendAndRandomWriteModeAsTheyAre)
{
    for (const unsigned mode : {3U, 4U, 0x103U, 0x104U}) {
        io_ = std::make_unique<Resumption_IO>(std::make_unique<Recording_IO>(below_), buffer_size);
        below_->stream_size = 0;
        pauses_.clear();
        recover();
        prepare(600, mode);
        fail(true);
        recover_after(1);
        // In random-write mode the two bytes that the buffer has lost stand in the way.
        const bool resent = (mode & 4U) == 0;
        EXPECT_EQ(call(), resent) << mode;
        EXPECT_EQ(below_->count("open(file, " + std::to_string(mode) + ", 0, 0)"), 1U) << mode;
    }
}

TEST_P(Resumption, ARetryEndsWithAFailureThatIsNotRetriable)
{
    prepare(600);
    fail(true);
    below_->failing.insert("reconnect");
    clock_.on_sleep = [&](auto) {
        below_->error = "gone for good";
        below_->retriable = pauses_.size() < 2;
    };
    EXPECT_FALSE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20));
    EXPECT_THAT(logged(), ElementsAre("ERROR The retry of writing file failed since the error is "
                                      "not retriable: gone for good\n"));
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Resumption, ARetryEndsWithItsTime)
{
    prepare(101);
    fail(true);
    below_->failing.insert("reconnect");
    EXPECT_FALSE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30, 40, 50));
    EXPECT_THAT(logged(),
                ElementsAre("ERROR The retry of writing file has timed out after 150 seconds\n"));
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Resumption, PausesGrowToAMinuteAndStayThere)
{
    prepare(330);
    fail(true);
    below_->failing.insert("open");
    EXPECT_FALSE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30, 40, 50, 60, 60, 60));
}

TEST_P(Resumption, WhatIsTriedWhenTheTimeIsOverIsFinished)
{
    prepare(15);
    fail(true);
    below_->failing.insert("reconnect");
    recover_after(2); // 30 seconds
    EXPECT_TRUE(call());
}

TEST_P(Resumption, TheLongestRetryOfAllDoesNotEndAtOnce)
{
    prepare(std::numeric_limits<std::uint64_t>::max());
    fail(true);
    below_->failing.insert("reconnect");
    recover_after(1000);
    EXPECT_TRUE(call());
    EXPECT_EQ(pauses_.size(), 1000U);
}

TEST_P(Resumption, SendsAgainWhatTheTargetLacks)
{
    prepare(600);
    fail(true);
    recover_after(1);
    below_->stream_size = 3;
    below_->written.clear();
    EXPECT_TRUE(call());
    EXPECT_THAT(logged(), ElementsAre("DEBUG file is resumed successfully from 3\n"));
    const std::string own = GetParam().failing == std::string("write") ? "12" : "";
    EXPECT_EQ(below_->written, "def" + own);
}

TEST_P(Resumption, StopsWhenTheBufferHasLostTheBytesThatTheTargetLacks)
{
    prepare(600);
    fail(true);
    recover_after(1);
    below_->stream_size = 1;
    below_->written.clear();
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(),
                ElementsAre("ERROR Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is 1, start position of buffer is 2\n"));
    EXPECT_EQ(io_->error(), "Failed to resume write, breakpoint 1, buffer start 2, lost size 1, "
                            "last error: down");
    EXPECT_EQ(below_->written, "");
    EXPECT_THAT(pauses_, ElementsAre(10));
}

TEST_P(Resumption, StopsWhenTheFileIsOpenAndTheResumptionFailedAllTheSame)
{
    prepare(600);
    fail(true); // the operation fails again, and the file stays open
    if (GetParam().failing == std::string("close"))
        return; // a recording's close() always leaves no file open
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(),
                ElementsAre("ERROR Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is 6, start position of buffer is 2\n"));
    EXPECT_EQ(io_->error(), "down");
    EXPECT_THAT(pauses_, ElementsAre(10));
}

TEST_P(Resumption, StopsWhenTheSizeOfTheTargetIsUnknown)
{
    prepare(600);
    fail(true);
    recover_after(1);
    below_->stream_size = Client_IO_Base::size_unknown;
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(),
                ElementsAre("ERROR Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is -1, start position of buffer is 2\n"));
}

TEST_P(Resumption, WithoutALowerLayerItFailsAndSaysSo)
{
    Resumption_IO alone(nullptr, 8);
    EXPECT_FALSE(GetParam().call(alone));
    expect_missing_layer_logged();
}

class Write_Resumption : public Resumption
{};

INSTANTIATE_TEST_SUITE_P(Only, Write_Resumption, testing::Values(all_resumed[0]),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Write_Resumption, WhatArrivedOfTheInterruptedWriteIsNotSentAgain)
{
    prepare(600);
    fail(true);
    recover_after(1);
    below_->stream_size = 7;
    below_->written.clear();
    EXPECT_TRUE(call());
    EXPECT_EQ(below_->written, "2");
    EXPECT_THAT(logged(), ElementsAre("DEBUG file is resumed successfully from 7\n"));
}

TEST_P(Write_Resumption, AWriteThatArrivedWholeIsNotSentAgain)
{
    prepare(600);
    fail(true);
    recover_after(1);
    below_->stream_size = 8;
    below_->written.clear();
    EXPECT_TRUE(call());
    EXPECT_EQ(below_->written, "");
    EXPECT_THAT(actions(), ElementsAre("write(*)", "reconnect()", "open(file, 3, 0, 0)"));
    EXPECT_THAT(logged(), ElementsAre("DEBUG file is resumed successfully from 8\n"));
}

class Without_Buffer : public Retry_Fixture
{
protected:
    Without_Buffer()
    {
        io_ = std::make_unique<Resumption_IO>(std::make_unique<Recording_IO>(below_), 0);
        connect_to("http://server:8080/dir", 600);
        below_->retriable = true;
        EXPECT_TRUE(io_->open("file", writing, 0, 0));
        EXPECT_TRUE(io_->write("abcdef", 6));
        below_->failing = {"write"};
        below_->open = false;
        below_->written.clear();
        recover_after(1);
    }
};

TEST_F(Without_Buffer, AWriteIsResumedWhenTheTargetHoldsAllThatWasWrittenBefore)
{
    below_->stream_size = 7;
    EXPECT_TRUE(io_->write("123", 3));
    EXPECT_EQ(below_->written, "23");
}

TEST_F(Without_Buffer, AWriteFailsWhenTheTargetHoldsLess)
{
    below_->stream_size = 5;
    EXPECT_FALSE(io_->write("123", 3));
    EXPECT_EQ(below_->written, "");
    EXPECT_THAT(logged(),
                ElementsAre("ERROR Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is 5, start position of buffer is 6\n"));
    EXPECT_EQ(io_->error(), "Failed to resume write, breakpoint 5, buffer start 6, lost size 1, "
                            "last error: down");
}

class Reading_Mode : public Retry_Fixture
{
protected:
    Reading_Mode()
    {
        connect_to("http://server:8080/dir", 600);
        EXPECT_TRUE(io_->open("file", Client_IO_Base::mode_read, 0, 0));
        below_->retriable = true;
        below_->calls.clear();
    }
};

TEST_F(Reading_Mode, AFailedCloseIsReportedAsSuccessAndNotRetried)
{
    below_->failing = {"close"};
    EXPECT_TRUE(io_->close());
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(actions(), ElementsAre("close()"));
}

TEST_F(Reading_Mode, AFailedFlushIsReturnedWithoutAMessageOrARetry)
{
    below_->failing = {"flush"};
    EXPECT_FALSE(io_->flush());
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(actions(), ElementsAre("flush()"));
}

TEST_F(Reading_Mode, AFailedWriteIsReturnedWithoutAMessageOrARetry)
{
    below_->failing = {"write"};
    EXPECT_FALSE(io_->write("x", 1));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(actions(), ElementsAre("write(*)"));
}

TEST_F(Reading_Mode, AReadOfAFileOpenForWritingIsNotRetried)
{
    ASSERT_TRUE(io_->open("file", writing, 0, 0));
    below_->failing = {"read", "read_block"};
    below_->calls.clear();
    char byte = 0;
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(io_->read(&byte, 1), -1);
    EXPECT_FALSE(io_->read(data, size));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(actions(), ElementsAre("read(*)", "read_block()"));
}

TEST_F(Reading_Mode, OperationsThatAreNotRetriedAreForwardedOnce)
{
    below_->failing = {"seek", "make_dir", "truncate", "remove", "copy", "rename", "reconnect"};
    EXPECT_FALSE(io_->seek(1, 2));
    EXPECT_FALSE(io_->make_dir("d", 0750));
    EXPECT_FALSE(io_->truncate("a", 1));
    EXPECT_FALSE(io_->remove("a"));
    EXPECT_FALSE(io_->copy("a", "b", true));
    EXPECT_FALSE(io_->rename("a", "b", true));
    EXPECT_FALSE(io_->reconnect());
    EXPECT_THAT(actions(),
                ElementsAre("seek(1, 2)", "make_dir(d, 488)", "truncate(a, 1)", "remove(a)",
                            "copy(a, b, true)", "rename(a, b, true)", "reconnect()"));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(pauses_, IsEmpty());
}

} // namespace
