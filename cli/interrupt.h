#pragma once

#include <ace/Basic_Types.h>
#include <cstdint>
#include <optional>
#include <span>

/// Ctrl-C and SIGTERM; on Windows Ctrl-C, Ctrl-Break and the closing of the console. The first one
/// asks the program to end cleanly, the second one ends it.
namespace cio::interrupt
{

/// Takes over the signals. Called once, before any thread is started.
void install();

/// Whether the program was asked to end. Work stops between two blocks of data.
[[nodiscard]] bool requested();

/// Waits until @p handle can be read (or has ended) and reads what there is.
/// @return bytes read, 0 at the end, -1 on failure (ACE_OS::last_error()); nothing when the program
///         was asked to end first
[[nodiscard]] std::optional<std::int64_t> read_input(ACE_HANDLE handle, std::span<char> buffer);

} // namespace cio::interrupt
