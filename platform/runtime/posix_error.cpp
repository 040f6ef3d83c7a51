#include "platform/runtime/posix_error.h"

#include "platform/runtime/os_error.h"

POSIX_Error::POSIX_Error(int errnum, int text_only) : text_(os_error::text(errnum))
{
    if (text_only == 0)
        text_ += " (errno " + std::to_string(errnum) + ")";
}
