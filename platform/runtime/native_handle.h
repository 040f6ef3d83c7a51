#pragma once

#include <cstddef>
#include <cstdint>

/// The system's handle of a file or pipe in the form in which callers hand it over on every system,
/// a pointer: a HANDLE on Windows, the number of a file descriptor on POSIX.
///
/// Calls that a signal interrupts are repeated. A failure leaves its number in
/// ACE_OS::last_error().
namespace native_handle
{

/// @return bytes read, 0 at the end or when a pipe has no writer any more, -1 on failure
std::int64_t read(void* handle, void* buf, std::size_t size);

/// Raises no signal in the process when a pipe has no reader any more.
/// @return bytes written, perhaps fewer than @p size; -1 on failure
std::int64_t write(void* handle, const void* buf, std::size_t size);

} // namespace native_handle
