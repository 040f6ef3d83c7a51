#include "cli/interrupt.h"

#include "cli/interrupt_windows.h"
#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>

namespace cio::interrupt
{
namespace
{

std::atomic<bool> asked{false};
std::atomic<bool> heard{false}; // by the handler, which may come after the call that it cut short

// The threads that may be waiting in a call of the system.
std::mutex mutex;
std::set<HANDLE>& waiting()
{
    static auto* const threads = new std::set<HANDLE>; // outlives every thread
    return *threads;
}

// A thread may be just before its call, where there is nothing to cancel yet, so this is repeated
// until those that were there have come back. The system's thread for the next Ctrl-C waits for
// this one, so it does not go on forever.
void cut_calls_short()
{
    constexpr unsigned most_rounds = 100;
    constexpr DWORD pause = 10; // milliseconds
    std::set<HANDLE> left;
    {
        const std::lock_guard lock(mutex);
        left = waiting();
    }
    for (unsigned round = 0; round < most_rounds; ++round) {
        {
            const std::lock_guard lock(mutex);
            std::erase_if(left, [](HANDLE thread) { return !waiting().contains(thread); });
            for (const HANDLE thread : left)
                CancelSynchronousIo(thread);
        }
        if (left.empty())
            return;
        Sleep(pause);
    }
}

// Runs on a thread of its own.
BOOL WINAPI handle(DWORD event)
{
    if (heard.exchange(true) && event <= CTRL_BREAK_EVENT)
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(STATUS_CONTROL_C_EXIT));
    asked = true;
    cut_calls_short();
    // The console closes: the process ends when this returns, or after some seconds.
    if (event > CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

} // namespace

Interruptible_Call::Interruptible_Call()
    : thread_(OpenThread(THREAD_TERMINATE, FALSE, GetCurrentThreadId()))
{
    if (thread_ == nullptr)
        return;
    const std::lock_guard lock(mutex);
    waiting().insert(thread_);
}

Interruptible_Call::~Interruptible_Call()
{
    if (thread_ == nullptr)
        return;
    const DWORD reason = GetLastError();
    {
        const std::lock_guard lock(mutex);
        waiting().erase(thread_);
    }
    CloseHandle(thread_);
    SetLastError(reason);
}

void install()
{
    // A program that was started with Ctrl-C switched off keeps it so.
    SetConsoleCtrlHandler(handle, TRUE);
}

bool requested()
{
    return asked.load(std::memory_order_relaxed);
}

std::optional<std::int64_t> read_input(ACE_HANDLE handle, std::span<char> buffer)
{
    const Interruptible_Call call;
    if (requested())
        return std::nullopt;
    DWORD length = 0;
    SetLastError(ERROR_SUCCESS);
    const bool done =
        ReadFile(handle, buffer.data(), static_cast<DWORD>(buffer.size()), &length, nullptr);
    const DWORD reason = GetLastError();
    // A console says so of Ctrl-C even where it calls the read done.
    if (reason == ERROR_OPERATION_ABORTED && length == 0)
        asked = true;
    if (requested())
        return std::nullopt;
    if (done)
        return length;
    if (reason == ERROR_BROKEN_PIPE || reason == ERROR_HANDLE_EOF)
        return 0; // whoever wrote is gone
    ACE_OS::last_error(static_cast<int>(reason));
    return -1;
}

} // namespace cio::interrupt
