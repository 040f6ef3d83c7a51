#include "cli/image_disk.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>
#include <algorithm>
#include <string_view>
#include <windows.h>
#include <winioctl.h>

namespace cio::image_disk
{
namespace
{

constexpr std::uint64_t largest_transfer = 1U << 30U;

bool fail()
{
    ACE_OS::set_errno_to_last_error();
    return false;
}

OVERLAPPED position(std::uint64_t offset)
{
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
    return place;
}

bool control(ACE_HANDLE handle, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
             DWORD& returned)
{
    return DeviceIoControl(handle, code, in, in_size, out, out_size, &returned, nullptr) != 0;
}

} // namespace

Kind kind_of(const char* path)
{
    // A device has no attributes that could be asked for.
    if (std::string_view(path).starts_with(R"(\\.\)"))
        return Kind::device;
    file_system::Status status;
    if (!file_system::status(path, true, status))
        return Kind::none;
    return status.is_file() ? Kind::file : Kind::other;
}

ACE_HANDLE open_for_writing(const char* path, Kind kind)
{
    const int how = kind == Kind::none ? O_CREAT | O_EXCL : 0;
    return file_system::open(path, O_WRONLY | how, file_system::share_all);
}

bool is_same_device(ACE_HANDLE /*device*/, const char* /*path*/)
{
    return false; // no file of a target is a device there
}

bool device_size(ACE_HANDLE device, std::uint64_t& size)
{
    GET_LENGTH_INFORMATION length = {};
    DWORD returned = 0;
    if (!control(device, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof length, returned))
        return fail();
    size = static_cast<std::uint64_t>(length.Length.QuadPart);
    return true;
}

std::optional<Extent> next_data(ACE_HANDLE handle, std::uint64_t offset, std::uint64_t end)
{
    const Extent all{offset, end - offset};
    FILE_ALLOCATED_RANGE_BUFFER asked = {};
    asked.FileOffset.QuadPart = static_cast<std::int64_t>(all.offset);
    asked.Length.QuadPart = static_cast<std::int64_t>(all.length);
    FILE_ALLOCATED_RANGE_BUFFER found = {};
    DWORD returned = 0;
    // Room for one range: that more would follow is no failure here.
    if (!control(handle, FSCTL_QUERY_ALLOCATED_RANGES, &asked, sizeof asked, &found, sizeof found,
                 returned) &&
        GetLastError() != ERROR_MORE_DATA)
        return all;
    if (returned < sizeof found)
        return std::nullopt;
    const std::uint64_t from =
        std::clamp(static_cast<std::uint64_t>(found.FileOffset.QuadPart), offset, end);
    const std::uint64_t to = std::clamp(
        static_cast<std::uint64_t>(found.FileOffset.QuadPart + found.Length.QuadPart), from, end);
    return from < to ? std::optional<Extent>({from, to - from}) : std::nullopt;
}

std::int64_t read_at(ACE_HANDLE handle, void* buffer, std::uint64_t size, std::uint64_t offset)
{
    std::uint64_t count = 0;
    while (count < size) {
        OVERLAPPED place = position(offset + count);
        DWORD got = 0;
        if (!ReadFile(handle, static_cast<char*>(buffer) + count,
                      static_cast<DWORD>(std::min(size - count, largest_transfer)), &got, &place))
        {
            if (GetLastError() == ERROR_HANDLE_EOF)
                break;
            fail();
            return -1;
        }
        if (got == 0)
            break;
        count += got;
    }
    return static_cast<std::int64_t>(count);
}

bool write_at(ACE_HANDLE handle, const void* data, std::uint64_t size, std::uint64_t offset)
{
    std::uint64_t count = 0;
    while (count < size) {
        OVERLAPPED place = position(offset + count);
        DWORD put = 0;
        if (!WriteFile(handle, static_cast<const char*>(data) + count,
                       static_cast<DWORD>(std::min(size - count, largest_transfer)), &put, &place))
            return fail();
        if (put == 0) {
            ACE_OS::last_error(os_error::write_fault);
            return false;
        }
        count += put;
    }
    return true;
}

bool set_file_size(ACE_HANDLE file, std::uint64_t size)
{
    DWORD returned = 0;
    // Where the file system has no sparse files, the holes are stored as zeros.
    (void)control(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, returned);
    LARGE_INTEGER end = {};
    end.QuadPart = static_cast<std::int64_t>(size);
    return (SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file)) || fail();
}

bool make_zero(ACE_HANDLE /*device*/, std::uint64_t /*offset*/, std::uint64_t /*length*/)
{
    return false;
}

bool sync(ACE_HANDLE handle)
{
    return FlushFileBuffers(handle) != 0 || fail();
}

void forget(ACE_HANDLE /*handle*/, std::uint64_t /*offset*/, std::uint64_t /*length*/) {}

void store(ACE_HANDLE /*handle*/, std::uint64_t /*offset*/, std::uint64_t /*length*/) {}

} // namespace cio::image_disk
