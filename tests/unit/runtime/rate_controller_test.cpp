#include "platform/runtime/rate_controller.h"
#include "tests/support/fake_clock.h"

#include <gtest/gtest.h>
#include <limits>

namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr std::uint64_t huge = std::uint64_t{1} << 63;

/// Counts how often it is asked, and sums up what is slept.
class Counting_Clock : public Fake_Clock
{
public:
    Counting_Clock()
    {
        time = 1h;
        on_sleep = [this](nanoseconds duration) {
            ++sleeps;
            slept += duration;
        };
        on_look = [this] { ++steady_looks; };
    }
    Wall_Time now() const override
    {
        ++wall_looks;
        return Fake_Clock::now();
    }

    unsigned sleeps = 0;
    nanoseconds slept{0};
    unsigned steady_looks = 0;
    mutable unsigned wall_looks = 0;
};

class Rate_Controller_Test : public testing::Test
{
protected:
    nanoseconds time_for(Rate_Controller& controller, std::uint64_t bytes)
    {
        const nanoseconds before = clock_.time;
        controller.limit_rate(bytes);
        return clock_.time - before;
    }
    void expect_near(nanoseconds value, nanoseconds expected, nanoseconds tolerance)
    {
        EXPECT_GE(value, expected - tolerance);
        EXPECT_LE(value, expected + tolerance);
    }

    Counting_Clock clock_;
};

TEST_F(Rate_Controller_Test, FirstTransferIsPaidForInFull)
{
    Rate_Controller controller(1000, {});
    expect_near(time_for(controller, 500), 500ms, 1us);
}

TEST_F(Rate_Controller_Test, LimitOfOneByteASecondIsKept)
{
    Rate_Controller controller(1, {});
    for (int i = 0; i < 5; ++i)
        expect_near(time_for(controller, 1), 1s, 1us);
}

TEST_F(Rate_Controller_Test, TransferOfManySecondsIsPaidForInFullBeforeTheNext)
{
    Rate_Controller controller(1000, {});
    expect_near(time_for(controller, 3'600'000), 1h, 1us);
    expect_near(time_for(controller, 10'000), 10s, 1us);
    expect_near(time_for(controller, 100), 100ms, 1us);
}

TEST_F(Rate_Controller_Test, TimeOfTheTransferCountsUpToASecond)
{
    Rate_Controller controller(1000, {});
    controller.limit_rate(1);
    clock_.time += 400ms;
    expect_near(time_for(controller, 500), 100ms, 1us);
    clock_.time += 1h;
    expect_near(time_for(controller, 10'000), 9s, 1us);
}

TEST_F(Rate_Controller_Test, UnlimitedNeverSleepsAndKeepsNoDebt)
{
    Rate_Controller controller(0, {});
    for (const std::uint64_t bytes :
         {std::uint64_t{1}, huge, std::numeric_limits<std::uint64_t>::max()})
        for (int i = 0; i < 1000; ++i)
            controller.limit_rate(bytes);
    EXPECT_EQ(clock_.sleeps, 0);
}

TEST_F(Rate_Controller_Test, HighestLimitLetsTheHighestCountPass)
{
    Rate_Controller controller(std::numeric_limits<std::uint64_t>::max(), {});
    expect_near(time_for(controller, std::numeric_limits<std::uint64_t>::max()), 1s, 1us);
    expect_near(time_for(controller, huge), 500ms, 1us);
}

TEST_F(Rate_Controller_Test, TransferOfNothingDoesNotSleep)
{
    Rate_Controller controller(1, {});
    for (int i = 0; i < 1000; ++i)
        controller.limit_rate(0);
    EXPECT_EQ(clock_.sleeps, 0);
}

TEST_F(Rate_Controller_Test, LimitFarAboveTheTrafficNeverSleeps)
{
    Rate_Controller controller(1'000'000'000, {});
    for (int i = 0; i < 100'000; ++i) {
        clock_.time += 1ms;
        controller.limit_rate(100'000);
    }
    EXPECT_EQ(clock_.sleeps, 0);
    EXPECT_EQ(clock_.steady_looks, 100'000) << "one look at the clock for each transfer";
    EXPECT_EQ(clock_.wall_looks, 0) << "without a schedule the time of day does not matter";
}

TEST_F(Rate_Controller_Test, ScheduleIsAskedTenTimesASecondAtMost)
{
    Rate_Controller controller(1'000'000'000, {{100, 200, 5}});
    for (int i = 0; i < 100'000; ++i) {
        clock_.time += 100us;
        controller.limit_rate(10'000);
    }
    EXPECT_EQ(clock_.sleeps, 0);
    EXPECT_GE(clock_.wall_looks, 99);
    EXPECT_LE(clock_.wall_looks, 101);
}

TEST_F(Rate_Controller_Test, ClockThatIsReplacedByAnEarlierOneAddsNoDebt)
{
    for (const bool schedule : {false, true}) {
        Rate_Controller controller(1000, schedule
                                             ? std::vector<Rate_Control_Entry>{{0, 86400, 1000}}
                                             : std::vector<Rate_Control_Entry>{});
        clock_.time = 2h;
        controller.limit_rate(1000);
        clock_.time = 1h;
        expect_near(time_for(controller, 500), 500ms, 1us);
    }
}

TEST_F(Rate_Controller_Test, ControllersDoNotShareADebt)
{
    Rate_Controller one(1000, {});
    Rate_Controller other(1000, {});
    one.limit_rate(10'000);
    clock_.slept = 0ns;
    other.limit_rate(1000);
    expect_near(clock_.slept, 1s, 1us);
}

} // namespace
