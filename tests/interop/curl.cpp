#include "tests/interop/curl.h"

#include "tests/support/run_program.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

namespace
{

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace

std::string Curl_Result::field(const std::string& name) const
{
    std::istringstream lines(head);
    for (std::string line; std::getline(lines, line);)
        if (lower(line).starts_with(lower(name) + ": "))
            return line.substr(name.size() + 2, line.size() - name.size() - 3); // less its CR
    return {};
}

Curl_Result curl(std::vector<std::string> arguments, const std::string& input)
{
    // Without -q it would read a configuration of the user's.
    arguments.insert(arguments.begin(), {"curl", "-q", "-s", "-i", "--path-as-is"});
    const Program_Result run = run_program(arguments, input);
    Curl_Result result;
    result.exit_code = run.code;
    result.body = run.out;
    // Heads of interim answers come before that of the last one.
    while (result.body.starts_with("HTTP/1.")) {
        const std::size_t end = result.body.find("\r\n\r\n");
        if (end == std::string::npos)
            break;
        result.head = result.body.substr(0, end + 2);
        result.status = std::atoi(result.head.c_str() + 9);
        result.body.erase(0, end + 4);
        if (result.status >= 200)
            break;
    }
    return result;
}
