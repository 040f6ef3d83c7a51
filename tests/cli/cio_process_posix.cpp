#include "tests/cli/cio_process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <linux/capability.h>

namespace
{

void close_end(int& end)
{
    if (end >= 0)
        ::close(end);
    end = -1;
}

[[noreturn]] void become_cio(std::vector<char*>& argv, const Cio_Settings& settings)
{
    if (!settings.directory.empty() && ::chdir(settings.directory.c_str()) != 0)
        ::_exit(125);
    for (const auto& [name, value] : settings.environment)
        ::setenv(name.c_str(), value.c_str(), 1);
    if (settings.powerless && ::geteuid() == 0)
        for (const unsigned long power : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH})
            if (::prctl(PR_CAPBSET_DROP, power, 0, 0, 0) != 0)
                ::_exit(124);
    // A test that is killed must not leave a transfer behind that fills the disk.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int signal_number : {SIGPIPE, SIGXFSZ})
        ::signal(signal_number, SIG_DFL);
    ::execv(CIO_PROGRAM, argv.data());
    ::_exit(126);
}

} // namespace

Cio_Process::Cio_Process(const std::vector<std::string>& arguments, const Cio_Settings& settings)
{
    std::vector<std::string> strings{CIO_PROGRAM};
    strings.insert(strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& string : strings)
        argv.push_back(string.data());
    argv.push_back(nullptr);

    int in[2];
    int out[2];
    int err[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        std::abort();
    ::signal(SIGPIPE, SIG_IGN);
    pid_ = ::fork();
    if (pid_ == 0) {
        int out_end = out[1];
        if (!settings.read_only_output.empty())
            out_end = ::open(settings.read_only_output.c_str(), O_RDONLY);
        ::dup2(in[0], 0);
        ::dup2(out_end, 1);
        ::dup2(err[1], 2);
        become_cio(argv, settings);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    in_ = in[1];
    out_ = out[0];
    err_ = err[0];
}

Cio_Process::~Cio_Process()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    close_end(in_);
    close_end(out_);
    close_end(err_);
}

void Cio_Process::write(const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(in_, data.data() + done, data.size() - done);
        if (n <= 0)
            break;
        done += static_cast<std::size_t>(n);
    }
}

void Cio_Process::close_input()
{
    close_end(in_);
}

bool Cio_Process::wait_for_output(const std::string& text)
{
    char byte = 0;
    while (result_.out.find(text) == std::string::npos || result_.out.back() != '\n') {
        if (::read(out_, &byte, 1) != 1)
            return false;
        result_.out += byte;
    }
    return true;
}

bool Cio_Process::read_output(std::size_t size)
{
    char block[65536];
    while (size > 0) {
        const ssize_t n = ::read(out_, block, std::min(size, sizeof block));
        if (n <= 0)
            return false;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

void Cio_Process::wait_until_output_waits(int size)
{
    int waiting = 0;
    while (::ioctl(out_, FIONREAD, &waiting) == 0 && waiting < size)
        ::sched_yield();
}

void Cio_Process::close_output()
{
    close_end(out_);
}

void Cio_Process::ask_to_end()
{
    ::kill(pid_, SIGINT);
}

Cio_Result Cio_Process::wait()
{
    char block[65536];
    while (out_ >= 0 || err_ >= 0) {
        struct pollfd ends[] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        if (::poll(ends, 2, -1) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < 2; ++i) {
            if (ends[i].revents == 0)
                continue;
            int& end = i == 0 ? out_ : err_;
            const ssize_t n = ::read(end, block, sizeof block);
            if (n > 0)
                (i == 0 ? result_.out : result_.err).append(block, static_cast<std::size_t>(n));
            else
                close_end(end);
        }
    }
    result_.code = wait_for_end();
    return result_;
}

int Cio_Process::wait_for_end()
{
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Cio_Result run_cio(const std::vector<std::string>& arguments, const Cio_Settings& settings)
{
    Cio_Process process(arguments, settings);
    process.write(settings.input);
    process.close_input();
    return process.wait();
}
