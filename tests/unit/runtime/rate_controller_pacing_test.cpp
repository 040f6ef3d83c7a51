#include "platform/runtime/rate_controller.h"
#include "tests/support/fake_clock.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>

namespace
{

using namespace std::chrono_literals;
using std::chrono::nanoseconds;
using Seconds = std::chrono::duration<double>;

struct Transfer
{
    nanoseconds begin;
    nanoseconds end;
    std::uint64_t bytes;
};

/// A source that hands its bytes over as fast as it is let, after the fake clock.
class Rate_Controller_Pacing : public testing::Test
{
protected:
    Rate_Controller_Pacing()
    {
        const char* const given = std::getenv("CLIENT_IO_SEED");
        const auto seed = given != nullptr
                              ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                              : std::random_device()();
        std::cout << "CLIENT_IO_SEED=" << seed << '\n';
        random_.seed(seed);
        clock_.time = 12345678ns;
    }

    double uniform(double from, double to)
    {
        return std::uniform_real_distribution(from, to)(random_);
    }

    /// Sleeps last up to 3 ms longer than asked.
    void let_sleeps_last_too_long()
    {
        clock_.on_sleep = [this](nanoseconds) {
            clock_.time += nanoseconds(random_() % 3'000'001);
        };
    }

    /// One transfer that takes @p duration by itself, and the wait behind it.
    void transfer(Rate_Controller& controller, std::uint64_t bytes, Seconds duration)
    {
        const nanoseconds begin = clock_.time;
        clock_.time += std::chrono::duration_cast<nanoseconds>(duration);
        transfers_.push_back({begin, clock_.time, bytes});
        controller.limit_rate(bytes);
    }

    /// Transfers for @p period; @p bytes and @p duration are asked anew for each.
    template <class Bytes, class Duration>
    void saturate(Rate_Controller& controller, Seconds period, Bytes bytes, Duration duration)
    {
        const nanoseconds until = clock_.time + std::chrono::duration_cast<nanoseconds>(period);
        while (clock_.time < until) {
            const std::uint64_t n = bytes();
            transfer(controller, n, duration(n));
        }
    }

    /// The most that any 200 ms saw, both ends included, in which transfers happen at @p instant.
    std::uint64_t fullest_window(nanoseconds Transfer::*instant) const
    {
        std::uint64_t most = 0;
        std::uint64_t sum = 0;
        std::size_t first = 0;
        for (const Transfer& last : transfers_) {
            sum += last.bytes;
            for (; transfers_[first].*instant < last.*instant - 200ms; ++first)
                sum -= transfers_[first].bytes;
            most = std::max(most, sum);
        }
        return most;
    }
    void expect_even(std::uint64_t limit) const
    {
        const double most = 1.5 * 0.2 * static_cast<double>(limit);
        EXPECT_LE(static_cast<double>(fullest_window(&Transfer::begin)), most);
        EXPECT_LE(static_cast<double>(fullest_window(&Transfer::end)), most);
    }
    /// Bytes per second over everything, the wait behind the last transfer included.
    double average() const
    {
        double bytes = 0;
        for (const Transfer& each : transfers_)
            bytes += static_cast<double>(each.bytes);
        return bytes / Seconds(clock_.time - transfers_.front().begin).count();
    }

