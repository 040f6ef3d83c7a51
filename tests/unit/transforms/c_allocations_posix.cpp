#include "tests/unit/transforms/c_allocations.h"

#include <atomic>
#include <cstddef>

namespace
{

std::atomic<std::uint64_t> counted{0};

} // namespace

#if !defined(__SANITIZE_ADDRESS__)

// The GNU C library's own names of its allocator.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);

void* malloc(std::size_t size)
{
    ++counted;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    ++counted;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size)
{
    ++counted;
    return __libc_realloc(block, size);
}
}

#endif

std::uint64_t c_allocations()
{
    return counted;
}
