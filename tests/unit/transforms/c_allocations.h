#pragma once

#include <cstdint>

/// Calls of the C library's allocator by the whole program since its start, those of the codecs'
/// libraries and of operator new included. Sanitized builds have an allocator of their own: there
/// it is always 0.
std::uint64_t c_allocations();
