#pragma once

#include <ace/Basic_Types.h>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace cio
{

/// A stream of the process that takes bytes: a file, a pipe or a terminal. Bytes stay as they are,
/// except that a console of Windows is given the characters that they mean in UTF-8. One object
/// serves one thread at a time.
class Output_Stream
{
public:
    explicit Output_Stream(ACE_HANDLE handle);
    ~Output_Stream();
    Output_Stream(const Output_Stream&) = delete;
    Output_Stream& operator=(const Output_Stream&) = delete;

    bool is_terminal() const { return terminal_ != nullptr; }

    /// @return how many bytes were taken, -1 on failure (ACE_OS::last_error()), which is
    ///         os_error::interrupted when the program was asked to end meanwhile
    [[nodiscard]] std::int64_t write(const char* data, std::size_t size) const;

private:
    struct Terminal; // what the system's kind of terminal needs

    ACE_HANDLE handle_;
    std::unique_ptr<Terminal> terminal_; // NULL: it is none
};

} // namespace cio
