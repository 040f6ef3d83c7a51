#include "tests/support/this_system.h"

#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>
#include <utility>

#include <windows.h>
#include <winioctl.h>

namespace this_system
{

namespace
{

HANDLE open(const std::string& path, DWORD access)
{
    const HANDLE handle = CreateFileW(local_path(path).c_str(), access,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << path << ": " << GetLastError();
    return handle;
}

// It stands on a system whose answers it cannot always translate.
bool on_wine()
{
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

} // namespace

const Errors errors = {
    .below_a_file = ERROR_PATH_NOT_FOUND,
    // The way up to the first directory that is there ends at the file.
    .make_below_a_file = ERROR_ALREADY_EXISTS,
    .directory_not_empty = ERROR_DIR_NOT_EMPTY,
    .open_directory = ERROR_ACCESS_DENIED,
    .replace_directory = ERROR_ACCESS_DENIED,
    .name_too_long = on_wine() ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_NAME,
    .seek_before_start = ERROR_NEGATIVE_SEEK,
    .move_into_itself = ERROR_SHARING_VIOLATION,
};

std::size_t open_handles()
{
    // Each by itself, since Wine counts none. Handles are small multiples of 4.
    std::size_t count = 0;
    DWORD flags = 0;
    for (std::uintptr_t handle = 4; handle < 0x2000; handle += 4)
        count += GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) ? 1U : 0U;
    return count;
}

bool is_inherited(ACE_HANDLE handle)
{
    DWORD flags = 0;
    EXPECT_TRUE(GetHandleInformation(handle, &flags));
    return (flags & HANDLE_FLAG_INHERIT) != 0;
}

void set_modification_time(const std::string& path, std::int64_t seconds)
{
    // File times count 100 ns from 1601 on.
    const std::int64_t ticks = (seconds + 11'644'473'600) * 10'000'000;
    const FILETIME time = {static_cast<DWORD>(ticks & 0xFFFFFFFF), static_cast<DWORD>(ticks >> 32)};
    const HANDLE handle = open(path, FILE_WRITE_ATTRIBUTES);
    EXPECT_TRUE(SetFileTime(handle, nullptr, nullptr, &time)) << path;
    CloseHandle(handle);
}

void resize_with_hole(const std::string& path, std::uint64_t size)
{
    const HANDLE handle = open(path, GENERIC_WRITE);
    // Where the file system makes holes by itself it need not know how to be asked for them.
    DWORD returned = 0;
    DeviceIoControl(handle, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
    LARGE_INTEGER end = {};
    end.QuadPart = static_cast<std::int64_t>(size);
    EXPECT_TRUE(SetFilePointerEx(handle, end, nullptr, FILE_BEGIN) && SetEndOfFile(handle)) << path;
    CloseHandle(handle);
}

// A pipe that somebody listens to until the file is open.
struct Unwritable_File::State
{
    HANDLE listener = INVALID_HANDLE_VALUE;
};

Unwritable_File::Unwritable_File() : state_(std::make_unique<State>())
{
    static int count = 0;
    path_ = "\\\\.\\pipe\\client_io_test_" + std::to_string(GetCurrentProcessId()) + '_' +
            std::to_string(++count);
    state_->listener =
        CreateNamedPipeA(path_.c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 0, 0, 0, nullptr);
    EXPECT_NE(state_->listener, INVALID_HANDLE_VALUE) << GetLastError();
}

Unwritable_File::~Unwritable_File()
{
    take_no_more();
}

void Unwritable_File::take_no_more()
{
    if (state_->listener != INVALID_HANDLE_VALUE)
        CloseHandle(std::exchange(state_->listener, INVALID_HANDLE_VALUE));
}

int Unwritable_File::errnum()
{
    return ERROR_NO_DATA;
}

} // namespace this_system
