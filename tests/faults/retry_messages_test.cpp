#include "client_io/resumption_io.h"
#include "platform/json/json_value.h"
#include "tests/faults/retry_fixture.h"

#include <functional>
#include <limits>

/// What is logged, how long is waited and what is tried again: connect, and every operation whose
/// retry is not the resumption of a write.

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

// --- connect

class Connect_Retry : public Retry_Fixture
{
protected:
    bool connect(std::uint64_t max_retry)
    {
        return connect_to("http://server:8080/dir", max_retry);
    }
};

TEST_F(Connect_Retry, AConnectThatSucceedsSaysNothingAndWaitsForNothing)
{
    EXPECT_TRUE(connect(600));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(pauses_, IsEmpty());
}

TEST_F(Connect_Retry, WithoutTimeForItOneFailureIsEnough)
{
    below_->failing = {"connect"};
    below_->retriable = true;
    EXPECT_FALSE(connect(0));
    EXPECT_THAT(logged(), ElementsAre("DEBUG Not retry connecting http://server:8080 since "
                                      "max_seconds_retry is 0\n"));
    EXPECT_THAT(pauses_, IsEmpty());
    EXPECT_EQ(below_->count("connect("), 1U);
    EXPECT_EQ(io_->error(), "down");
}

TEST_F(Connect_Retry, AFailureThatIsNotRetriableIsRetriedAllTheSame)
{
    below_->failing = {"connect"};
    recover_after(4);
    EXPECT_TRUE(connect(600));
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30, 40));
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_EQ(below_->count("connect("), 5U);
    EXPECT_EQ(below_->count("reconnect("), 0U);
}

TEST_F(Connect_Retry, TheEndTellsTheSecondsThatWereSpent)
{
    below_->failing = {"connect"};
    clock_.on_sleep = [&](auto) { below_->error = "still down"; };
    EXPECT_FALSE(connect(60));
    EXPECT_THAT(logged(), ElementsAre("ERROR The retry of connecting http://server:8080 has timed "
                                      "out after 60 seconds\n"));
    EXPECT_EQ(below_->count("connect("), 4U);
    EXPECT_EQ(io_->error(), "down"); // what went wrong first
}

TEST_F(Connect_Retry, PausesGrowToAMinuteAndStayThere)
{
    below_->failing = {"connect"};
    EXPECT_FALSE(connect(400));
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30, 40, 50, 60, 60, 60, 60, 60));
    EXPECT_THAT(logged(), ElementsAre("ERROR The retry of connecting http://server:8080 has timed "
                                      "out after 450 seconds\n"));
}

TEST_F(Connect_Retry, TheSecondsCountWhatTheAttemptsTakeToo)
{
    below_->failing = {"connect"};
    clock_.time = std::chrono::milliseconds(999); // whole seconds are compared
    clock_.on_sleep = [&](auto) { clock_.time += std::chrono::seconds(95); };
    EXPECT_FALSE(connect(200));
    EXPECT_THAT(logged(), ElementsAre("ERROR The retry of connecting http://server:8080 has timed "
                                      "out after 220 seconds\n"));
}

TEST_F(Connect_Retry, AnAddressInBracketsIsPrintedPlain)
{
    below_->failing = {"connect"};
    EXPECT_FALSE(connect_to("https://[::1]:443/dir", 0));
    EXPECT_THAT(logged(),
                ElementsAre("DEBUG Not retry connecting https://::1:443 since max_seconds_retry is "
                            "0\n"));
}

