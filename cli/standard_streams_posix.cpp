#include "cli/standard_streams.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace cio
{

void occupy_standard_streams() noexcept
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (::fcntl(stream, F_GETFD) < 0 && errno == EBADF)
            // The lowest free number, which is this one. Opened the wrong way round, so that no
            // output counts as written and no input as ended.
            (void)::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace cio
