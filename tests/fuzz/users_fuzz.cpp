#include "servers/common/users_file.h"

#include <cstdio>
#include <cstdlib>

/// A users file that was read can be written, and reading that gives the same users.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<User> users;
    std::vector<User> again;
    std::string error;
    if (!parse_users(text, users, error)) {
        if (error.empty())
            std::abort();
        return 0;
    }
    std::string written;
    for (const User& user : users)
        written += to_text(user) + '\n';
    std::string rewritten;
    if (parse_users(written, again, error))
        for (const User& user : again)
            rewritten += to_text(user) + '\n';
    if (written != rewritten) {
        std::fprintf(stderr, "users change when written and read again: %s\n", error.c_str());
        std::abort();
    }
    return 0;
}
