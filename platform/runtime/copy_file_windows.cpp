#include "platform/runtime/copy_file.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/native_path.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/path.h"
#include "platform/runtime/posix_error.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <atomic>
#include <new>

#include <windows.h>

namespace
{

bool fail(int reason)
{
    ACE_OS::last_error(reason);
    return false;
}

// A read-only file can neither be removed nor, on some systems, renamed.
void remove_copy(const std::wstring& temporary)
{
    SetFileAttributesW(temporary.c_str(), FILE_ATTRIBUTE_NORMAL);
    DeleteFileW(temporary.c_str());
}

// Copies the file under a name that nobody uses beside `dst`.
bool copy_beside(const std::wstring& source, const char* dst, std::string& path,
                 std::wstring& temporary)
{
    static std::atomic<unsigned> counter{0};
    constexpr int attempts = 100;
    std::string target = dst;
    std::string directory;
    std::replace(target.begin(), target.end(), '/', '\\');
    if (dirname_string(target, directory, '\\') && directory.back() != '\\')
        directory += '\\';
    for (int i = 0; i < attempts; ++i) {
        // On a share other machines have processes of the same number.
        LARGE_INTEGER ticks = {};
        QueryPerformanceCounter(&ticks);
        path = directory + ".client_io-copy-" + std::to_string(GetCurrentProcessId()) + "-" +
               std::to_string(ticks.QuadPart) + "-" +
               std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
        if (!to_native_path(path.c_str(), temporary))
            return false;
        if (CopyFileExW(source.c_str(), temporary.c_str(), nullptr, nullptr, nullptr,
                        COPY_FILE_FAIL_IF_EXISTS | COPY_FILE_ALLOW_DECRYPTED_DESTINATION))
            return true;
        const auto reason = static_cast<int>(GetLastError());
        if (!os_error::is_taken(reason)) {
            remove_copy(temporary);
            return fail(reason);
        }
    }
    return fail(os_error::file_exists);
}

// The whole copy; nothing is left behind by one that fails.
bool copy(const char* src, const char* dst, bool replace)
{
    std::wstring source;
    std::wstring temporary;
    std::string path;
    file_system::Status status;
    if (!to_native_path(src, source) || !file_system::status(src, true, status))
        return false;
    if (!status.is_file())
        return fail(os_error::is_a_directory);
    // Known early, so that a large file is not copied in vain.
    if (file_system::status(dst, true, status) && status.is_directory())
        return fail(os_error::access_denied);
    if (!copy_beside(source, dst, path, temporary))
        return false;
    if (replace ? file_system::rename(path.c_str(), dst)
                : file_system::rename_new(path.c_str(), dst))
        return true;
    const int reason = ACE_OS::last_error();
    remove_copy(temporary);
    return fail(reason);
}

bool checked_copy(const char* src, const char* dst, bool replace)
{
    if (src == nullptr || dst == nullptr || *src == '\0' || *dst == '\0')
        return fail(os_error::invalid_argument);
    try {
        return copy(src, dst, replace);
    } catch (const std::bad_alloc&) {
        return fail(os_error::out_of_memory);
    }
}

} // namespace

bool copy_file(const char* src, const char* dst, int /*share*/, std::string* error, bool replace)
{
    if (checked_copy(src, dst, replace))
        return true;
    if (error != nullptr)
        *error = POSIX_Error(ACE_OS::last_error(), 1).str();
    return false;
}
