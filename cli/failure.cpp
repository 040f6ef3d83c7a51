#include "cli/failure.h"

#include "client_io/client_io.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <cerrno>

namespace cio
{

Exit_Code exit_code_of(int error_number, bool retriable)
{
    if (retriable)
        return exit_retriable;
    if (os_error::is_missing(error_number))
        return exit_not_found;
    return os_error::is_taken(error_number) ? exit_exists : exit_failed;
}

Failure target_failure(const Client_IO& io)
{
    // Copying and renaming onto what is there has this number on every system.
    const int number = io.errnum() == EEXIST ? os_error::file_exists : io.errnum();
    Failure failure{exit_code_of(number, io.retriable()), io.error()};
    if (failure.text.empty()) {
        failure.code = exit_failed;
        failure.text = "The target does not support this operation";
    }
    return failure;
}

Failure stream_failure(const Client_IO& io)
{
    Failure failure = target_failure(io);
    if (failure.code == exit_not_found || failure.code == exit_exists)
        failure.code = exit_failed;
    return failure;
}

Failure system_failure(const std::string& what, int error_number)
{
    return {exit_code_of(error_number, false), what + ": " + POSIX_Error(error_number, 1).str()};
}

} // namespace cio
