#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

/// Bytes of a tree's files, and how many they may be. Space is claimed before it is used, so that
/// several who fill it at once do not exceed it together.
class Storage_Quota
{
public:
    /// @param limit  0 = none; then nothing is counted
    explicit Storage_Quota(std::uint64_t limit) : limit_(limit) {}

    bool is_limited() const { return limit_ != 0; }
    std::uint64_t used() const { return used_; }

    /// What is there already, be it more than the limit.
    void count(std::uint64_t bytes) { used_ += bytes; }

    [[nodiscard]] bool claim(std::uint64_t bytes)
    {
        if (!is_limited() || bytes == 0)
            return true;
        std::uint64_t used = used_;
        do
            if (used > limit_ || bytes > limit_ - used)
                return false;
        while (!used_.compare_exchange_weak(used, used + bytes));
        return true;
    }

    void release(std::uint64_t bytes)
    {
        if (is_limited())
            // Not below nothing: others may have changed the tree since it was counted.
            for (std::uint64_t used = used_;
                 !used_.compare_exchange_weak(used, used - std::min(used, bytes));) {
            }
    }

private:
    const std::uint64_t limit_;
    std::atomic<std::uint64_t> used_ = 0;
};
