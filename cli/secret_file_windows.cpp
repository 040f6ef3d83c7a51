#include "cli/secret_file.h"

#include "platform/runtime/file_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>
#include <array>
#include <memory>

#include <windows.h>

#include <aclapi.h>

namespace cio
{
namespace
{

// Whether a list of rights lets a group read. Of the entries about one group the first decides.
bool lets_read(PACL rights, PSID group)
{
    constexpr DWORD reading = FILE_READ_DATA | GENERIC_READ | GENERIC_ALL;
    for (DWORD i = 0; i < rights->AceCount; ++i) {
        void* entry = nullptr;
        if (!GetAce(rights, i, &entry))
            return false;
        const auto* header = static_cast<const ACE_HEADER*>(entry);
        // Entries of both kinds have the same form.
        auto* right = static_cast<ACCESS_ALLOWED_ACE*>(entry);
        const bool known =
            header->AceType == ACCESS_ALLOWED_ACE_TYPE || header->AceType == ACCESS_DENIED_ACE_TYPE;
        const bool concerns = known && (header->AceFlags & INHERIT_ONLY_ACE) == 0 &&
                              (right->Mask & reading) != 0 && EqualSid(&right->SidStart, group);
        if (concerns)
            return header->AceType == ACCESS_ALLOWED_ACE_TYPE;
    }
    return false;
}

bool is_exposed(HANDLE file)
{
    struct Free
    {
        void operator()(void* memory) const { LocalFree(memory); }
    };
    PACL rights = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(file, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &rights,
                        nullptr, &descriptor) != ERROR_SUCCESS)
        return false;
    const std::unique_ptr<void, Free> guard(descriptor);
    if (rights == nullptr)
        return true; // no list: everything is allowed
    for (const WELL_KNOWN_SID_TYPE type :
         {WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid}) {
        alignas(SID) std::array<unsigned char, SECURITY_MAX_SID_SIZE> group;
        DWORD size = static_cast<DWORD>(group.size());
        if (CreateWellKnownSid(type, nullptr, group.data(), &size) &&
            lets_read(rights, group.data()))
            return true;
    }
    return false;
}

} // namespace

bool read_secret_file(const std::string& path, std::span<char> buffer, std::size_t& size,
                      bool& exposed)
{
    size = 0;
    exposed = false;
    const HANDLE file = file_system::open(path.c_str(), O_RDONLY, file_system::share_all);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    exposed = GetFileType(file) == FILE_TYPE_DISK && is_exposed(file);
    DWORD length = 0;
    bool read = true;
    do {
        read = ReadFile(file, buffer.data() + size, static_cast<DWORD>(buffer.size() - size),
                        &length, nullptr);
        size += read ? length : 0;
    } while (read && length > 0 && size < buffer.size());
    const DWORD reason = GetLastError();
    CloseHandle(file);
    ACE_OS::last_error(static_cast<int>(reason));
    return read || reason == ERROR_BROKEN_PIPE;
}

} // namespace cio
