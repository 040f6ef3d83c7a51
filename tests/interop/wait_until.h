#pragma once

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

/// Waits for what another process does; fails the test when that does not happen.
template <class Condition>
void wait_until(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            ADD_FAILURE() << "what was waited for does not happen";
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
