#include "cli/standard_streams.h"

#include <initializer_list>

#include <windows.h>

namespace cio
{

void occupy_standard_streams() noexcept
{
    // The number of a handle that was closed is given to the next file that is opened.
    for (const DWORD stream : {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE}) {
        DWORD flags = 0;
        if (!GetHandleInformation(GetStdHandle(stream), &flags))
            SetStdHandle(stream, nullptr);
    }
}

} // namespace cio
