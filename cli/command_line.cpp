#include "cli/command_line.h"

#include "cli/command_options.h"
#include "cli/environment.h"
#include "cli/interrupt.h"
#include "cli/nearest_name.h"
#include "cli/standard_streams.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <array>

namespace cio
{
namespace
{

constexpr std::array commands = {
    &put_command,   &get_command,      &cat_command,    &ls_command,    &tree_command,
    &stat_command,  &du_command,       &cp_command,     &mv_command,    &rm_command,
    &mkdir_command, &truncate_command, &verify_command, &image_command, &serve_command,
};

constexpr const char* about = "Stores files in backup targets of every kind, and brings them back.";

constexpr const char* exit_code_help =
    "Exit codes:\n"
    "  0 done   1 failed   2 usage   3 not found   4 exists already\n"
    "  5 failed, but repeating may help   6 some files failed   130 interrupted\n";

/// The command of this name, or the group; NULL when there is none.
const Command* find_command(std::string_view name)
{
    for (const Command* command : commands) {
        if (name == command->name)
            return command;
        for (const Command* member : command->commands)
            if (name == member->name)
                return member;
    }
    return nullptr;
}

/// What a command line names; of a group's command the group alone when there is no such command.
const Command* find_command(const std::vector<std::string>& arguments)
{
    const Command* member =
        arguments.size() > 1 ? find_command(arguments[0] + ' ' + arguments[1]) : nullptr;
    return member != nullptr || arguments.empty() ? member : find_command(arguments[0]);
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
        // The first argument that is no option is the command's name, or its group's.
        const auto is_word = [](const std::string& before) { return before[0] != '-'; };
        const auto first = std::find_if(arguments.begin(), arguments.end(), is_word);
        const bool in_group =
            first != arguments.end() && std::none_of(first + 1, arguments.end(), is_word) &&
            find_command(*first) != nullptr && !find_command(*first)->commands.empty();
        const bool is_command = first == arguments.end() || in_group;
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

class Help_Formatter : public CLI::Formatter
{
public:
    /// @param command  whose help it writes; NULL = that of the program
    explicit Help_Formatter(const Command* command) : command_(command) {}

    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override
    {
        if (command_ == nullptr)
            return "\nUsage: cio COMMAND [OPTION...] ARGUMENT...\n";
        return std::string("\nUsage: cio ") + command_->name +
               (command_->commands.empty() ? " [OPTION...] " : " ") + command_->arguments + "\n";
    }
    std::string make_positionals(const CLI::App* /*app*/) const override { return {}; }

private:
    const Command* command_;
};

void add_command(CLI::App& app, const Command& command, Parsed& parsed)
{
    const std::string name = command.name;
    CLI::App* sub = app.add_subcommand(name.substr(name.rfind(' ') + 1), command.summary);
    sub->formatter(std::make_shared<Help_Formatter>(&command));
    sub->footer(std::string("\nExample:\n  ") + command.example + "\n");
    if (!command.commands.empty()) {
        sub->require_subcommand(1);
        for (const Command* member : command.commands)
            add_command(*sub, *member, parsed);
        return;
    }
    add_values(*sub, "arguments", "",
               [&parsed](std::string value) { parsed.arguments.push_back(std::move(value)); })
        ->expected(0, -1)
        ->allow_extra_args();
    add_command_options(*sub, command.options, parsed);
    sub->final_callback([&parsed, &command] { parsed.command = &command; });
}

void build(CLI::App& app, Parsed& parsed)
{
    app.formatter(std::make_shared<Help_Formatter>(nullptr));
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", std::string("cio ") + CIO_VERSION);
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.footer(std::string("\nURI names the target (file:///mnt/backup), PATH lies inside it.\n"
                           "\"cio COMMAND --help\" shows a command's options and an example.\n\n") +
               exit_code_help);
    for (const Command* command : commands)
        add_command(app, *command, parsed);
    CLI::App* help = app.add_subcommand("help", "Show help: cio help [COMMAND | options]");
    add_values(*help, "topic", "",
               [&parsed](std::string value) { parsed.arguments.push_back(std::move(value)); })
        ->expected(0, -1)
        ->allow_extra_args();
}

/// The names of the commands that the command line has come to, from the outermost one.
std::vector<std::string> chosen_names(const CLI::App& app)
{
    std::vector<std::string> names;
    for (auto chosen = app.get_subcommands(); !chosen.empty();) {
        names.push_back(chosen.front()->get_name());
        chosen = chosen.front()->get_subcommands();
    }
    return names;
}

std::string joined(const std::vector<std::string>& names)
{
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : " ") + name;
    return text;
}

[[noreturn]] void refuse_arguments(const Command& command)
{
    throw Usage_Error(std::string("usage: cio ") + command.name + " [OPTION...] " +
                      command.arguments);
}

/// Says what is wrong with a command line that holds no known command.
/// @param group     that it names; NULL = none
/// @param arguments  what stands behind that
[[noreturn]] void refuse_command(const Command* group, std::span<const std::string> arguments)
{
    const std::string before = group == nullptr ? "" : std::string(group->name) + ' ';
    const std::string given = arguments.empty() ? "" : arguments.front();
    if (given.empty() || given[0] == '-')
        throw Usage_Error((given.empty() ? std::string("a command is missing")
                                         : "unknown option '" + given + "'") +
                          " (see cio " + before + "--help)");
    std::vector<std::string_view> names;
    for (const Command* command :
         group == nullptr ? std::span<const Command* const>(commands) : group->commands)
        names.emplace_back(command->name);
    throw Usage_Error("unknown command '" + before + given + "', did you mean '" +
                      std::string(nearest_name(before + given, names)) + "'?");
}

int show_help(const std::vector<std::string>& topics, Output& out)
{
    const std::string topic = joined(topics);
    // One of its own: a parser that has met a command shows that command's help only.
    Parsed unused;
    CLI::App app(about, "cio");
    build(app, unused);
    if (topic.empty()) {
        out.write(app.help());
    } else if (topic == "options") {
        out.write(option_help());
    } else {
        if (find_command(topic) == nullptr)
            throw Usage_Error("there is no command '" + topic + "'");
        CLI::App* command = &app;
        for (const std::string& name : topics)
            command = command->get_subcommand(name);
        out.write(command->help());
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
    Invocation invocation{parsed.arguments, options,       parsed.recursive, parsed.long_form,
                          parsed.overwrite, parsed.resume, parsed.summarize, parsed.jobs,
                          parsed.server,    parsed.image,  report,           out};
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
        return show_help(chosen_names(app), out);
    } catch (const CLI::CallForVersion& version) {
        out.write(std::string(version.what()) + "\n");
        out.flush();
        return out.failed() ? exit_failed : exit_done;
    } catch (const CLI::ParseError& error) {
        const std::string chosen = joined(chosen_names(app));
        const Command* command = find_command(chosen);
        if (chosen.empty())
            refuse_command(nullptr, arguments);
        if (command != nullptr && !command->commands.empty())
            refuse_command(command, std::span(arguments).subspan(1));
        throw Usage_Error(without_guards(error.what()) + " (see cio " + chosen + " --help)");
    }
    if (parsed.command == nullptr)
        return show_help(parsed.arguments, out);
    return carry_out(parsed, out, messages);
}

/// "cio: COMMAND: ", as far as the command line names a command.
std::string message_prefix(const std::vector<std::string>& arguments)
{
    const Command* command = find_command(arguments);
    return command == nullptr ? "cio: " : std::string("cio: ") + command->name + ": ";
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
