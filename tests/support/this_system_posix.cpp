#include "tests/support/this_system.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace this_system
{

const Errors errors = {
    .below_a_file = ENOTDIR,
    .make_below_a_file = ENOTDIR,
    .directory_not_empty = ENOTEMPTY,
    .open_directory = EISDIR,
    .replace_directory = EISDIR,
    .name_too_long = ENAMETOOLONG,
    .seek_before_start = EINVAL,
    .move_into_itself = EINVAL,
};

std::size_t open_handles()
{
    const std::filesystem::directory_iterator handles("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(handles), end(handles)));
}

bool is_inherited(ACE_HANDLE handle)
{
    const int flags = ::fcntl(handle, F_GETFD);
    EXPECT_GE(flags, 0);
    return (flags & FD_CLOEXEC) == 0;
}

void set_modification_time(const std::string& path, std::int64_t seconds)
{
    const timespec times[] = {{seconds, 0}, {seconds, 0}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0) << path;
}

void resize_with_hole(const std::string& path, std::uint64_t size)
{
    EXPECT_EQ(::truncate(path.c_str(), static_cast<off_t>(size)), 0) << path;
}

struct Unwritable_File::State
{};

Unwritable_File::Unwritable_File() : path_("/dev/full") {}

Unwritable_File::~Unwritable_File() = default;

void Unwritable_File::take_no_more() {}

int Unwritable_File::errnum()
{
    return ENOSPC;
}

} // namespace this_system
