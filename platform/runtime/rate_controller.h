#pragma once

#include "platform/runtime/clock.h"
#include "platform/runtime/rate_control_entry.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <ratio>
#include <vector>

/// Holds a caller back so that what it transfers keeps to a limit.
///
/// A token bucket that pays afterwards: every byte is a debt that time pays off at the limit in
/// force, and a caller in debt sleeps. The time since the previous call counts for the transfer
/// that is reported, up to one second, because the transfer may have taken as long by itself. What
/// that leaves over is kept as credit for 50 ms at most, enough to make up for sleeps that last too
/// long and too little for a burst.
///
/// **How even.** Besides, the next transfer does not begin before the last 200 ms hold no more than
/// a quarter of what the limit allows in a second (a transfer above a twentieth counts there as a
/// twentieth). So with transfers of up to a twentieth no 200 ms see more than 1.5 times their
/// share; larger ones are paid for in full before the next.
///
/// **Which limit.** The first entry of the schedule that covers the local time of day decides, so
/// that special periods are written before the general ones that they overlap; without one it is
/// the default. An entry covers [start_time, end_time); with start_time behind end_time it goes on
/// past midnight; with both equal it covers nothing. The time of day is what a clock on the wall
/// shows: on the two days a year when that is changed a period is an hour longer or shorter, or is
/// met twice, or not at all. A change of limits takes effect within a second, also for who sleeps;
/// what is still owed then is paid off at the new limit, and forgotten when there is none.
///
/// One object serves one thread.
class Rate_Controller
{
public:
    /// @param bytes_per_second  limit outside all periods, 0 = unlimited
    Rate_Controller(std::uint64_t bytes_per_second,
                    const std::vector<Rate_Control_Entry>& schedule);

    /// Accounts for @p bytes that were just transferred and sleeps as long as the limit asks.
    void limit_rate(std::uint64_t bytes);

private:
    /// What went through in the last 200 ms, in slots of 10 ms.
    class Window
    {
    public:
        void advance(Clock::Steady_Time now);
        void add(double bytes);
        double sum() const { return sum_; }
        /// When the oldest bytes leave the window, which must not be empty.
        Clock::Steady_Time next_departure() const;

    private:
        using Slots = std::chrono::duration<std::int64_t, std::centi>;

        // Oldest first. The newest is still being filled; without it the others are 200 ms.
        std::array<double, 21> slots_{};
        std::chrono::time_point<std::chrono::steady_clock, Slots> newest_{}; ///< its beginning
        double sum_ = 0;
    };

    void pay(const Clock& clock);
    std::uint64_t limit_at(Clock::Wall_Time now) const;
    void charge(std::uint64_t bytes);
    std::chrono::nanoseconds time_to_wait() const;

    std::uint64_t default_limit_;
    std::vector<Rate_Control_Entry> schedule_;
    std::uint64_t limit_ = 0;        ///< in force when it was looked up last
    Clock::Steady_Time looked_up_{}; ///< when that was
    Clock::Steady_Time paid_until_{};
    bool started_ = false;
    double debt_ = 0; ///< bytes; negative: credit
    Window window_;
};
