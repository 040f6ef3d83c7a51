#include "platform/runtime/native_path.h"
#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>

#include <windows.h>

std::string os_error::text(int number)
{
    const int reason = ACE_OS::last_error();
    wchar_t buffer[512] = L"";
    // One line, without what would be filled in from arguments.
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                      FORMAT_MESSAGE_MAX_WIDTH_MASK,
                                  nullptr, static_cast<DWORD>(number), 0, buffer,
                                  static_cast<DWORD>(std::size(buffer)), nullptr);
    while (length > 0 && buffer[length - 1] <= L' ')
        --length;
    ACE_OS::last_error(reason);
    return length > 0 ? wide_to_utf8({buffer, length}) : "Unknown error " + std::to_string(number);
}
