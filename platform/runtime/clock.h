#pragma once

#include "platform/runtime/export.h"

#include <chrono>

/// Where time is read and slept through, so that tests of waiting run without waiting.
class CLIENT_IO_EXPORT Clock
{
public:
    using Wall_Time = std::chrono::system_clock::time_point;
    using Steady_Time = std::chrono::steady_clock::time_point;

    virtual ~Clock();

    /// Time of day; may jump when the system's clock is set.
    virtual Wall_Time now() const = 0;
    /// Time that never goes back; only differences mean something.
    virtual Steady_Time steady_now() const = 0;
    /// Blocks the calling thread at least so long; returns at once for 0 or less.
    virtual void sleep(std::chrono::nanoseconds duration) = 0;

    /// The clock that is in force for the process: the system's unless replaced.
    static Clock& current();
    /// Puts @p clock in force (NULL: the system's). Not owned; it must outlive its use.
    /// @return the clock that was in force before, NULL for the system's
    static Clock* replace(Clock* clock);
};
