#include "tests/support/allocation_count.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<std::size_t> all_allocations{0};
std::atomic<std::size_t> all_bytes{0};
std::atomic<std::size_t> all_releases{0};
std::atomic<std::size_t> fail_from{SIZE_MAX};

/// @return NULL when there is no memory, or may be none
void* allocate(std::size_t size) noexcept
{
    // The sanitizers' allocator ends the program over a size that no machine has.
    if (all_allocations >= fail_from || size > PTRDIFF_MAX)
        return nullptr;
    all_allocations += 1;
    all_bytes += size;
    return std::malloc(size > 0 ? size : 1);
}

void* allocate_or_throw(std::size_t size)
{
    void* const memory = allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void release(void* memory) noexcept
{
    all_releases += memory != nullptr ? 1 : 0;
    std::free(memory);
}

} // namespace

// All forms but the aligned ones: the address sanitizer brings each of them by itself, so that one
// that is missing here would not meet its counterpart.

void* operator new(std::size_t size)
{
    return allocate_or_throw(size);
}

void* operator new[](std::size_t size)
{
    return allocate_or_throw(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void operator delete(void* memory) noexcept
{
    release(memory);
}

void operator delete[](void* memory) noexcept
{
    release(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    release(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    release(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    release(memory);
}

Allocation_Count::Allocation_Count()
    : allocations_before_{all_allocations}, bytes_before_{all_bytes}, releases_before_{all_releases}
{}

std::size_t Allocation_Count::allocations() const
{
    return all_allocations - allocations_before_;
}

std::size_t Allocation_Count::bytes() const
{
    return all_bytes - bytes_before_;
}

std::size_t Allocation_Count::unreleased() const
{
    const std::size_t releases = all_releases - releases_before_;
    const std::size_t made = allocations();
    return made > releases ? made - releases : 0;
}

Allocation_Failure::Allocation_Failure(std::size_t allowed)
{
    fail_from = all_allocations + allowed;
}

Allocation_Failure::~Allocation_Failure()
{
    fail_from = SIZE_MAX;
}
