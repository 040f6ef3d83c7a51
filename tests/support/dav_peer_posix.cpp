#include "tests/support/dav_peer.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{

std::string read_line(int handle)
{
    std::string line;
    char c = 0;
    for (;;) {
        const ssize_t n = ::read(handle, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || c == '\n')
            return line;
        line += c;
    }
}

} // namespace

Dav_Peer::Dav_Peer(const std::string& program, const std::string& user, const std::string& password)
{
    start(program, user, password);
}

Dav_Peer::~Dav_Peer()
{
    ::close(in_);
    while (pid_ > 0 && ::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::string Dav_Peer::uri(bool tls, const std::string& path) const
{
    return (tls ? tls_uri_ : uri_) + path;
}

void Dav_Peer::start(const std::string& program, const std::string& user,
                     const std::string& password)
{
    std::string script = INTEROP_SCRIPTS "/" + program + "_dav.sh";
    std::string folder = directory_.str();
    std::array<char*, 3> arguments = {script.data(), folder.data(), nullptr};
    std::string name = "DAV_USER=" + user;
    std::string secret = "DAV_PASSWORD=" + password;
    std::vector<char*> environment = {name.data(), secret.data()};
    for (char** variable = environ; *variable != nullptr; ++variable)
        environment.push_back(*variable);
    environment.push_back(nullptr);

    std::array<int, 2> in = {-1, -1};
    std::array<int, 2> out = {-1, -1};
    ASSERT_EQ(::pipe2(in.data(), O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    // Connections of the test would stay open with the copies that the program has of them.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    const int error = ::posix_spawn(&pid_, script.c_str(), &actions, nullptr, arguments.data(),
                                    environment.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    in_ = in[1];
    // The script waits for its server, and says why when that does not start.
    const std::string line = error == 0 ? read_line(out[0]) : std::string();
    ::close(out[0]);
    const std::size_t blank = line.find(' ');
    ASSERT_NE(blank, std::string::npos) << script << " did not start";
    uri_ = line.substr(0, blank);
    tls_uri_ = line.substr(blank + 1);
}
