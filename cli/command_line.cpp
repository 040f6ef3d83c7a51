#include "cli/command_line.h"

#include "cli/command.h"
#include "cli/environment.h"
#include "cli/interrupt.h"
#include "cli/nearest_name.h"
#include "cli/option_table.h"
#include "cli/standard_streams.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <CLI/CLI.hpp>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <array>
#include <charconv>

namespace cio
{
namespace
{

constexpr std::array commands = {
    &put_command,   &get_command,      &cat_command,    &ls_command,    &tree_command,
    &stat_command,  &du_command,       &cp_command,     &mv_command,    &rm_command,
    &mkdir_command, &truncate_command, &verify_command, &serve_command,
};

constexpr unsigned most_jobs = 64;

constexpr const char* about = "Stores files in backup targets of every kind, and brings them back.";

constexpr const char* exit_code_help =
    "Exit codes:\n"
    "  0 done   1 failed   2 usage   3 not found   4 exists already\n"
    "  5 failed, but repeating may help   6 some files failed   130 interrupted\n";

// The parser gives a meaning to some values of its own ("[a,b]", "{}", "++", names of commands),
// but file names may be anything. Values therefore go through it behind this character.
constexpr char guard = '\x01';

std::string unguarded(const std::string& value)
{
    return value.starts_with(guard) ? value.substr(1) : value;
}

/// For messages, which may quote several values.
std::string without_guards(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), guard), text.end());
    return text;
}

