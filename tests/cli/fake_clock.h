#pragma once

#include "platform/runtime/clock.h"

#include <functional>

/// A clock that a test moves. In force while the object lives.
class Fake_Clock : public Clock
{
public:
    Fake_Clock() : before_(replace(this)) {}
    ~Fake_Clock() override { replace(before_); }

    Wall_Time now() const override { return {}; }
    Steady_Time steady_now() const override
    {
        if (on_look)
            on_look();
        return Steady_Time(time);
    }
    void sleep(std::chrono::nanoseconds duration) override { time += duration; }

    std::chrono::nanoseconds time{0};
    std::function<void()> on_look; ///< called whenever the time is read

private:
    Clock* before_;
};
