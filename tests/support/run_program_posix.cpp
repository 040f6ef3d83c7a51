#include "tests/support/run_program.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::minutes longest_run{5};

struct Pipe
{
    Pipe() { EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe()
    {
        close(0);
        close(1);
    }
    void close(int end)
    {
        if (ends[end] >= 0)
            ::close(ends[end]);
        ends[end] = -1;
    }

    int ends[2] = {-1, -1};
};

int start(const std::vector<std::string>& arguments, const std::string& directory, const Pipe& in,
          const Pipe& out, const Pipe& err, pid_t& pid)
{
    std::vector<std::string> strings = arguments;
    std::vector<char*> argv;
    for (std::string& string : strings)
        argv.push_back(string.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.ends[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out.ends[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err.ends[1], 2);
    if (!directory.empty())
        posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    // The test ignores the signal of a broken pipe, the program shall not.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    const int number = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return number;
}

/// Feeds the program and takes what it writes, until it writes no more. @return false: too late
bool talk(Pipe& in, Pipe& out, Pipe& err, const std::string& input, Program_Result& result)
{
    const auto end = std::chrono::steady_clock::now() + longest_run;
    std::size_t fed = 0;
    char block[65536];
    while (out.ends[0] >= 0 || err.ends[0] >= 0) {
        if (fed == input.size())
            in.close(1);
        struct pollfd ends[] = {
            {in.ends[1], POLLOUT, 0}, {out.ends[0], POLLIN, 0}, {err.ends[0], POLLIN, 0}};
        if (std::chrono::steady_clock::now() > end)
            return false;
        if (::poll(ends, 3, 1000) <= 0)
            continue;
        if (ends[0].revents != 0) {
            const ssize_t n = ::write(in.ends[1], input.data() + fed, input.size() - fed);
            if (n > 0)
                fed += static_cast<std::size_t>(n);
            else if (n < 0 && errno != EAGAIN && errno != EINTR)
                fed = input.size(); // it does not want the rest
        }
        for (Pipe* const pipe : {&out, &err}) {
            if (ends[pipe == &out ? 1 : 2].revents == 0)
                continue;
            const ssize_t n = ::read(pipe->ends[0], block, sizeof block);
            if (n > 0)
                (pipe == &out ? result.out : result.err).append(block, static_cast<std::size_t>(n));
            else
                pipe->close(0);
        }
    }
    return true;
}

} // namespace

Program_Result run_program(const std::vector<std::string>& arguments, const std::string& input,
                           const std::string& directory)
{
    Program_Result result;
    Pipe in;
    Pipe out;
    Pipe err;
    ::fcntl(in.ends[1], F_SETFL, O_NONBLOCK);
    ::signal(SIGPIPE, SIG_IGN);
    pid_t pid = -1;
    if (const int number = start(arguments, directory, in, out, err, pid); number != 0) {
        ADD_FAILURE() << arguments.at(0) << " cannot be started: " << std::strerror(number);
        return result;
    }
    in.close(0);
    out.close(1);
    err.close(1);
    if (!talk(in, out, err, input, result)) {
        ADD_FAILURE() << arguments.at(0) << " does not end";
        ::kill(pid, SIGKILL);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        result.code = WEXITSTATUS(status);
    return result;
}