/// The arguments as the parser gets them, the last one first, as it wants them.
std::vector<std::string> guarded_arguments(const std::vector<std::string>& given)
{
    std::vector<std::string> arguments;
    bool only_values = false;
    for (const std::string& argument : given) {
        if (argument == "--" && !only_values) {
            only_values = true; // what follows is guarded, so the parser needs no mark
            continue;
        }
        const bool is_option = !only_values && argument.size() > 1 && argument[0] == '-';
        // The first argument that is no option is the command's name.
        const bool is_command =
            std::none_of(arguments.begin(), arguments.end(),
                         [](const std::string& before) { return before[0] != '-'; });
        // The parser would take the next argument for the value that is empty here.
        const bool is_empty = is_option && argument.starts_with("--") && argument.ends_with('=');
        if (is_empty) {
            arguments.push_back(argument.substr(0, argument.size() - 1));
            arguments.emplace_back(1, guard);
        } else {
            arguments.push_back(is_option || is_command ? argument : guard + argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

/// Everything that the options of a command line can say.
struct Parsed
{
    const Command* command = nullptr;
    std::vector<std::string> arguments;
    Option_Sources options;
    Serve_Options server;
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

class Help_Formatter : public CLI::Formatter
{
public:
    std::string make_usage(const CLI::App* app, std::string /*name*/) const override
    {
        for (const Command* command : commands)
            if (app->get_name() == command->name)
                return std::string("\nUsage: cio ") + command->name + " [OPTION...] " +
                       command->arguments + "\n";
        return "\nUsage: cio COMMAND [OPTION...] ARGUMENT...\n";
    }
    std::string make_positionals(const CLI::App* /*app*/) const override { return {}; }
};

/// Hands a value over as it was written on the command line.
CLI::Option* add_values(CLI::App& app, const std::string& name, const std::string& help,
                        const std::function<void(std::string)>& take)
{
    return app.add_option(name, CLI::callback_t([take](const CLI::results_t& values) {
                              for (const std::string& value : values)
                                  take(unguarded(value));
                              return true;
                          }),
                          help);
}

void read_jobs(const std::string& text, unsigned& jobs)
{
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, jobs);
    if (error != std::errc() || rest != end || jobs < 1 || jobs > most_jobs)
        throw CLI::ValidationError("--jobs", "'" + text + "' is no number from 1 to " +
                                                 std::to_string(most_jobs));
}

void add_transform_options(CLI::App& app, Transform_Flags& flags)
{
    struct Row
    {
        const char* name;
        const char* type;
        const char* help;
        std::optional<std::string> Transform_Flags::*value;
    };
    static constexpr Row rows[] = {
        {"--compress", "METHOD",
         "How files are compressed in the target: none, auto (by the suffixes .zst and .lzo), lzop "
         "or zstd",
         &Transform_Flags::compress},
        {"--level", "N", "Level of the compression (lzop: 1 to 9, zstd: up to 22; default 1)",
         &Transform_Flags::level},
        {"--encrypt", "CIPHER",
         "How files are encrypted in the target: OpenSSL's name of a cipher, such as aes-256-cbc",
         &Transform_Flags::encrypt},
        {"--key-file", "FILE",
         "Read the cipher's key and IV from lines key=HEX and iv=HEX, as openssl enc -P prints",
         &Transform_Flags::key_file},
        {"--limit", "RATE",
         "Most bytes per second as the target stores them (20M, 1.5M, 0 = unlimited), or a "
         "timetable such as 08:00-18:00=5M,else=0",
         &Transform_Flags::limit},
    };
    for (const Row& row : rows)
        add_values(app, row.name, row.help, [&flags, value = row.value](std::string text) {
            flags.*value = std::move(text);
        })->type_name(row.type);
}

void add_server_options(CLI::App& app, Serve_Options& options)
{
    for (const Serve_Option& row : serve_options) {
        const auto take = [&options, name = row.name](std::string value) {
            options[name] = std::move(value);
        };
        if (row.type == nullptr)
            app.add_flag_function(
                row.name, [take](std::int64_t) { take({}); }, row.help);
        else
            add_values(app, row.name, row.help, take)->type_name(row.type);
    }
}

void add_command_options(CLI::App& app, unsigned options, Parsed& parsed)
{
    if (options & takes_server) {
        add_server_options(app, parsed.server);
        return;
    }
    if (options & takes_recursive)
        app.add_flag("-r,--recursive", parsed.recursive, "Directories with all they hold");
    if (options & takes_recursive_upper)
        app.add_flag("-R,--recursive", parsed.recursive, "List the directories below as well");
    if (options & takes_long)
        app.add_flag("-l,--long", parsed.long_form, "Show type, size, time (UTC) and name");
    if (options & takes_summarize)
        app.add_flag("-s,--summarize", parsed.summarize, "Show the total only");
    if (options & takes_overwrite)
        app.add_flag("--overwrite", parsed.overwrite, "Replace existing files");
    if (options & takes_resume)
        app.add_flag("--resume", parsed.resume,
                     "Continue partial files, leave complete ones, repeat changed ones");
    if (options & takes_jobs)
        add_values(app, "-j,--jobs", "Files at once, each over its own connection (default 4)",
                   [&parsed](const std::string& value) { read_jobs(value, parsed.jobs); })
            ->type_name("N");
    if (options & takes_transforms)
        add_transform_options(app, parsed.options.flags);
    add_values(
        app, "-o,--option", "Set an option of the connection (see cio help options)",
        [&parsed](std::string value) { parsed.options.assignments.push_back(std::move(value)); })
        ->take_all()
        ->type_name("KEY=VALUE");
    add_values(app, "--options", "Read options of the connection from a JSON file",
               [&parsed](std::string value) { parsed.options.file = std::move(value); })
        ->type_name("FILE");
    app.add_flag("--json", parsed.json, "Write JSON objects, one a line, instead of text");
    app.add_flag("-q,--quiet", parsed.quiet, "Write no messages; the exit code tells the result");
    app.add_flag("--debug", parsed.debug, "Show the log of the library on standard error");
}

void build(CLI::App& app, Parsed& parsed)
{
    app.formatter(std::make_shared<Help_Formatter>());
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", std::string("cio ") + CIO_VERSION);
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.footer(std::string("\nURI names the target (file:///mnt/backup), PATH lies inside it.\n"
                           "\"cio COMMAND --help\" shows a command's options and an example.\n\n") +
               exit_code_help);
    for (const Command* command : commands) {
        CLI::App* sub = app.add_subcommand(command->name, command->summary);
        sub->footer(std::string("\nExample:\n  ") + command->example + "\n");
        add_values(*sub, "arguments", "",
                   [&parsed](std::string value) { parsed.arguments.push_back(std::move(value)); })
            ->expected(0, -1)
            ->allow_extra_args();
        add_command_options(*sub, command->options, parsed);
        sub->final_callback([&parsed, command] { parsed.command = command; });
    }
    CLI::App* help = app.add_subcommand("help", "Show help: cio help [COMMAND | options]");
    add_values(*help, "topic", "",
               [&parsed](std::string value) { parsed.arguments.push_back(std::move(value)); });
}

[[noreturn]] void refuse_arguments(const Command& command)
{
    throw Usage_Error(std::string("usage: cio ") + command.name + " [OPTION...] " +
                      command.arguments);
}

/// Says what is wrong with a command line that holds no known command.
[[noreturn]] void refuse_command(const std::vector<std::string>& arguments)
{
    const std::string given = arguments.empty() ? "" : arguments.front();
    if (given.empty() || given[0] == '-')
        throw Usage_Error(given.empty() ? "a command is missing (see cio --help)"
                                        : "unknown option '" + given + "' (see cio --help)");
    std::vector<std::string_view> names;
    names.reserve(commands.size());
    for (const Command* command : commands)
        names.emplace_back(command->name);
    throw Usage_Error("unknown command '" + given + "', did you mean '" +
                      std::string(nearest_name(given, names)) + "'?");
}

int show_help(const std::vector<std::string>& topics, Output& out)
{
    const std::string topic = topics.empty() ? "" : topics.front();
    // One of its own: a parser that has met a command shows that command's help only.
    Parsed unused;
    CLI::App app(about, "cio");
    build(app, unused);
    if (topic.empty()) {
        out.write(app.help());
    } else if (topic == "options") {
        out.write(option_help());
    } else {
        const auto known = [&topic](const Command* command) { return topic == command->name; };
        if (std::none_of(commands.begin(), commands.end(), known))
            throw Usage_Error("there is no command '" + topic + "'");
        out.write(app.get_subcommand(topic)->help());
    }
    out.flush();
    return out.failed() ? exit_failed : exit_done;
}

/// The library tells failures through its results; its log is for those who look for faults.
void set_log(bool debug)
{
    ACE_LOG_MSG->priority_mask(debug ? ~0UL : 0UL, ACE_Log_Msg::PROCESS);
}

int carry_out(const Parsed& parsed, Output& out, Output& messages)
{
    const Command& command = *parsed.command;
    if (parsed.arguments.size() < command.least_arguments ||
        parsed.arguments.size() > command.most_arguments)
        refuse_arguments(command);
    set_log(parsed.debug);
    interrupt::install();
    std::vector<std::string> warnings;
    const Client_IO_Base::Options options = read_options(parsed.options, &warnings);
    Reporter report(
        {command.name, parsed.quiet, parsed.json, (command.options & shows_transfer) != 0}, out,
        messages);
    for (const std::string& warning : warnings)
        report.warning(warning);
    Invocation invocation{parsed.arguments,
                          options,
                          parsed.recursive,
                          parsed.long_form,
                          parsed.overwrite,
                          parsed.resume,
                          parsed.summarize,
                          parsed.jobs,
                          parsed.server,
                          report,
                          out};
    try {
        command.run(invocation);
    } catch (const Usage_Error&) {
        throw;
    } catch (const std::exception& error) {
        report.error("", {exit_failed, error.what()});
    }
    out.flush();
    const int code = report.finish(interrupt::requested());
    if (!out.failed())
        return code;
    if (!os_error::is_reader_gone(out.error_number()) && !parsed.quiet)
        messages.write(std::string("cio: ") + command.name +
                       ": standard output: " + POSIX_Error(out.error_number(), 1).str() + "\n");
    return code == exit_done ? exit_failed : code;
}

int parse_and_run(const std::vector<std::string>& arguments, Output& out, Output& messages)
{
    Parsed parsed;
    CLI::App app(about, "cio");
    build(app, parsed);
    try {
        app.parse(guarded_arguments(arguments));
    } catch (const CLI::CallForHelp&) {
        const auto chosen = app.get_subcommands();
        return show_help(chosen.empty() ? std::vector<std::string>()
                                        : std::vector<std::string>{chosen.front()->get_name()},
                         out);
    } catch (const CLI::CallForVersion& version) {
        out.write(std::string(version.what()) + "\n");
        out.flush();
        return out.failed() ? exit_failed : exit_done;
    } catch (const CLI::ParseError& error) {
        const auto chosen = app.get_subcommands();
        if (chosen.empty())
            refuse_command(arguments);
        throw Usage_Error(without_guards(error.what()) + " (see cio " + chosen.front()->get_name() +
                          " --help)");
    }
    if (parsed.command == nullptr)
        return show_help(parsed.arguments, out);
    return carry_out(parsed, out, messages);
}

/// "cio: COMMAND: ", as far as the command line names a command.
std::string message_prefix(const std::vector<std::string>& arguments)
{
    for (const Command* command : commands)
        if (!arguments.empty() && arguments.front() == command->name)
            return std::string("cio: ") + command->name + ": ";
    return "cio: ";
}

} // namespace

int run(int argc, const char* const* argv) noexcept
{
    try {
        occupy_standard_streams();
        Output out(ACE_STDOUT);
        Output messages(ACE_STDERR);
        const std::vector<std::string> arguments = program_arguments(argc, argv);
        const std::string prefix = message_prefix(arguments);
        try {
            return parse_and_run(arguments, out, messages);
        } catch (const Usage_Error& error) {
            messages.write(messages.printable(prefix + error.what()) + "\n");
            return exit_usage;
        } catch (const std::exception& error) {
            messages.write(messages.printable(prefix + error.what()) + "\n");
            return exit_failed;
        }
    } catch (...) {
        return exit_failed;
    }
}

} // namespace cio
