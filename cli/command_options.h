#pragma once

#include "cli/command.h"
#include "cli/option_table.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace cio
{

/// Everything that a command line can say.
struct Parsed
{
    const Command* command = nullptr;
    std::vector<std::string> arguments;
    Option_Sources options;
    Serve_Options server;
    Image_Flags image;
    unsigned jobs = 4;
    bool json = false;
    bool quiet = false;
    bool debug = false;
    bool recursive = false;
    bool long_form = false;
    bool overwrite = false;
    bool resume = false;
    bool summarize = false;
};

// The parser gives a meaning to some values of its own ("[a,b]", "{}", "++", names of commands),
// but file names may be anything. Values therefore go through it behind this character.
constexpr char guard = '\x01';

/// A text that may quote guarded values, as the user wrote them.
[[nodiscard]] std::string without_guards(std::string text);

/// Hands a value over as it was written on the command line.
CLI::Option* add_values(CLI::App& app, const std::string& name, const std::string& help,
                        const std::function<void(std::string)>& take);

/// Adds the options that a command knows.
/// @param options  bits of Command_Option
void add_command_options(CLI::App& app, unsigned options, Parsed& parsed);

} // namespace cio
