#include "platform/runtime/os_error.h"

#include <ace/OS_Errno.h>
#include <ace/OS_NS_string.h>

std::string os_error::text(int number)
{
    const ACE_Errno_Guard guard(errno);
    char buffer[256] = "";
    const char* const known = ACE_OS::strerror_r(number, buffer, sizeof buffer);
    return known != nullptr && *known != '\0' ? known : "Unknown error " + std::to_string(number);
}
