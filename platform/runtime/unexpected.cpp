#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <ace/OS_Errno.h>
#include <string>

namespace
{

/// An expression in a text may take a remainder, "a % b", which is no directive.
std::string escape_remainders(const char* format)
{
    std::string escaped;
    for (const char* c = format; *c != '\0'; ++c) {
        escaped += *c;
        if (c[0] == '%' && c[1] == ' ')
            escaped += '%';
    }
    return escaped;
}

} // namespace

void log_unexpected(const char* format, const char* file, int line)
{
    const ACE_Errno_Guard guard(errno);
    ACE_Log_Msg* const log = ACE_Log_Msg::instance();
    log->conditional_set(file, line, -1, errno);
    log->log(LM_EMERGENCY, format);
}

void log_unexpected_values(const char* format, const char* left, const char* right,
                           const char* file, int line)
{
    const ACE_Errno_Guard guard(errno);
    ACE_Log_Msg* const log = ACE_Log_Msg::instance();
    log->conditional_set(file, line, -1, errno);
    log->log(LM_EMERGENCY, escape_remainders(format).c_str(), left, right);
}
