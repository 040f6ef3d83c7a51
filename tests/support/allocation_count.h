#pragma once

#include <cstddef>

/// Counts what the whole program allocates with `new` from its construction on. A program that
/// links allocation_count.cpp has its operator new replaced.
class Allocation_Count
{
public:
    Allocation_Count();

    [[nodiscard]] std::size_t allocations() const;
    /// All bytes that were asked for, released or not.
    [[nodiscard]] std::size_t bytes() const;
    /// How many more allocations there were than releases.
    [[nodiscard]] std::size_t unreleased() const;

private:
    std::size_t allocations_before_;
    std::size_t bytes_before_;
    std::size_t releases_before_;
};

/// While it lives, every allocation of the program after the first @p allowed ones fails.
class Allocation_Failure
{
public:
    explicit Allocation_Failure(std::size_t allowed);
    ~Allocation_Failure();
    Allocation_Failure(const Allocation_Failure&) = delete;
    Allocation_Failure& operator=(const Allocation_Failure&) = delete;
};
