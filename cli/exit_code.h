#pragma once

namespace cio
{

/// Exit codes of the program; scripts rely on the numbers.
enum Exit_Code : int
{
    exit_done = 0,
    exit_failed = 1,
    exit_usage = 2,
    exit_not_found = 3,
    exit_exists = 4,
    exit_retriable = 5, ///< failed, but repeating may help
    exit_partly = 6,    ///< some files failed, others did not
    exit_interrupted = 130,
};

} // namespace cio
