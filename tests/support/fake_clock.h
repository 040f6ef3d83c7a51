#pragma once

#include "platform/runtime/clock.h"

#include <functional>

/// A clock that a test moves and that sleeps move. In force while the object lives.
class Fake_Clock : public Clock
{
public:
    Fake_Clock() : before_(replace(this)) {}
    Fake_Clock(const Fake_Clock&) = delete;
    Fake_Clock& operator=(const Fake_Clock&) = delete;
    ~Fake_Clock() override { replace(before_); }

    Wall_Time now() const override
    {
        return wall_start + std::chrono::duration_cast<Wall_Time::duration>(time);
    }
    Steady_Time steady_now() const override
    {
        if (on_look)
            on_look();
        return Steady_Time(time);
    }
    void sleep(std::chrono::nanoseconds duration) override
    {
        if (duration.count() > 0)
            time += duration;
        if (on_sleep)
            on_sleep(duration);
    }

    std::chrono::nanoseconds time{0};
    Wall_Time wall_start{};                                 ///< time of day when time was 0
    std::function<void()> on_look;                          ///< called before steady_now() answers
    std::function<void(std::chrono::nanoseconds)> on_sleep; ///< called when a sleep is over

private:
    Clock* before_;
};
