#include "cli/environment.h"

#include "platform/runtime/native_path.h"

#include <memory>
#include <new>

#include <windows.h>

#include <shellapi.h>

namespace cio
{

// The narrow arguments and variables were converted to the code page, which lacks most characters.
std::vector<std::string> program_arguments(int /*argc*/, const char* const* /*argv*/)
{
    struct Free
    {
        void operator()(wchar_t** list) const { LocalFree(list); }
    };
    int count = 0;
    const std::unique_ptr<wchar_t*, Free> wide(CommandLineToArgvW(GetCommandLineW(), &count));
    if (wide == nullptr)
        throw std::bad_alloc();
    std::vector<std::string> arguments;
    for (int i = 1; i < count; ++i)
        arguments.push_back(wide_to_utf8(wide.get()[i]));
    return arguments;
}

std::string environment_variable(const char* name)
{
    std::wstring wide_name;
    if (!utf8_to_wide(name, wide_name))
        return {};
    std::wstring value(256, L'\0');
    for (;;) {
        const DWORD length = GetEnvironmentVariableW(wide_name.c_str(), value.data(),
                                                     static_cast<DWORD>(value.size()));
        const bool fits = length < value.size();
        value.resize(length);
        if (fits)
            break;
    }
    std::string text = wide_to_utf8(value);
    // It may be a secret.
    SecureZeroMemory(value.data(), value.size() * sizeof(wchar_t));
    return text;
}

std::string user_state_directory()
{
    return environment_variable("LOCALAPPDATA");
}

} // namespace cio
