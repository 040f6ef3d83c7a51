#pragma once

#include "cli/image.h"

#include <ace/Basic_Types.h>
#include <cstdint>
#include <optional>

/// What the systems do differently with disks, partitions and image files. Failures leave their
/// reason in ACE_OS::last_error().
namespace cio::image_disk
{

enum class Kind
{
    none,  ///< nothing is there, or it cannot be examined
    other, ///< neither of the following
    file,
    device, ///< a disk or partition
};

/// What stands at @p path, through links.
[[nodiscard]] Kind kind_of(const char* path);

/// Opens what stands at @p path, or a new file, for writing. A device that is mounted or otherwise
/// in use is refused where the system can tell.
[[nodiscard]] ACE_HANDLE open_for_writing(const char* path, Kind kind);

/// Whether a path leads to the device that is open.
[[nodiscard]] bool is_same_device(ACE_HANDLE device, const char* path);

/// Bytes of a device that is open.
[[nodiscard]] bool device_size(ACE_HANDLE device, std::uint64_t& size);

/// The next range at or behind @p offset that may hold data, up to @p end; nothing when only a hole
/// is left. Where the system does not tell holes, it is all that is left.
[[nodiscard]] std::optional<Extent> next_data(ACE_HANDLE handle, std::uint64_t offset,
                                              std::uint64_t end);

/// @return bytes read, fewer only at the end; -1 on failure
[[nodiscard]] std::int64_t read_at(ACE_HANDLE handle, void* buffer, std::uint64_t size,
                                   std::uint64_t offset);
[[nodiscard]] bool write_at(ACE_HANDLE handle, const void* data, std::uint64_t size,
                            std::uint64_t offset);

/// Makes a file so long; what is new is a hole where the file system has holes.
[[nodiscard]] bool set_file_size(ACE_HANDLE file, std::uint64_t size);

/// Makes a range of a device zero the quick way.
/// @return false when there is none, or it failed: write zeros then
[[nodiscard]] bool make_zero(ACE_HANDLE device, std::uint64_t offset, std::uint64_t length);

/// Waits until the disk has what was written.
[[nodiscard]] bool sync(ACE_HANDLE handle);

/// Hints to the page cache: the bytes are not going to be used again; they should go to the disk.
void forget(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t length);
void store(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t length);

} // namespace cio::image_disk
