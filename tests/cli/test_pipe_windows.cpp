#include "tests/cli/test_pipe.h"

#include <cstdlib>

#include <windows.h>

Test_Pipe::Test_Pipe()
{
    constexpr DWORD capacity = 1 << 20;
    if (!CreatePipe(&read_end_, &write_end_, nullptr, capacity))
        std::abort();
}

Test_Pipe::~Test_Pipe()
{
    CloseHandle(read_end_);
    CloseHandle(write_end_);
}

std::string Test_Pipe::take()
{
    std::string text;
    for (DWORD size = 0; PeekNamedPipe(read_end_, nullptr, 0, nullptr, &size, nullptr) && size > 0;)
    {
        std::string block(size, '\0');
        if (!ReadFile(read_end_, block.data(), size, &size, nullptr))
            break;
        text.append(block, 0, size);
    }
    return text;
}
