#pragma once

#include "cli/exit_code.h"

#include <stdexcept>
#include <string>

class Client_IO;

namespace cio
{

/// Why one step failed: the text for the user and the exit code that it stands for.
struct Failure
{
    Exit_Code code = exit_failed;
    std::string text;
};

/// A command line that cannot be carried out as it stands; ends the program with exit_usage.
class Usage_Error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The one place that decides which exit code a failure is.
[[nodiscard]] Exit_Code exit_code_of(int error_number, bool retriable);

/// The last failure of a connection, in the words of the layer that failed. Read it before the
/// next operation on @p io.
[[nodiscard]] Failure target_failure(const Client_IO& io);

/// The same for the file that is open. Such a file is there, so this is never "not found": a number
/// that says so was left by an operation before.
[[nodiscard]] Failure stream_failure(const Client_IO& io);

/// A failure of the local system: "WHAT: TEXT OF THE NUMBER".
[[nodiscard]] Failure system_failure(const std::string& what, int error_number);

} // namespace cio
