#include "cli/interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace cio::interrupt
{
namespace
{

std::atomic<bool> asked{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs it");

// A byte in this pipe wakes a wait for input: a flag alone would be lost when the signal comes
// between the look at the flag and the wait.
int wake[2] = {-1, -1};

std::atomic<int> first_signal{0};
std::atomic<std::int64_t> first_time{0}; // milliseconds

std::int64_t milliseconds()
{
    struct timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Some programs send their signal to a process and to its group: one request that arrives twice.
bool is_echo(int signal_number)
{
    constexpr std::int64_t echo_time = 500;
    return signal_number == first_signal.load() && milliseconds() - first_time.load() < echo_time;
}

void handle(int signal_number)
{
    const int saved = errno;
    if (!asked.exchange(true)) {
        first_signal.store(signal_number);
        first_time.store(milliseconds());
    } else if (!is_echo(signal_number)) {
        // It does what it does without this program's doing: end it.
        (void)::signal(signal_number, SIG_DFL);
        (void)::raise(signal_number);
    }
    [[maybe_unused]] const ssize_t written = ::write(wake[1], "", 1);
    errno = saved;
}

} // namespace

void install()
{
    if (::pipe(wake) != 0)
        wake[0] = wake[1] = -1;
    for (const int end : wake) {
        (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
        (void)::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    struct sigaction action = {};
    ::sigemptyset(&action.sa_mask);
    // A write to somebody who does not read has to come back.
    action.sa_flags = 0;
    action.sa_handler = handle;
    for (const int signal_number : {SIGINT, SIGTERM}) {
        // A shell starts background programs with the signal ignored, and that has to stay.
        struct sigaction before = {};
        if (::sigaction(signal_number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            (void)::sigaction(signal_number, &action, nullptr);
    }
    // A closed pipe on standard output shall be a failed write, not a silent end.
    (void)::signal(SIGPIPE, SIG_IGN);
    // So shall a write beyond the size that the user's limits leave to a file.
    (void)::signal(SIGXFSZ, SIG_IGN);
}

bool requested()
{
    return asked.load(std::memory_order_relaxed);
}

std::optional<std::int64_t> read_input(ACE_HANDLE handle, std::span<char> buffer)
{
    struct pollfd ends[] = {{handle, POLLIN, 0}, {wake[0], POLLIN, 0}};
    while (!requested()) {
        const int ready = ::poll(ends, 2, -1);
        // Where waiting fails, reading tells what is wrong.
        const bool can_read = ready < 0 ? errno != EINTR : ready > 0 && ends[0].revents != 0;
        if (!can_read || requested())
            continue;
        const ssize_t length = ::read(handle, buffer.data(), buffer.size());
        if (length >= 0 || errno != EINTR)
            return length;
    }
    return std::nullopt;
}

} // namespace cio::interrupt
