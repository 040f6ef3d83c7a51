#pragma once

#include <ace/Basic_Types.h>

/// Ctrl-C and SIGTERM. The first one asks the program to end cleanly, the second one ends it.
namespace cio::interrupt
{

/// Takes over the signals. Called once, before any thread is started.
void install();

/// Whether the program was asked to end. Work stops between two blocks of data.
[[nodiscard]] bool requested();

/// Waits until @p handle can be read (or has ended).
/// @return false when the program was asked to end first
[[nodiscard]] bool wait_for_input(ACE_HANDLE handle);

} // namespace cio::interrupt
