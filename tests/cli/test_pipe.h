#pragma once

#include <ace/Basic_Types.h>
#include <string>

/// A pipe for a stream of the program under test that holds a megabyte before a write waits.
class Test_Pipe
{
public:
    Test_Pipe();
    ~Test_Pipe();
    Test_Pipe(const Test_Pipe&) = delete;
    Test_Pipe& operator=(const Test_Pipe&) = delete;

    ACE_HANDLE write_end() const { return write_end_; }
    /// Reads whatever is there, without waiting.
    std::string take();

private:
    ACE_HANDLE read_end_ = ACE_INVALID_HANDLE;
    ACE_HANDLE write_end_ = ACE_INVALID_HANDLE;
};
