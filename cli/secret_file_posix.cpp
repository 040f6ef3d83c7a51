#include "cli/secret_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cio
{

bool read_secret_file(const std::string& path, std::span<char> buffer, std::size_t& size,
                      bool& exposed)
{
    struct stat status = {};
    size = 0;
    exposed = false;
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    // A pipe (`--key-file <(...)`) has permissions that say nothing.
    if (::fstat(file, &status) == 0)
        exposed = S_ISREG(status.st_mode) && (status.st_mode & (S_IRGRP | S_IROTH)) != 0;
    ssize_t n = 0;
    do {
        n = ::read(file, buffer.data() + size, buffer.size() - size);
        size += n > 0 ? static_cast<std::size_t>(n) : 0;
    } while (n > 0 && size < buffer.size());
    const int reason = errno;
    (void)::close(file);
    errno = reason;
    return n >= 0;
}

} // namespace cio
