#include "cli/command_options.h"

#include <algorithm>
#include <charconv>
#include <memory>

namespace cio
{
namespace
{

constexpr unsigned most_jobs = 64;

std::string unguarded(const std::string& value)
{
    return value.starts_with(guard) ? value.substr(1) : value;
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

void add_image_options(CLI::App& app, Image_Flags& flags)
{
    const auto add = [&](const char* name, const char* type, const char* help,
                         std::optional<std::string> Image_Flags::*value) {
        add_values(app, name, help, [&flags, value](std::string text) {
            flags.*value = std::move(text);
        })->type_name(type);
    };
    add("--extents", "FILE",
        "Store these extents: lines \"OFFSET LENGTH\" or JSON, as cio image info shows them; - is "
        "standard input",
        &Image_Flags::extents);
    app.add_flag("--raw", flags.raw, "Store all blocks but zeros, whatever file system is there");
    add("--block-size", "SIZE", "Bytes of a data block, 512 to 1M (default 64K)",
        &Image_Flags::block_size);
    add("--descriptor-size", "SIZE",
        "Bytes of a descriptor block, 512 to 1M (default 64K; 4K where blocks of zeros are looked "
        "for)",
        &Image_Flags::descriptor_size);
}

} // namespace

std::string without_guards(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), guard), text.end());
    return text;
}

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
    if (options & takes_extents)
        add_image_options(app, parsed.image);
    if (options & takes_zero)
        app.add_flag("--zero", parsed.image.zero, "Make zero what the image does not hold");
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

} // namespace cio
