#pragma once

#include <string>
#include <vector>

/// What the program curl got.
struct Curl_Result
{
    int exit_code = -1; ///< curl's own
    int status = 0;     ///< of the last answer
    std::string head;   ///< of the last answer
    std::string body;

    /// The value of a header field, "" when there is none.
    std::string field(const std::string& name) const;
};

/// Runs curl with these arguments, which end with a URL.
/// @param input  on its standard input
Curl_Result curl(std::vector<std::string> arguments, const std::string& input = {});
