#include "platform/runtime/file_system.h"

namespace file_system
{

std::int64_t Status::mtime_seconds() const
{
    constexpr std::int64_t second = 1'000'000'000;
    return mtime >= 0 ? mtime / second : -((-mtime + second - 1) / second);
}

bool Status::is_same_file(const Status& other) const
{
    return (device != 0 || file != 0) && device == other.device && file == other.file;
}

bool exists(const char* path)
{
    Status found;
    return status(path, true, found);
}

bool is_same_file(const char* first, const char* second)
{
    Status one;
    Status two;
    return status(first, true, one) && status(second, true, two) && one.is_same_file(two);
}

} // namespace file_system
