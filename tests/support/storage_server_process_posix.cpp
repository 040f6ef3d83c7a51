#include "tests/support/storage_server_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace
{

/// The first line, which tells the URL.
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

int wait_for(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

Storage_Server_Process::Storage_Server_Process(std::vector<std::string> arguments)
    : arguments_(std::move(arguments))
{
    start();
}

Storage_Server_Process::~Storage_Server_Process()
{
    kill();
}

std::string Storage_Server_Process::uri(const std::string& path, const std::string& scheme) const
{
    return scheme + "://127.0.0.1:" + std::to_string(port_) + path;
}

void Storage_Server_Process::kill()
{
    if (pid_ < 0)
        return;
    ::kill(pid_, SIGKILL);
    wait_for(pid_);
    pid_ = -1;
}

void Storage_Server_Process::start()
{
    std::vector<std::string> command = {CIO_PROGRAM,
                                        "serve",
                                        "http",
                                        "--root",
                                        root_.str(),
                                        "--listen",
                                        "127.0.0.1:" + std::to_string(port_)};
    command.insert(command.end(), arguments_.begin(), arguments_.end());
    std::vector<char*> pointers;
    for (std::string& argument : command)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    std::array<int, 2> out = {-1, -1};
    ASSERT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    // Connections of the test would stay open with the copies that the program has of them.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    const int error =
        ::posix_spawn(&pid_, CIO_PROGRAM, &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ASSERT_EQ(error, 0) << CIO_PROGRAM;

    const std::string line = read_line(out[0]);
    ::close(out[0]);
    const std::size_t colon = line.rfind(':');
    ASSERT_NE(colon, std::string::npos) << "the server did not start: " << line;
    port_ = static_cast<unsigned short>(std::atoi(line.c_str() + colon + 1));
    ASSERT_NE(port_, 0) << line;
}

int Storage_Server_Process::end()
{
    signal(SIGTERM);
    return wait();
}

void Storage_Server_Process::signal(int number) const
{
    ::kill(pid_, number);
}

int Storage_Server_Process::wait()
{
    const int code = wait_for(pid_);
    pid_ = -1;
    return code;
}
