#include "tests/cli/test_pipe.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

Test_Pipe::Test_Pipe()
{
    constexpr int capacity = 1 << 20;
    int ends[2];
    if (::pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0 ||
        ::fcntl(ends[1], F_SETPIPE_SZ, capacity) < capacity)
        std::abort();
    read_end_ = ends[0];
    write_end_ = ends[1];
}

Test_Pipe::~Test_Pipe()
{
    ::close(read_end_);
    ::close(write_end_);
}

std::string Test_Pipe::take()
{
    std::string text;
    char block[65536];
    for (ssize_t n = 0; (n = ::read(read_end_, block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(n));
    return text;
}
