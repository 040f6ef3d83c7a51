#pragma once

#include "tests/support/run_program.h"

/// Runs the lzop program to its end (exit code 2: warnings).
inline Program_Result run_lzop_tool(std::vector<std::string> arguments, const std::string& input)
{
    arguments.insert(arguments.begin(), "lzop");
    return run_program(arguments, input);
}
