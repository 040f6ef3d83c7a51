#include "cli/interrupt.h"

#include <atomic>
#include <cerrno>
#include <csignal>
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

void handle(int signal_number)
{
    const int saved = errno;
    if (asked.exchange(true, std::memory_order_relaxed)) {
        // The second one does what it does without this program's doing: end it.
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
    action.sa_flags = SA_RESTART;
    action.sa_handler = handle;
    for (const int signal_number : {SIGINT, SIGTERM}) {
        // A shell starts background programs with the signal ignored, and that has to stay.
        struct sigaction before = {};
        if (::sigaction(signal_number, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            (void)::sigaction(signal_number, &action, nullptr);
    }
    // A closed pipe on standard output shall be a failed write, not a silent end.
    (void)::signal(SIGPIPE, SIG_IGN);
}

bool requested()
{
    return asked.load(std::memory_order_relaxed);
}

bool wait_for_input(ACE_HANDLE handle)
{
    struct pollfd ends[] = {{handle, POLLIN, 0}, {wake[0], POLLIN, 0}};
    while (!requested()) {
        const int ready = ::poll(ends, 2, -1);
        if (ready < 0 && errno != EINTR)
            return true; // let the read tell what is wrong
        if (ready > 0 && ends[0].revents != 0)
            return !requested();
    }
    return false;
}

} // namespace cio::interrupt
