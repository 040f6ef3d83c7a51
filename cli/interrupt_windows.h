#pragma once

#include <windows.h>

namespace cio::interrupt
{

/// While it lives, a first request to end the program cuts short what its thread waits for, as a
/// signal does elsewhere: a read or write then fails with ERROR_OPERATION_ABORTED. For the Windows
/// sources only.
class Interruptible_Call
{
public:
    Interruptible_Call();
    ~Interruptible_Call();
    Interruptible_Call(const Interruptible_Call&) = delete;
    Interruptible_Call& operator=(const Interruptible_Call&) = delete;

private:
    HANDLE thread_;
};

} // namespace cio::interrupt