TEST_F(Connect_Retry, TheLongestRetryOfAllDoesNotEndAtOnce)
{
    below_->failing = {"connect"};
    recover_after(5000);
    EXPECT_TRUE(connect(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(below_->count("connect("), 5001U);
}

// --- the others

struct Retried
{
    const char* name;
    const char* what;              ///< the word of the messages
    const char* failing;           ///< name in the recording
    std::vector<std::string> pass; ///< what every repetition does, addresses left out
    std::function<bool(Resumption_IO&)> call;
};

std::ostream& operator<<(std::ostream& out, const Retried& retried)
{
    return out << retried.name;
}

char buffer[8];
const json_spirit::Value extra;

const std::vector<Retried> all_retried = {
    {"Open",
     "opening",
     "open",
     {"reconnect()", "open(file, 1, 5, 9)"},
     [](Resumption_IO& io) { return io.open("file", 1, 5, 9); }},
    {"OpenWithExtra",
     "opening",
     "open",
     {"reconnect()", "open(file, 1, *)"},
     [](Resumption_IO& io) { return io.open("file", 1, extra); }},
    {"Read",
     "reading",
     "read",
     {"reconnect()", "open(file, 1, 0, 0)", "read(*)"},
     [](Resumption_IO& io) { return io.read(buffer, sizeof buffer) >= 0; }},
    {"ReadBlock",
     "reading",
     "read_block",
     {"reconnect()", "open(file, 1, 0, 0)", "read_block()"},
     [](Resumption_IO& io) {
         const void* data = nullptr;
         std::uint64_t size = 0;
         return io.read(data, size);
     }},
    {"Size",
     "getting size of",
     "path_size",
     {"reconnect()", "path_size(other)"},
     [](Resumption_IO& io) { return io.size("other") != Client_IO_Base::size_unknown; }},
    {"GetDir",
     "reading directory",
     "get_dir",
     {"reconnect()", "get_dir(other, *)"},
     [](Resumption_IO& io) {
         std::vector<Client_IO_Base::Directory_Entry> entries;
         return io.get_dir("other", entries);
     }},
};

class Retry : public Retry_Fixture, public testing::WithParamInterface<Retried>
{
protected:
    void prepare(std::uint64_t max_retry)
    {
        ASSERT_TRUE(connect_to("http://server:8080/dir", max_retry));
        ASSERT_TRUE(io_->open("file", 1, 0, 0));
        below_->calls.clear();
    }

    void fail() { set_failing(GetParam().failing, true); }
    bool call() { return GetParam().call(*io_); }

    std::string text(const std::string& level_and_start, const std::string& end)
    {
        return level_and_start + GetParam().what + " file" + end + "\n";
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Retry, testing::ValuesIn(all_retried),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(Retry, WithoutAFailureNothingIsLoggedAskedOrWaitedFor)
{
    prepare(600);
    EXPECT_TRUE(call());
    EXPECT_THAT(logged(), IsEmpty());
    EXPECT_THAT(pauses_, IsEmpty());
    EXPECT_EQ(below_->count("reconnect("), 0U);
}

TEST_P(Retry, WithoutTimeForItTheFailureIsReturnedAtOnce)
{
    prepare(0);
    fail();
    below_->retriable = true;
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(), ElementsAre(text("DEBUG Not retry ", " since max_seconds_retry is 0")));
    EXPECT_THAT(pauses_, IsEmpty());
    EXPECT_EQ(below_->count("reconnect("), 0U);
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Retry, AFailureThatIsNotRetriableIsReturnedAtOnce)
{
    prepare(600);
    fail();
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(),
                ElementsAre(text("DEBUG Not retry ", " since the error is not retriable: down")));
    EXPECT_THAT(pauses_, IsEmpty());
    EXPECT_EQ(below_->count("reconnect("), 0U);
}

TEST_P(Retry, ARetryEndsWithAFailureThatIsNotRetriable)
{
    prepare(600);
    fail();
    below_->retriable = true;
    clock_.on_sleep = [&](auto) {
        below_->error = "gone for good";
        below_->retriable = pauses_.size() < 2;
    };
    EXPECT_FALSE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20));
    EXPECT_THAT(logged(), ElementsAre(text("ERROR The retry of ",
                                           " failed since the error is not retriable: gone for "
                                           "good")));
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Retry, ARetryEndsWithItsTime)
{
    prepare(150);
    fail();
    below_->retriable = true;
    EXPECT_FALSE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30, 40, 50));
    EXPECT_THAT(logged(), ElementsAre(text("ERROR The retry of ", " has timed out after 150 "
                                                                  "seconds")));
    EXPECT_EQ(io_->error(), "down");
}

TEST_P(Retry, TimeOutWinsOverAFailureThatIsNotRetriable)
{
    prepare(10);
    fail();
    below_->retriable = true;
    clock_.on_sleep = [&](auto) { below_->retriable = false; };
    EXPECT_FALSE(call());
    EXPECT_THAT(logged(), ElementsAre(text("ERROR The retry of ", " has timed out after 10 "
                                                                  "seconds")));
}

