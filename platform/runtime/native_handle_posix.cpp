#include "platform/runtime/native_handle.h"

#include <ace/OS_NS_unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace native_handle
{

namespace
{

int descriptor(void* handle)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle));
}

/// Takes back a signal if it is pending.
void take_back(const sigset_t& signal)
{
    const std::timespec no_wait = {};
    while (sigtimedwait(&signal, nullptr, &no_wait) == -1 && errno == EINTR) {
    }
}

} // namespace

std::int64_t read(void* handle, void* buf, std::size_t size)
{
    ssize_t count = -1;
    do
        count = ACE_OS::read(descriptor(handle), buf, size);
    while (count == -1 && errno == EINTR);
    return count;
}

std::int64_t write(void* handle, const void* buf, std::size_t size)
{
    // SIGPIPE goes to the writing thread alone, so it is enough to hold it back from this one.
    sigset_t pipe_signal;
    sigset_t mask_before;
    sigset_t pending_before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &mask_before);
    sigpending(&pending_before);

    ssize_t count = -1;
    do
        count = ACE_OS::write(descriptor(handle), buf, size);
    while (count == -1 && errno == EINTR);

    const int reason = errno;
    // A pipe whose reader goes in the midst of a write raises the signal and reports what it took.
    const bool is_whole = count == static_cast<ssize_t>(size);
    if (!is_whole && sigismember(&pending_before, SIGPIPE) == 0)
        take_back(pipe_signal);
    pthread_sigmask(SIG_SETMASK, &mask_before, nullptr);
    errno = reason;
    return count;
}

} // namespace native_handle
