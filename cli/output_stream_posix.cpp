#include "cli/output_stream.h"

#include <unistd.h>

namespace cio
{

struct Output_Stream::Terminal
{};

Output_Stream::Output_Stream(ACE_HANDLE handle)
    : handle_(handle), terminal_(::isatty(handle) != 0 ? std::make_unique<Terminal>() : nullptr)
{}

Output_Stream::~Output_Stream() = default;

std::int64_t Output_Stream::write(const char* data, std::size_t size) const
{
    return ::write(handle_, data, size);
}

} // namespace cio
