#include "platform/runtime/clock.h"

#include <gtest/gtest.h>
#include <vector>

namespace
{

using namespace std::chrono_literals;

class Fake_Clock : public Clock
{
public:
    Wall_Time now() const override { return Wall_Time(42s); }
    Steady_Time steady_now() const override { return Steady_Time(7s); }
    void sleep(std::chrono::nanoseconds duration) override { sleeps.push_back(duration); }

    std::vector<std::chrono::nanoseconds> sleeps;
};

TEST(System_Clock, ReadsTheTimesOfTheSystem)
{
    const auto before = std::chrono::system_clock::now();
    const auto steady_before = std::chrono::steady_clock::now();
    const auto steady = Clock::current().steady_now();
    EXPECT_GE(Clock::current().now(), before);
    EXPECT_GE(steady, steady_before);
    EXPECT_LE(steady, std::chrono::steady_clock::now());
}

TEST(System_Clock, SleepingForNothingOrLessReturnsAtOnce)
{
    Clock::current().sleep(0ns);
    Clock::current().sleep(-1h);
    Clock::current().sleep(std::chrono::nanoseconds::min());
}

TEST(Clock, ReplacementIsInForceUntilItIsTakenBack)
{
    Clock* const system = &Clock::current();
    Fake_Clock first;
    Fake_Clock second;
    EXPECT_EQ(Clock::replace(&first), nullptr);
    EXPECT_EQ(&Clock::current(), &first);
    EXPECT_EQ(Clock::current().now().time_since_epoch(), 42s);
    EXPECT_EQ(Clock::replace(&second), &first);
    Clock::current().sleep(1h);
    EXPECT_TRUE(first.sleeps.empty());
    EXPECT_EQ(second.sleeps, std::vector<std::chrono::nanoseconds>{1h});
    EXPECT_EQ(Clock::replace(nullptr), &second);
    EXPECT_EQ(&Clock::current(), system);
}

} // namespace
