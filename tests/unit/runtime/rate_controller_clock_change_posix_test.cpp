#include "platform/runtime/rate_controller.h"
#include "tests/support/fake_clock.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using std::chrono::sys_days;

/// Central Europe with its rules spelt out, whatever the machine's zone and its database.
class Rate_Controller_Clock_Change : public testing::Test
{
protected:
    Rate_Controller_Clock_Change()
    {
        if (const char* const zone = std::getenv("TZ"))
            before_ = zone;
        ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        ::tzset();
    }
    ~Rate_Controller_Clock_Change() override
    {
        if (before_)
            ::setenv("TZ", before_->c_str(), 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

    /// Lets one controller see a transfer at the start of every minute from @p begin (UTC) on.
    /// @return the minutes after @p begin in which @p period began and ended
    std::string minutes_of(const Rate_Control_Entry& period, Clock::Wall_Time begin, int minutes)
    {
        clock_.wall_start = begin - clock_.time;
        Rate_Controller controller(0, {period});
        std::string text;
        bool inside = false;
        for (int minute = 0; minute < minutes; ++minute) {
            const nanoseconds start = clock_.time;
            controller.limit_rate(11 * period.max_bytes_per_second);
            const bool slept = clock_.time != start;
            if (slept != inside)
                text += (slept ? " from " : " to ") + std::to_string(minute);
            inside = slept;
            clock_.time = start + 1min;
        }
        return text;
    }

    Fake_Clock clock_;

private:
    std::optional<std::string> before_;
};

constexpr std::int32_t at(std::int32_t hour, std::int32_t minute)
{
    return hour * 3600 + minute * 60;
}

// 01:00 UTC is 02:00 before and 03:00 behind the change.
TEST_F(Rate_Controller_Clock_Change, PeriodLosesTheHourThatIsLeftOutInSpring)
{
    const Clock::Wall_Time midnight = sys_days(2026y / 3 / 29);
    EXPECT_EQ(minutes_of({at(1, 30), at(3, 30), 1000}, midnight, 240), " from 30 to 90");
    EXPECT_EQ(minutes_of({at(22, 0), at(2, 30), 1000}, midnight, 240), " from 0 to 60");
    EXPECT_EQ(minutes_of({at(2, 30), at(4, 0), 1000}, midnight, 240), " from 60 to 120");
    EXPECT_EQ(minutes_of({at(2, 15), at(2, 45), 1000}, midnight, 240), "") << "never that time";
}

// 01:00 UTC is 03:00 before and 02:00 behind the change; 23:00 UTC is 01:00.
TEST_F(Rate_Controller_Clock_Change, PeriodIsMetTwiceOrIsLongerInTheHourThatIsRepeatedInAutumn)
{
    const Clock::Wall_Time one = sys_days(2026y / 10 / 25) - 1h;
    EXPECT_EQ(minutes_of({at(2, 15), at(2, 45), 1000}, one, 300),
              " from 75 to 105 from 135 to 165");
    EXPECT_EQ(minutes_of({at(1, 30), at(3, 30), 1000}, one, 300), " from 30 to 210");
    EXPECT_EQ(minutes_of({at(2, 0), at(3, 0), 1000}, one, 300), " from 60 to 180");
    EXPECT_EQ(minutes_of({at(22, 0), at(2, 30), 1000}, one, 300), " from 0 to 90 from 120 to 150");
}

TEST_F(Rate_Controller_Clock_Change, SleeperIsFreedByTheChangeOfTheClockItself)
{
    clock_.wall_start = sys_days(2026y / 3 / 29) + 59min + 50s - clock_.time;
    Rate_Controller controller(0, {{at(1, 0), at(2, 30), 1}});
    const nanoseconds before = clock_.time;
    controller.limit_rate(1'000'000);
    EXPECT_GE(clock_.time - before, 10s);
    EXPECT_LE(clock_.time - before, 11s);
}

} // namespace
