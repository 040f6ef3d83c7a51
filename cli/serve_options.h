#pragma once

#include <array>
#include <map>
#include <string>

namespace cio
{

/// One of the options of `serve`.
struct Serve_Option
{
    const char* name;
    const char* type; ///< what its value is called; NULL: it has none
    const char* help;
};

extern const std::array<Serve_Option, 21> serve_options;

/// What the command line said, by name.
using Serve_Options = std::map<std::string, std::string>;

/// Reads a number of an option. Throws Usage_Error when it is none from @p least to @p most.
[[nodiscard]] unsigned long long number_option(const Serve_Options& options, const char* name,
                                               unsigned long long fallback,
                                               unsigned long long least, unsigned long long most);

/// Splits "ADDR:PORT" or "[ADDR]:PORT". Throws Usage_Error.
void parse_listen(const std::string& text, std::string& address, unsigned short& port);

} // namespace cio
