#pragma once

#include <string>
#include <vector>

/// What a program that ran to its end left.
struct Program_Result
{
    int code = -1; ///< exit code; -1 when it could not be started or did not end by itself
    std::string out;
    std::string err;
};

/// Runs a program that is found through PATH. One that cannot be started, and one that does not
/// end within five minutes (it is killed), fails the test.
/// @param input      on its standard input
/// @param directory  to run in; "" = the test's
Program_Result run_program(const std::vector<std::string>& arguments, const std::string& input = {},
                           const std::string& directory = {});
