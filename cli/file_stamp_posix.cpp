#include "cli/file_stamp.h"

#include <sys/stat.h>

namespace cio
{
namespace
{

constexpr std::int64_t second = 1'000'000'000;

File_Stamp to_stamp(const struct stat& status)
{
    File_Stamp stamp;
    if (S_ISREG(status.st_mode))
        stamp.kind = File_Kind::file;
    else if (S_ISDIR(status.st_mode))
        stamp.kind = File_Kind::directory;
    else if (S_ISLNK(status.st_mode))
        stamp.kind = File_Kind::link;
    else
        stamp.kind = File_Kind::special;
    stamp.size = static_cast<std::uint64_t>(status.st_size);
    stamp.mtime = status.st_mtim.tv_sec * second + status.st_mtim.tv_nsec;
    stamp.device = status.st_dev;
    stamp.file = status.st_ino;
    return stamp;
}

} // namespace

std::int64_t File_Stamp::mtime_seconds() const
{
    return mtime >= 0 ? mtime / second : -((-mtime + second - 1) / second);
}

bool File_Stamp::same_file(const File_Stamp& other) const
{
    return kind != File_Kind::missing && device == other.device && file == other.file;
}

bool stamp_path(const char* path, bool follow, File_Stamp& stamp)
{
    struct stat status = {};
    stamp = {};
    if ((follow ? ::stat(path, &status) : ::lstat(path, &status)) != 0)
        return false;
    stamp = to_stamp(status);
    return true;
}

bool stamp_handle(ACE_HANDLE handle, File_Stamp& stamp)
{
    struct stat status = {};
    stamp = {};
    if (::fstat(handle, &status) != 0)
        return false;
    stamp = to_stamp(status);
    return true;
}

} // namespace cio
