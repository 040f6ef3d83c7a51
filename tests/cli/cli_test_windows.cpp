#include "tests/cli/cli_test.h"

#include "platform/runtime/native_path.h"

#include <array>

#include <windows.h>

#include <aclapi.h>

namespace fs = std::filesystem;

namespace
{

// Gives a file one right and no others: that of somebody to do everything.
void allow_only(const fs::path& file, TRUSTEE_FORM form, void* who)
{
    EXPLICIT_ACCESSW access = {};
    access.grfAccessPermissions = FILE_ALL_ACCESS;
    access.grfAccessMode = SET_ACCESS;
    access.Trustee.TrusteeForm = form;
    access.Trustee.ptstrName = static_cast<LPWSTR>(who);
    PACL rights = nullptr;
    ASSERT_EQ(SetEntriesInAclW(1, &access, nullptr, &rights), DWORD{ERROR_SUCCESS});
    std::wstring name = file.native();
    EXPECT_EQ(SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                    nullptr, nullptr, rights, nullptr),
              DWORD{ERROR_SUCCESS});
    LocalFree(rights);
}

std::wstring wide(const std::string& text)
{
    std::wstring result;
    EXPECT_TRUE(utf8_to_wide(text, result)) << text;
    return result;
}

} // namespace

void Cli_Test::make_private(const std::string& name) const
{
    wchar_t me[] = L"CURRENT_USER";
    allow_only(at(name), TRUSTEE_IS_NAME, me);
}

void Cli_Test::make_public(const std::string& name) const
{
    alignas(SID) std::array<unsigned char, SECURITY_MAX_SID_SIZE> everyone;
    DWORD size = static_cast<DWORD>(everyone.size());
    ASSERT_TRUE(CreateWellKnownSid(WinWorldSid, nullptr, everyone.data(), &size));
    allow_only(at(name), TRUSTEE_IS_SID, everyone.data());
}

Environment_Variable::Environment_Variable(const char* name, const std::string& value) : name_(name)
{
    SetEnvironmentVariableW(wide(name).c_str(), wide(value).c_str());
}

Environment_Variable::~Environment_Variable()
{
    SetEnvironmentVariableW(wide(name_).c_str(), nullptr);
}

fs::path native_path(const std::string& path)
{
    std::wstring native;
    EXPECT_TRUE(to_native_path(path.c_str(), native)) << path;
    return native;
}
