#pragma once

#include <ace/Basic_Types.h>
#include <cstdint>

namespace cio
{

enum class File_Kind
{
    missing,
    file,
    directory,
    link, ///< a symbolic link, where links are not followed
    special,
};

/// What tells one state of a local file from another.
struct File_Stamp
{
    File_Kind kind = File_Kind::missing;
    std::uint64_t size = 0;
    std::int64_t mtime = 0; ///< nanoseconds since the epoch, in the system's resolution
    std::uint64_t device = 0;
    std::uint64_t file = 0; ///< number of the file on its device

    bool operator==(const File_Stamp&) const = default;

    std::int64_t mtime_seconds() const;
    /// Whether both are the same file, by whatever names.
    bool same_file(const File_Stamp& other) const;
};

/// @param follow  what a symbolic link shows: true what it points at, false itself
/// @return false on failure (ACE_OS::last_error()); a missing file is one (ENOENT)
[[nodiscard]] bool stamp_path(const char* path, bool follow, File_Stamp& stamp);
[[nodiscard]] bool stamp_handle(ACE_HANDLE handle, File_Stamp& stamp);

} // namespace cio
