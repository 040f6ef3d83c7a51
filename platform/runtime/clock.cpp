#include "platform/runtime/clock.h"

#include <atomic>
#include <cstddef>
#include <new>
#include <thread>

namespace
{

class System_Clock : public Clock
{
public:
    Wall_Time now() const override { return std::chrono::system_clock::now(); }
    Steady_Time steady_now() const override { return std::chrono::steady_clock::now(); }

    void sleep(std::chrono::nanoseconds duration) override
    {
        if (duration.count() > 0)
            std::this_thread::sleep_for(duration);
    }
};

// Lives in storage of its own and is never destroyed, so that code that runs while the process
// ends still has a clock.
Clock& system_clock()
{
    alignas(System_Clock) static std::byte storage[sizeof(System_Clock)];
    static Clock* const clock = new (storage) System_Clock;
    return *clock;
}

std::atomic<Clock*> replacement{nullptr};

} // namespace

Clock::~Clock() = default;

Clock& Clock::current()
{
    Clock* const clock = replacement.load(std::memory_order_acquire);
    return clock != nullptr ? *clock : system_clock();
}

Clock* Clock::replace(Clock* clock)
{
    return replacement.exchange(clock, std::memory_order_acq_rel);
}
