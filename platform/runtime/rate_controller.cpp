#include "platform/runtime/rate_controller.h"

#include <ace/OS_NS_time.h>
#include <algorithm>
#include <ctime>
#include <iterator>
#include <numeric>

namespace
{

using Seconds = std::chrono::duration<double>;
using std::chrono::nanoseconds;
using namespace std::chrono_literals;

/// How much of the time since the previous call pays for a transfer.
constexpr Seconds longest_transfer = 1s;
/// How much of what that leaves over is kept for the next ones.
constexpr Seconds most_credit = 50ms;
/// Debts that are paid off sooner are not worth a sleep, which takes longer than it is asked to.
constexpr Seconds least_sleep = 1ms;
/// Sleepers wake so often to see whether the limit has changed.
constexpr Seconds most_sleep = 500ms;
/// How long a limit is trusted before the schedule is asked again.
constexpr nanoseconds look_up_interval = 100ms;
/// Parts of a second's limit: what the window may hold when a transfer begins, and the most that
/// one transfer counts there.
constexpr double most_in_window = 1.0 / 4;
constexpr double most_at_once = 1.0 / 20;

std::int32_t time_of_day(Clock::Wall_Time now)
{
    const std::time_t seconds = Clock::Wall_Time::clock::to_time_t(now);
    std::tm local{};
    if (ACE_OS::localtime_r(&seconds, &local) == nullptr)
        return 0;
    // A leap second belongs to the minute that it ends.
    return local.tm_hour * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59);
}

bool covers(const Rate_Control_Entry& entry, std::int32_t time)
{
    if (entry.start_time <= entry.end_time)
        return entry.start_time <= time && time < entry.end_time;
    return entry.start_time <= time || time < entry.end_time;
}

} // namespace

Rate_Controller::Rate_Controller(std::uint64_t bytes_per_second,
                                 const std::vector<Rate_Control_Entry>& schedule)
    : default_limit_(bytes_per_second), schedule_(schedule)
{}

void Rate_Controller::limit_rate(std::uint64_t bytes)
{
    Clock& clock = Clock::current();
    pay(clock);
    charge(bytes);
    for (auto wait = time_to_wait(); wait > 0ns; wait = time_to_wait()) {
        clock.sleep(wait);
        pay(clock);
    }
}

/// Pays the debt off with the time that has passed, at the limit that was in force meanwhile.
void Rate_Controller::pay(const Clock& clock)
{
    const Clock::Steady_Time now = clock.steady_now();
    if (now < paid_until_)
        started_ = false; // another clock was put in force
    if (started_)
        debt_ -= static_cast<double>(limit_) * Seconds(now - paid_until_).count();
    paid_until_ = now;
    if (schedule_.empty()) {
        limit_ = default_limit_;
    } else if (!started_ || now - looked_up_ >= look_up_interval) {
        limit_ = limit_at(clock.now());
        looked_up_ = now;
    }
    started_ = true;
    window_.advance(now);
    if (limit_ == 0)
        debt_ = 0;
    debt_ = std::max(debt_, -static_cast<double>(limit_) * longest_transfer.count());
}

std::uint64_t Rate_Controller::limit_at(Clock::Wall_Time now) const
{
    const std::int32_t time = time_of_day(now);
    for (const Rate_Control_Entry& entry : schedule_)
        if (covers(entry, time))
            return entry.max_bytes_per_second;
    return default_limit_;
}

void Rate_Controller::charge(std::uint64_t bytes)
{
    if (limit_ == 0)
        return;
    const auto limit = static_cast<double>(limit_);
    const auto amount = static_cast<double>(bytes);
    debt_ = std::max(debt_ + amount, -limit * most_credit.count());
    window_.add(std::min(amount, limit * most_at_once));
}

nanoseconds Rate_Controller::time_to_wait() const
{
    if (limit_ == 0)
        return 0ns;
    const auto limit = static_cast<double>(limit_);
    const Seconds owed{debt_ / limit};
    nanoseconds wait = 0ns;
    if (owed >= least_sleep)
        wait = std::chrono::duration_cast<nanoseconds>(std::min(owed, most_sleep));
    if (window_.sum() > limit * most_in_window)
        wait = std::max<nanoseconds>(wait, window_.next_departure() - paid_until_);
    return wait;
}

void Rate_Controller::Window::advance(Clock::Steady_Time now)
{
    const auto newest = std::chrono::floor<Slots>(now);
    if (newest == newest_)
        return;
    const std::int64_t passed = (newest - newest_).count();
    newest_ = newest;
    if (passed < 0 || passed >= std::ssize(slots_)) {
        slots_.fill(0);
        sum_ = 0;
        return;
    }
    std::fill(std::shift_left(slots_.begin(), slots_.end(), passed), slots_.end(), 0.0);
    // Anew, so that no rounding error outlives its bytes.
    sum_ = std::accumulate(slots_.begin(), slots_.end(), 0.0);
}

void Rate_Controller::Window::add(double bytes)
{
    slots_.back() += bytes;
    sum_ += bytes;
}

Clock::Steady_Time Rate_Controller::Window::next_departure() const
{
    const auto oldest =
        std::find_if(slots_.begin(), slots_.end(), [](double bytes) { return bytes > 0; });
    return newest_ + Slots(1 + (oldest - slots_.begin()));
}