    Fake_Clock clock_;
    std::mt19937_64 random_;
    std::vector<Transfer> transfers_;
};

/// How long a transfer takes by itself, in parts of the time that the limit gives it.
struct Speed
{
    const char* name;
    double least;
    double most;
};
constexpr std::array speeds = {Speed{"at once", 0, 0}, Speed{"half the share", 0, 0.5},
                               Speed{"sometimes more than the share", 0, 1.2},
                               Speed{"hardly less than the share", 0.99, 0.99}};

TEST_F(Rate_Controller_Pacing, SaturatedSourceIsEvenAndKeepsToTheLimitInTheLongRun)
{
    for (const std::uint64_t limit : {20ULL, 1000ULL, 123'457ULL, 5'000'000ULL, 10'000'000'000ULL})
        for (const std::uint64_t parts : {20U, 21U, 33U, 50U, 1000U})
            for (const Speed& speed : speeds)
                for (const bool mixed : {false, true}) {
                    if (limit < parts)
                        continue;
                    SCOPED_TRACE(std::to_string(limit) + " bytes/s, transfers of " +
                                 (mixed ? "up to 1/" : "1/") + std::to_string(parts) +
                                 " that take " + speed.name);
                    transfers_.clear();
                    let_sleeps_last_too_long();
                    Rate_Controller controller(limit, {});
                    const std::uint64_t most = limit / parts;
                    saturate(
                        controller, 60s, [&] { return mixed ? 1 + random_() % most : most; },
                        [&](std::uint64_t n) {
                            return Seconds(static_cast<double>(n) / static_cast<double>(limit) *
                                           uniform(speed.least, speed.most));
                        });
                    expect_even(limit);
                    EXPECT_NEAR(average() / static_cast<double>(limit), 1, 0.01);
                }
}

TEST_F(Rate_Controller_Pacing, SmallTransfersAtAHighLimitAreEven)
{
    let_sleeps_last_too_long();
    Rate_Controller controller(10'000'000'000, {});
    saturate(
        controller, 2s, [] { return 65'536U; }, [](std::uint64_t) { return 1us; });
    expect_even(10'000'000'000);
    EXPECT_NEAR(average() / 1e10, 1, 0.01);
}

TEST_F(Rate_Controller_Pacing, StallsAndIdleTimesAreNotMadeUpForByABurst)
{
    constexpr std::uint64_t limit = 1'000'000;
    for (const std::uint64_t most : {50'000U, 49'000U, 20'000U, 1000U}) {
        SCOPED_TRACE(most);
        transfers_.clear();
        let_sleeps_last_too_long();
        Rate_Controller controller(limit, {});
        for (int round = 0; round < 20; ++round) {
            saturate(
                controller, Seconds(uniform(0, 2)), [&] { return most; },
                [&](std::uint64_t) {
                    return random_() % 50 == 0 ? Seconds(uniform(0, 1)) : Seconds(0);
                });
            clock_.time +=
                round % 2 == 0 ? nanoseconds(1min) : nanoseconds(random_() % 1'000'000'000);
        }
        expect_even(limit);
    }
}

TEST_F(Rate_Controller_Pacing, LargestTransfersAtBothEndsOfAWindowFullOfSmallOnesFit)
{
    constexpr std::uint64_t limit = 1'000'000;
    for (nanoseconds length = 100ms; length <= 210ms; length += 2ms) {
        Rate_Controller controller(limit, {});
        transfer(controller, 1, 0s);
        for (int round = 0; round < 10; ++round) {
            clock_.time += 1min + nanoseconds(random_() % 10'000'000);
            const nanoseconds start = clock_.time;
            transfer(controller, limit / 20, 0s);
            while (clock_.time < start + length)
                transfer(controller, 500, 0s);
            transfer(controller, limit / 20, 0s);
        }
    }
    expect_even(limit);
}

TEST_F(Rate_Controller_Pacing, AfterAnIdleMinuteHardlyMoreGoesThroughThanItsShare)
{
    constexpr std::uint64_t limit = 1'000'000;
    Rate_Controller controller(limit, {});
    transfer(controller, 1000, 0s);
    clock_.time += 1min;
    transfers_.clear();
    saturate(
        controller, 10s, [] { return 1000U; }, [](std::uint64_t) { return 0s; });
    const double share = 10 * limit;
    const double moved = average() * Seconds(clock_.time - transfers_.front().begin).count();
    EXPECT_GE(moved, share);
    EXPECT_LE(moved, share + 0.055 * limit);
}

TEST_F(Rate_Controller_Pacing, NoSleepIsLongWhenTransfersAreSmall)
{
    nanoseconds longest = 0ns;
    clock_.on_sleep = [&](nanoseconds asked) { longest = std::max(longest, asked); };
    Rate_Controller controller(1'000'000, {});
    saturate(
        controller, 10s, [] { return 1000U; }, [](std::uint64_t) { return 0s; });
    EXPECT_LE(longest, 2ms);
}

TEST_F(Rate_Controller_Pacing, LargeTransfersKeepToTheLimitInTheLongRun)
{
    for (const std::uint64_t limit : {1ULL, 3ULL, 19ULL, 1000ULL, 5'000'000ULL, 10'000'000'000ULL})
        for (const double seconds : {0.06, 0.13, 0.5, 0.99, 7.0})
            for (const Speed& speed : speeds) {
                // Of what takes longer than a second only the last second counts.
                if (seconds > 1 && speed.most > 0)
                    continue;
                SCOPED_TRACE(std::to_string(limit) + " bytes/s, transfers of " +
                             std::to_string(seconds) + " s that take " + speed.name);
                transfers_.clear();
                let_sleeps_last_too_long();
                Rate_Controller controller(limit, {});
                controller.limit_rate(1);
                const auto bytes = std::max<std::uint64_t>(
                    1, static_cast<std::uint64_t>(static_cast<double>(limit) * seconds));
                saturate(
                    controller, std::max(Seconds(1min), Seconds(300 * seconds)),
                    [&] { return bytes; },
                    [&](std::uint64_t n) {
                        return Seconds(static_cast<double>(n) / static_cast<double>(limit) *
                                       uniform(speed.least, speed.most));
                    });
                // The time that a large transfer takes beyond its share is hardly made up for.
                EXPECT_LE(average() / static_cast<double>(limit), 1.01);
                EXPECT_GE(average() / static_cast<double>(limit), speed.most > 1 ? 0.94 : 0.99);
            }
}

TEST_F(Rate_Controller_Pacing, SmallTransferBetweenLargeOnesDoesNotWaitForTheWindow)
{
    constexpr std::uint64_t limit = 1'000'000;
    Rate_Controller controller(limit, {});
    bool large = false;
    saturate(
        controller, 60s, [&] { return (large = !large) ? 262'144U : 1000U; },
        [](std::uint64_t n) { return Seconds(0.9 * static_cast<double>(n) / limit); });
    EXPECT_NEAR(average() / limit, 1, 0.01);
}

} // namespace
