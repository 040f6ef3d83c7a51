#include "tests/cli/cli_test.h"

#include "platform/runtime/native_path.h"

#include <windows.h>

#include <sddl.h>

namespace fs = std::filesystem;

namespace
{

// Gives a file this access list, in the system's notation.
void set_access(const fs::path& file, const wchar_t* list)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(list, SDDL_REVISION_1,
                                                                     &descriptor, nullptr));
    EXPECT_TRUE(SetFileSecurityW(file.c_str(), DACL_SECURITY_INFORMATION, descriptor));
    LocalFree(descriptor);
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
    set_access(at(name), L"D:P(A;;FA;;;BA)(A;;FA;;;OW)"); // administrators and the owner
}

void Cli_Test::make_public(const std::string& name) const
{
    set_access(at(name), L"D:P(A;;FA;;;WD)"); // everyone
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
