#pragma once

#include "platform/runtime/file_system.h"

#include <windows.h>

namespace file_system
{

/// An entry as its directory has it, itself where it is a link: for the Windows sources only. The
/// directory does not know the file's number.
Status status_of(const WIN32_FIND_DATAW& entry);

} // namespace file_system
