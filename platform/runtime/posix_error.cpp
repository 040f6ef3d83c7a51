#include "platform/runtime/posix_error.h"

#include <ace/OS_Errno.h>
#include <ace/OS_NS_string.h>

POSIX_Error::POSIX_Error(int errnum, int text_only)
{
    const ACE_Errno_Guard guard(errno);
    char buffer[256] = "";
    const char* const text = ACE_OS::strerror_r(errnum, buffer, sizeof buffer);
    text_ = text != nullptr && *text != '\0' ? text : "Unknown error " + std::to_string(errnum);
    if (text_only == 0)
        text_ += " (errno " + std::to_string(errnum) + ")";
}
