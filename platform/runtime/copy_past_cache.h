#pragma once

#include <cstddef>

/// Copies like memcpy, but leaves the processor's cache to others where the processor can: for
/// bytes that will hardly be read again.
void copy_past_cache(void* to, const void* from, std::size_t size);
