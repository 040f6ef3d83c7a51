#include "platform/runtime/file_system.h"

#include "platform/runtime/native_path.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/windows_status.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>
#include <ace/os_include/os_stdio.h>

namespace file_system
{

namespace
{

constexpr DWORD share_with_all = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

bool fail()
{
    ACE_OS::set_errno_to_last_error();
    return false;
}

/// A handle that is closed at the end of its block.
class Handle
{
public:
    explicit Handle(HANDLE handle) : handle_(handle) {}
    ~Handle()
    {
        const DWORD reason = GetLastError();
        if (*this)
            CloseHandle(handle_);
        SetLastError(reason);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return handle_; }

private:
    HANDLE handle_;
};

constexpr std::uint64_t join(DWORD high, DWORD low)
{
    return std::uint64_t{high} << 32U | low;
}

// File times count 100 ns from 1601 on.
std::int64_t nanoseconds(const FILETIME& time)
{
    constexpr std::int64_t epoch = 116'444'736'000'000'000;
    const auto ticks = static_cast<std::int64_t>(join(time.dwHighDateTime, time.dwLowDateTime));
    return (ticks - epoch) * 100;
}

// Permission bits as the C runtime makes them up: there is only the read-only attribute.
std::uint32_t mode_of(DWORD attributes, bool is_link)
{
    const std::uint32_t permissions = (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444U : 0666U;
    if (is_link)
        return 0xA000U | 0777U;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return 0x4000U | permissions | 0111U;
    return 0x8000U | permissions;
}

bool is_link_tag(DWORD tag)
{
    return tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT;
}

bool status_of_disk_file(HANDLE handle, bool follow, Status& status)
{
    BY_HANDLE_FILE_INFORMATION info = {};
    if (!GetFileInformationByHandle(handle, &info))
        return fail();
    bool is_link = false;
    if (!follow && (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        FILE_ATTRIBUTE_TAG_INFO tag = {};
        is_link = GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &tag, sizeof tag) &&
                  is_link_tag(tag.ReparseTag);
    }
    status = {mode_of(info.dwFileAttributes, is_link), join(info.nFileSizeHigh, info.nFileSizeLow),
              nanoseconds(info.ftLastWriteTime), 0, 0};
    // File systems that number no files, or not with 64 bits, give one of these to all of them.
    const std::uint64_t number = join(info.nFileIndexHigh, info.nFileIndexLow);
    if (number != 0 && number != ~std::uint64_t{0}) {
        status.device = info.dwVolumeSerialNumber;
        status.file = number;
    }
    return true;
}

// Some files cannot be opened, not even to look at them, but their directory knows them.
bool status_without_opening(const std::wstring& path, bool follow, Status& status)
{
    const DWORD reason = GetLastError();
    if (reason == ERROR_SHARING_VIOLATION || reason == ERROR_ACCESS_DENIED) {
        WIN32_FIND_DATAW entry = {};
        const HANDLE search = FindFirstFileW(path.c_str(), &entry);
        if (search != INVALID_HANDLE_VALUE) {
            FindClose(search);
            status = status_of(entry);
            // Of a link it does not know where it leads.
            if (!follow || !status.is_link())
                return true;
        }
    }
    status = {};
    ACE_OS::last_error(static_cast<int>(reason));
    return false;
}

DWORD access_of(int flags)
{
    // Without the right to write anywhere else, every write goes to the end, whoever else writes.
    const DWORD write = (flags & O_APPEND) != 0
                            ? (FILE_GENERIC_WRITE & ~static_cast<DWORD>(FILE_WRITE_DATA))
                            : static_cast<DWORD>(GENERIC_WRITE);
    if ((flags & O_RDWR) != 0)
        return GENERIC_READ | write;
    return (flags & O_WRONLY) != 0 ? write : static_cast<DWORD>(GENERIC_READ);
}

DWORD creation_of(int flags)
{
    if ((flags & O_CREAT) == 0)
        return (flags & O_TRUNC) != 0 ? TRUNCATE_EXISTING : OPEN_EXISTING;
    if ((flags & O_EXCL) != 0)
        return CREATE_NEW;
    return (flags & O_TRUNC) != 0 ? CREATE_ALWAYS : OPEN_ALWAYS;
}

} // namespace

Status status_of(const WIN32_FIND_DATAW& entry)
{
    // For links that field holds what kind of link it is.
    const bool is_link = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                         is_link_tag(entry.dwReserved0);
    return {mode_of(entry.dwFileAttributes, is_link), join(entry.nFileSizeHigh, entry.nFileSizeLow),
            nanoseconds(entry.ftLastWriteTime), 0, 0};
}

bool status(const char* path, bool follow, Status& status)
{
    status = {};
    std::wstring native;
    if (!to_native_path(path, native))
        return false;
    // Directories are opened with backup semantics only.
    const DWORD how = FILE_FLAG_BACKUP_SEMANTICS |
                      (follow ? 0 : static_cast<DWORD>(FILE_FLAG_OPEN_REPARSE_POINT));
    const Handle file(CreateFileW(native.c_str(), FILE_READ_ATTRIBUTES, share_with_all, nullptr,
                                  OPEN_EXISTING, how, nullptr));
    return file ? status_of_disk_file(file.get(), follow, status)
                : status_without_opening(native, follow, status);
}

bool status(ACE_HANDLE handle, Status& status)
{
    status = {};
    switch (GetFileType(handle)) {
    case FILE_TYPE_DISK:
        return status_of_disk_file(handle, true, status);
    case FILE_TYPE_PIPE:
        status.mode = 0x1000U | 0666U;
        return true;
    case FILE_TYPE_CHAR:
        status.mode = 0x2000U | 0666U;
        return true;
    default:
        ACE_OS::last_error(os_error::bad_handle);
        return false;
    }
}

ACE_HANDLE open(const char* path, int flags, int share)
{
    std::wstring native;
    if (!to_native_path(path, native))
        return ACE_INVALID_HANDLE;
    const auto open_to = [&](DWORD creation) {
        return CreateFileW(native.c_str(), access_of(flags), static_cast<DWORD>(share), nullptr,
                           creation, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    const DWORD creation = creation_of(flags);
    HANDLE handle = open_to(creation);
    // The system does not begin a hidden file again as one that is not hidden.
    if (handle == INVALID_HANDLE_VALUE && creation == CREATE_ALWAYS &&
        GetLastError() == ERROR_ACCESS_DENIED && (flags & O_APPEND) == 0)
        handle = open_to(TRUNCATE_EXISTING);
    if (handle == INVALID_HANDLE_VALUE)
        fail();
    return handle;
}

std::int64_t seek(ACE_HANDLE handle, std::int64_t offset, int whence)
{
    static_assert(SEEK_SET == FILE_BEGIN && SEEK_CUR == FILE_CURRENT && SEEK_END == FILE_END);
    LARGE_INTEGER distance = {};
    LARGE_INTEGER position = {};
    distance.QuadPart = offset;
    if (SetFilePointerEx(handle, distance, &position, static_cast<DWORD>(whence)))
        return position.QuadPart;
    fail();
    return -1;
}

bool truncate(const char* path, std::uint64_t size)
{
    std::wstring native;
    if (!to_native_path(path, native))
        return false;
    const Handle file(CreateFileW(native.c_str(), GENERIC_WRITE, share_with_all, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER end = {};
    end.QuadPart = static_cast<std::int64_t>(size);
    return (file && SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN) &&
            SetEndOfFile(file.get())) ||
           fail();
}

bool make_directory(const char* path, unsigned short /*mode*/)
{
    std::wstring native;
    return to_native_path(path, native) && (CreateDirectoryW(native.c_str(), nullptr) || fail());
}

void set_directory_permissions(const char* /*path*/, unsigned short /*mode*/) {}

bool remove(const char* path)
{
    std::wstring native;
    if (!to_native_path(path, native))
        return false;
    // A link to a directory is a directory here.
    const DWORD attributes = GetFileAttributesW(native.c_str());
    const bool is_directory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return (is_directory ? RemoveDirectoryW(native.c_str()) : DeleteFileW(native.c_str())) ||
           fail();
}

namespace
{

bool move(const char* src, const char* dst, bool replace)
{
    std::wstring from;
    std::wstring to;
    if (!to_native_path(src, from) || !to_native_path(dst, to))
        return false;
    // A directory takes the place of nothing; some systems would let it replace a file.
    const DWORD attributes = GetFileAttributesW(from.c_str());
    const bool is_directory =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (MoveFileExW(from.c_str(), to.c_str(),
                    replace && !is_directory ? static_cast<DWORD>(MOVEFILE_REPLACE_EXISTING) : 0))
        return true;
    fail();
    // Its number, 17, is that of "File exists" for callers of the interface.
    if (ACE_OS::last_error() == ERROR_NOT_SAME_DEVICE)
        ACE_OS::last_error(ERROR_NOT_SUPPORTED);
    return false;
}

} // namespace

bool rename(const char* src, const char* dst)
{
    return move(src, dst, true);
}

bool rename_new(const char* src, const char* dst)
{
    return move(src, dst, false);
}

bool real_path(const char* path, std::string& resolved)
{
    std::wstring native;
    if (!to_native_path(path, native))
        return false;
    const Handle file(CreateFileW(native.c_str(), 0, share_with_all, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    if (!file)
        return fail();
    std::wstring final_path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetFinalPathNameByHandleW(file.get(), final_path.data(),
                                                       static_cast<DWORD>(final_path.size()), 0);
        if (length == 0)
            return fail();
        const bool fits = length < final_path.size();
        final_path.resize(length);
        if (!fits)
            continue;
        resolved = from_native_path(final_path);
        return true;
    }
}

} // namespace file_system
