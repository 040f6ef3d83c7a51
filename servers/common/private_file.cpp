#include "servers/common/private_file.h"

#include "platform/runtime/posix_error.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t largest = 1U << 20U;

/// @return bytes at the end, -1 on failure (errno)
ssize_t read_all(int file, std::string& text)
{
    char block[16384];
    ssize_t n = 0;
    text.clear();
    do {
        n = ::read(file, block, sizeof block);
        if (n > 0)
            text.append(block, static_cast<std::size_t>(n));
    } while ((n > 0 && text.size() <= largest) || (n < 0 && errno == EINTR));
    return n;
}

} // namespace

bool read_private_file(const std::string& path, std::string& text, std::string& error)
{
    struct stat status = {};
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || ::fstat(file, &status) != 0) {
        error = path + ": " + POSIX_Error(errno, 1).str();
    } else if (S_ISREG(status.st_mode) && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        error = path + " is open to other users than its owner (chmod 600 helps)";
    } else if (read_all(file, text) < 0) {
        error = path + ": " + POSIX_Error(errno, 1).str();
    } else if (text.size() > largest) {
        error = path + " is larger than 1 MiB";
    } else {
        error.clear();
    }
    if (file >= 0)
        ::close(file);
    return error.empty();
}
