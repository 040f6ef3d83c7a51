#pragma once

#include "platform/runtime/export.h"

#include <ace/Basic_Types.h>
#include <cstdint>
#include <string>

/// The local file system, as the whole project reaches it.
///
/// Paths are the system's bytes on POSIX and UTF-8 on Windows, where native_path.h says how they
/// are converted: names outside the code page and paths of any length work, and no name is taken
/// for another one. Sizes and offsets have 64 bits.
///
/// Every operation says false (or what it names) on failure and leaves the reason in
/// ACE_OS::last_error(): see os_error.h.
namespace file_system
{

/// Share argument for files that others may read, write and delete meanwhile (on Windows).
constexpr int share_all = 7;

/// What stands at a path.
struct CLIENT_IO_EXPORT Status
{
    std::uint32_t mode = 0;   ///< type and permission bits as POSIX writes them
    std::uint64_t size = 0;   ///< bytes
    std::int64_t mtime = 0;   ///< nanoseconds since 1970, in the file system's resolution
    std::uint64_t device = 0; ///< the file system,
    std::uint64_t file = 0;   ///< and the number of the file on it; both 0 where nobody can tell

    bool is_directory() const { return (mode & 0xF000U) == 0x4000U; }
    bool is_file() const { return (mode & 0xF000U) == 0x8000U; }
    bool is_link() const { return (mode & 0xF000U) == 0xA000U; }
    bool is_pipe() const { return (mode & 0xF000U) == 0x1000U; }
    /// Seconds since 1970, rounded down.
    std::int64_t mtime_seconds() const;
    bool is_same_file(const Status& other) const;
};

/// @param follow  what a symbolic link shows: true what it points at, false itself
[[nodiscard]] CLIENT_IO_EXPORT bool status(const char* path, bool follow, Status& status);
[[nodiscard]] CLIENT_IO_EXPORT bool status(ACE_HANDLE handle, Status& status);

/// Whether something stands at the path, a link that leads to something included.
[[nodiscard]] CLIENT_IO_EXPORT bool exists(const char* path);

/// Whether two paths lead to one file (through links too); false when one of them cannot be
/// examined.
[[nodiscard]] CLIENT_IO_EXPORT bool is_same_file(const char* first, const char* second);

/// Opens a file in binary mode; child processes do not inherit it.
/// @param flags  O_RDONLY, O_WRONLY or O_RDWR with O_CREAT, O_EXCL, O_TRUNC, O_APPEND
/// @param share  on Windows what others may do meanwhile: 1 read, 2 write, 4 delete, added up
/// @return ACE_INVALID_HANDLE on failure
[[nodiscard]] CLIENT_IO_EXPORT ACE_HANDLE open(const char* path, int flags, int share);

/// @param whence  SEEK_SET, SEEK_CUR or SEEK_END
/// @return the new position, -1 on failure
CLIENT_IO_EXPORT std::int64_t seek(ACE_HANDLE handle, std::int64_t offset, int whence);

/// Makes the file at @p path this long; new bytes are zero.
[[nodiscard]] CLIENT_IO_EXPORT bool truncate(const char* path, std::uint64_t size);

/// @param mode  permission bits, less the process's umask; unused on Windows
[[nodiscard]] CLIENT_IO_EXPORT bool make_directory(const char* path, unsigned short mode);

/// Gives a directory exactly these permission bits, also those that the umask held back when it was
/// made; a group that its entries inherit stays. Nothing happens where the file system or the
/// system has no such bits.
CLIENT_IO_EXPORT void set_directory_permissions(const char* path, unsigned short mode);

/// Removes a file, a link or an empty directory.
[[nodiscard]] CLIENT_IO_EXPORT bool remove(const char* path);

/// Renames a file or directory. A file that bears the new name is replaced in one step: at every
/// moment the name leads to the old file or to the new one.
[[nodiscard]] CLIENT_IO_EXPORT bool rename(const char* src, const char* dst);

/// Renames a file or directory unless the new name is taken (os_error::is_taken). Where the system
/// and file system can tell, two renames to one name cannot both succeed.
[[nodiscard]] CLIENT_IO_EXPORT bool rename_new(const char* src, const char* dst);

/// The one absolute path of what stands at @p path, without links.
[[nodiscard]] CLIENT_IO_EXPORT bool real_path(const char* path, std::string& resolved);

} // namespace file_system
