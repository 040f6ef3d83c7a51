#include "cli/local_path.h"

#include "platform/runtime/native_path.h"

#include <windows.h>

namespace cio
{

std::string local_spelling(const std::string& name)
{
    std::wstring wide;
    if (!utf8_to_wide(name, wide) || wide.empty())
        return name;
    const int length = static_cast<int>(wide.size());
    std::wstring capitals(wide.size(), L'\0');
    // Without further flags these are the rules of file systems.
    const int mapped = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, wide.data(), length,
                                     capitals.data(), length, nullptr, nullptr, 0);
    return mapped == length ? wide_to_utf8(capitals) : name;
}

} // namespace cio
