#include "client_io/rate_control_io.h"

#include <utility>

Rate_Control_IO::Rate_Control_IO(std::uint64_t bytes_per_second,
                                 const std::vector<Rate_Control_Entry>& schedule,
                                 std::unique_ptr<Client_IO_Base> io)
    : Pipe_IO(std::move(io)), controller_(bytes_per_second, schedule)
{}

Rate_Control_IO::~Rate_Control_IO() = default;

std::int64_t Rate_Control_IO::read(void* buf, std::uint64_t size)
{
    const std::int64_t n = Pipe_IO::read(buf, size);
    if (n > 0)
        controller_.limit_rate(static_cast<std::uint64_t>(n));
    return n;
}

bool Rate_Control_IO::write(const void* buf, std::uint64_t size)
{
    const bool done = Pipe_IO::write(buf, size);
    if (done && size != 0)
        controller_.limit_rate(size);
    return done;
}

bool Rate_Control_IO::read(const void*& data, std::uint64_t& size)
{
    const bool done = Pipe_IO::read(data, size);
    if (done && size != 0)
        controller_.limit_rate(size);
    return done;
}
