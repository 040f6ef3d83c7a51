#include "tests/unit/transforms/c_allocations.h"

#include <atomic>
#include <cstddef>

namespace
{

std::atomic<std::uint64_t> counted{0};

} // namespace

// The linker calls these instead of the C runtime's functions in everything that is linked into
// the program, the libraries of the codecs included (option --wrap). The C++ runtime is a DLL, but
// operator new is the tests' own.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size)
{
    ++counted;
    return __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size)
{
    ++counted;
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* block, std::size_t size)
{
    ++counted;
    return __real_realloc(block, size);
}
}

std::uint64_t c_allocations()
{
    return counted;
}
