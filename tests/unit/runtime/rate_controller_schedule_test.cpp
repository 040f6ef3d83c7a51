#include "platform/runtime/rate_controller.h"
#include "tests/support/fake_clock.h"

#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>

namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using Seconds = std::chrono::duration<double>;

constexpr std::uint64_t huge = std::uint64_t{1} << 63;

constexpr std::int32_t at(std::int32_t hour, std::int32_t minute = 0)
{
    return hour * 3600 + minute * 60;
}

/// A day in June, whatever the zone.
class Rate_Controller_Schedule : public testing::Test
{
protected:
    void set_time(std::int32_t time_of_day)
    {
        std::tm local{};
        local.tm_year = 2026 - 1900;
        local.tm_mon = 5;
        local.tm_mday = 17;
        local.tm_hour = time_of_day / 3600;
        local.tm_min = time_of_day / 60 % 60;
        local.tm_sec = time_of_day % 60;
        local.tm_isdst = -1;
        clock_.wall_start = std::chrono::time_point_cast<Clock::Wall_Time::duration>(
                                std::chrono::system_clock::from_time_t(std::mktime(&local))) -
                            clock_.time;
    }

    /// The limit that a transfer meets, 0 for none.
    std::uint64_t limit_at(std::int32_t time_of_day, std::uint64_t default_limit,
                           const std::vector<Rate_Control_Entry>& schedule)
    {
        set_time(time_of_day);
        const nanoseconds before = clock_.time;
        Rate_Controller(default_limit, schedule).limit_rate(100);
        const double seconds = Seconds(clock_.time - before).count();
        return seconds > 0 ? static_cast<std::uint64_t>(std::llround(100 / seconds)) : 0;
    }

    Fake_Clock clock_;
};

TEST_F(Rate_Controller_Schedule, PeriodHasItsLimitAndTheRestOfTheDayTheDefault)
{
    const std::vector<Rate_Control_Entry> day = {{at(8), at(18), 500}};
    EXPECT_EQ(limit_at(at(0), 1000, day), 1000);
    EXPECT_EQ(limit_at(at(8) - 1, 1000, day), 1000);
    EXPECT_EQ(limit_at(at(8), 1000, day), 500);
    EXPECT_EQ(limit_at(at(12, 34), 1000, day), 500);
    EXPECT_EQ(limit_at(at(18) - 1, 1000, day), 500);
    EXPECT_EQ(limit_at(at(18), 1000, day), 1000) << "the end does not belong to the period";
    EXPECT_EQ(limit_at(at(24) - 1, 1000, day), 1000);
    EXPECT_EQ(limit_at(at(7), 0, day), 0) << "unlimited outside";
    EXPECT_EQ(limit_at(at(9), 0, day), 500);
}

TEST_F(Rate_Controller_Schedule, PeriodWithZeroIsUnlimited)
{
    const std::vector<Rate_Control_Entry> night = {{at(2), at(4), 0}};
    EXPECT_EQ(limit_at(at(3), 1000, night), 0);
    EXPECT_EQ(limit_at(at(4), 1000, night), 1000);
}

TEST_F(Rate_Controller_Schedule, PeriodWrapsMidnight)
{
    const std::vector<Rate_Control_Entry> night = {{at(22), at(6), 500}};
    EXPECT_EQ(limit_at(at(22) - 1, 1000, night), 1000);
    EXPECT_EQ(limit_at(at(22), 1000, night), 500);
    EXPECT_EQ(limit_at(at(24) - 1, 1000, night), 500);
    EXPECT_EQ(limit_at(at(0), 1000, night), 500);
    EXPECT_EQ(limit_at(at(6) - 1, 1000, night), 500);
    EXPECT_EQ(limit_at(at(6), 1000, night), 1000);
}

TEST_F(Rate_Controller_Schedule, MidnightIsBothEndsOfTheDay)
{
    EXPECT_EQ(limit_at(at(24) - 1, 1000, {{at(22), at(24), 500}}), 500);
    EXPECT_EQ(limit_at(at(0), 1000, {{at(22), at(24), 500}}), 1000);
    EXPECT_EQ(limit_at(at(24) - 1, 1000, {{at(22), 0, 500}}), 500);
    EXPECT_EQ(limit_at(at(0), 1000, {{at(22), 0, 500}}), 1000);
    EXPECT_EQ(limit_at(at(24) - 1, 1000, {{at(24), at(1), 500}}), 1000);
    EXPECT_EQ(limit_at(at(0), 1000, {{at(24), at(1), 500}}), 500);
    for (const std::int32_t time : {at(0), at(12), at(24) - 1})
        EXPECT_EQ(limit_at(time, 1000, {{0, at(24), 500}}), 500) << "the whole day";
}

