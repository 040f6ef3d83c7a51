#include "platform/runtime/native_handle.h"

#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>

#include <algorithm>

namespace native_handle
{

namespace
{

constexpr std::size_t most = 1U << 30U; // the system counts with 32 bits

} // namespace

std::int64_t read(void* handle, void* buf, std::size_t size)
{
    const ssize_t count = ACE_OS::read(handle, buf, std::min(size, most));
    return count == -1 && ACE_OS::last_error() == os_error::broken_pipe ? 0 : count;
}

std::int64_t write(void* handle, const void* buf, std::size_t size)
{
    return ACE_OS::write(handle, buf, std::min(size, most));
}

} // namespace native_handle
