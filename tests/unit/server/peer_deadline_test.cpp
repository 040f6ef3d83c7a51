#include "servers/common/peer_deadline.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

class Peer_Deadline_Test : public testing::Test
{
protected:
    Peer_Deadline deadline_;
    const Peer_Deadline::Time start_{1000s};
};

TEST_F(Peer_Deadline_Test, WithoutOneTimeDoesNotMatter)
{
    EXPECT_FALSE(deadline_.passed(start_ + 10000s));
    deadline_.set(start_, 1s);
    deadline_.clear();
    EXPECT_FALSE(deadline_.passed(start_ + 10000s));
}

TEST_F(Peer_Deadline_Test, AStepEndsInTimeWhateverMoves)
{
    deadline_.set(start_, 10s);
    deadline_.moved(1'000'000);
    EXPECT_FALSE(deadline_.passed(start_ + 9s));
    EXPECT_TRUE(deadline_.passed(start_ + 10s));
}

TEST_F(Peer_Deadline_Test, AFlowHasToKeepItsRateInEveryStretch)
{
    deadline_.set_rate(start_, 10s, 100);
    deadline_.moved(600);
    deadline_.moved(400);
    EXPECT_FALSE(deadline_.passed(start_ + 10s));
    // What came before counts no more.
    deadline_.moved(999);
    EXPECT_FALSE(deadline_.passed(start_ + 19s));
    EXPECT_TRUE(deadline_.passed(start_ + 20s));
}

TEST_F(Peer_Deadline_Test, WithoutARateOneByteIsEnough)
{
    deadline_.set_rate(start_, 10s, 0);
    deadline_.moved(1);
    EXPECT_FALSE(deadline_.passed(start_ + 10s));
    EXPECT_TRUE(deadline_.passed(start_ + 20s));
}
