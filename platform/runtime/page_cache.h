#pragma once

#include <ace/Basic_Types.h>
#include <ace/os_include/os_fcntl.h>
#include <cstdint>

/// Hints to the system's page cache about a file. None of them waits for a disk; a hint that the
/// system does not take is ignored. They leave the system error number as it was.
namespace page_cache
{

/// The file is going to be read in sequence.
void expect_sequential(ACE_HANDLE handle);

/// The bytes are going to be read soon.
void fetch(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size);

/// The bytes were written and should go to the disk now.
void store(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size);

/// The bytes are not going to be used again. Those that wait for the disk stay.
void forget(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t size);

} // namespace page_cache