TEST_F(Rate_Controller_Schedule, EmptyPeriodCoversNothing)
{
    for (const std::int32_t both : {at(0), at(12), at(24)})
        for (const std::int32_t time : {at(0), at(12) - 1, at(12), at(12) + 1, at(24) - 1})
            EXPECT_EQ(limit_at(time, 1000, {{both, both, 500}}), 1000) << both << ' ' << time;
}

TEST_F(Rate_Controller_Schedule, FirstOfOverlappingPeriodsDecides)
{
    const std::vector<Rate_Control_Entry> lunch_first = {
        {at(12), at(13), 0}, {at(8), at(18), 500}, {at(17), at(9), 250}};
    EXPECT_EQ(limit_at(at(12, 30), 1000, lunch_first), 0);
    EXPECT_EQ(limit_at(at(11), 1000, lunch_first), 500);
    EXPECT_EQ(limit_at(at(17, 30), 1000, lunch_first), 500);
    EXPECT_EQ(limit_at(at(8, 30), 1000, lunch_first), 500);
    EXPECT_EQ(limit_at(at(18), 1000, lunch_first), 250);
    EXPECT_EQ(limit_at(at(12, 30), 1000, {{at(8), at(18), 500}, {at(12), at(13), 0}}), 500);
}

TEST_F(Rate_Controller_Schedule, TimesOutsideTheDayAreHarmless)
{
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(limit_at(at(12), 1000, {{least, most, 500}}), 500);
    EXPECT_EQ(limit_at(at(12), 1000, {{most, least, 500}}), 1000);
    EXPECT_EQ(limit_at(at(12), 1000, {{-1, at(1), 500}}), 1000);
}

TEST_F(Rate_Controller_Schedule, SleeperIsFreedWithinASecondWhenAnUnlimitedPeriodBegins)
{
    for (const std::uint64_t bytes : {std::uint64_t{100'000}, huge}) {
        set_time(at(18) - 13);
        Rate_Controller controller(0, {{at(8), at(18), 1}});
        const nanoseconds before = clock_.time;
        controller.limit_rate(bytes);
        EXPECT_GE(clock_.time - before, 13s);
        EXPECT_LE(clock_.time - before, 14s);
        const nanoseconds freed = clock_.time;
        controller.limit_rate(huge);
        EXPECT_EQ(clock_.time, freed);
        set_time(at(9));
        clock_.time += 100ms;
        controller.limit_rate(2);
        EXPECT_LE(clock_.time - freed, 3s) << "what was owed is forgotten";
        EXPECT_GE(clock_.time - freed, 2s);
    }
}

TEST_F(Rate_Controller_Schedule, SleeperPaysTheRestAtTheLimitThatBegins)
{
    set_time(at(18) - 10);
    Rate_Controller controller(10'000, {{at(8), at(18), 100}});
    const nanoseconds before = clock_.time;
    controller.limit_rate(51'000);
    // 1000 bytes in ten seconds, then 50,000 in five.
    EXPECT_GE(clock_.time - before, 15s);
    EXPECT_LE(clock_.time - before, 16s);
}

TEST_F(Rate_Controller_Schedule, LowerLimitTakesEffectWithinASecondAndGrantsNoCreditOfTheHigherOne)
{
    for (const std::uint64_t before : {std::uint64_t{0}, std::uint64_t{1'000'000'000}}) {
        set_time(at(8) - 10);
        Rate_Controller controller(before, {{at(8), at(18), 1000}});
        const nanoseconds change = clock_.time + 10s;
        std::uint64_t late = 0;
        while (clock_.time < change + 20s) {
            clock_.time += 1ms;
            if (clock_.time >= change + 1s)
                late += 100;
            controller.limit_rate(100);
        }
        EXPECT_GE(late, 18'000);
        EXPECT_LE(late, 19'500) << "19 s at 1000 bytes/s";
    }
}

TEST_F(Rate_Controller_Schedule, ClockThatIsSetChangesTheLimitWithinASecond)
{
    set_time(at(12));
    Rate_Controller controller(0, {{at(8), at(18), 1000}});
    controller.limit_rate(1000);
    set_time(at(20));
    controller.limit_rate(5'000'000);
    const nanoseconds freed = clock_.time;
    controller.limit_rate(5'000'000);
    EXPECT_EQ(clock_.time, freed);
    set_time(at(12));
    clock_.time += 1s;
    controller.limit_rate(2000);
    EXPECT_GE(clock_.time, freed + 2s);
}

} // namespace
