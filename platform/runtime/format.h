#pragma once

#include <string>

/// Formats like printf into a string of any length. Numbers of 64 bits are passed with the
/// directives of <cinttypes>, so that a text is the same on every system.
#if defined(__MINGW32__)
__attribute__((format(gnu_printf, 1, 2)))
#elif defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
std::string
format_text(const char* format, ...);