TEST_P(Retry, WhatIsTriedWhenTheTimeIsOverIsFinished)
{
    prepare(15);
    fail();
    below_->retriable = true;
    recover_after(2); // 30 seconds
    EXPECT_TRUE(call());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_P(Retry, EveryPassReconnectsAndBeginsAgain)
{
    prepare(600);
    fail();
    below_->retriable = true;
    recover_after(3);
    clock_.on_sleep = [&](auto) { below_->error = "the layer's own"; };
    EXPECT_TRUE(call());
    EXPECT_THAT(pauses_, ElementsAre(10, 20, 30));
    EXPECT_THAT(logged(), IsEmpty());
    std::vector<std::string> expected = {GetParam().pass.back()};
    for (int pass = 0; pass < 3; ++pass)
        expected.insert(expected.end(), GetParam().pass.begin(), GetParam().pass.end());
    EXPECT_EQ(actions(), expected);
    EXPECT_EQ(io_->error(), "the layer's own"); // no text of a failure is left
}

TEST_P(Retry, APassWithoutAConnectionTriesNothingMore)
{
    prepare(600);
    fail();
    below_->failing.insert("reconnect");
    below_->retriable = true;
    clock_.on_sleep = [&](auto) {
        if (pauses_.size() == 2)
            below_->failing.erase("reconnect");
        if (pauses_.size() == 3)
            recover();
    };
    EXPECT_TRUE(call());
    std::vector<std::string> expected = {GetParam().pass.back(), "reconnect()"};
    for (int pass = 0; pass < 2; ++pass)
        expected.insert(expected.end(), GetParam().pass.begin(), GetParam().pass.end());
    EXPECT_EQ(actions(), expected);
}

TEST_P(Retry, TheLongestRetryOfAllDoesNotEndAtOnce)
{
    prepare(std::numeric_limits<std::uint64_t>::max());
    fail();
    below_->retriable = true;
    recover_after(1000);
    EXPECT_TRUE(call());
    EXPECT_EQ(pauses_.size(), 1000U);
}

TEST_P(Retry, WithoutALowerLayerItFailsAndSaysSo)
{
    Resumption_IO alone(nullptr, 8);
    EXPECT_FALSE(GetParam().call(alone));
    expect_missing_layer_logged();
}

TEST_F(Connect_Retry, WithoutALowerLayerItFailsAndSaysSo)
{
    Resumption_IO alone(nullptr, 8);
    EXPECT_FALSE(alone.connect(URI(), {}));
    expect_missing_layer_logged();
    EXPECT_THAT(pauses_, IsEmpty());
}

TEST_F(Connect_Retry, BeforeTheFirstFileMessagesNameNone)
{
    ASSERT_TRUE(connect(0));
    set_failing("path_size", true);
    EXPECT_EQ(io_->size("other"), Client_IO_Base::size_unknown);
    EXPECT_THAT(logged(),
                ElementsAre("DEBUG Not retry getting size of  since max_seconds_retry is 0\n"));
}

TEST_F(Connect_Retry, TheFileOfAFailedOpenIsTheOneThatMessagesName)
{
    ASSERT_TRUE(connect(0));
    ASSERT_TRUE(io_->open("first", 1, 0, 0));
    below_->failing = {"open", "get_dir"};
    EXPECT_FALSE(io_->open("second", 1, 0, 0));
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_FALSE(io_->get_dir("dir", entries));
    EXPECT_THAT(logged(),
                ElementsAre("DEBUG Not retry opening second since max_seconds_retry is 0\n",
                            "DEBUG Not retry reading directory second since max_seconds_retry is "
                            "0\n"));
}

TEST_F(Connect_Retry, AReadIsResumedWhereItWasWithWhatIsLeftOfItsLimit)
{
    ASSERT_TRUE(connect(600));
    ASSERT_TRUE(io_->open("file", 1, 5, 12));
    below_->retriable = true;
    below_->blocks = {"abc", "de", "fg", "h"};
    ASSERT_EQ(io_->read(buffer, 8), 3);
    below_->failing = {"read"};
    recover_after(1);
    ASSERT_EQ(io_->read(buffer, 8), 2);
    EXPECT_EQ(below_->count("open(file, 1, 8, 9)"), 1U);
    ASSERT_TRUE(io_->seek(100, 7));
    ASSERT_EQ(io_->read(buffer, 8), 2);
    below_->failing = {"read"};
    recover_after(2);
    ASSERT_EQ(io_->read(buffer, 8), 1);
    EXPECT_EQ(below_->count("open(file, 1, 102, 5)"), 1U);
}

TEST_F(Connect_Retry, ThatAPathIsADirectoryIsAnAnswer)
{
    ASSERT_TRUE(connect(600));
    below_->retriable = true;
    below_->path_size = Client_IO_Base::size_of_directory;
    EXPECT_EQ(io_->size("dir"), Client_IO_Base::size_of_directory);
    EXPECT_THAT(pauses_, IsEmpty());
}

} // namespace
