#pragma once

#include "cli/connection.h"
#include "cli/output.h"
#include "cli/reporter.h"
#include "cli/serve_options.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace cio
{

/// What the command line says about block images, as it was written.
struct Image_Flags
{
    std::optional<std::string> extents{};         ///< --extents FILE
    std::optional<std::string> block_size{};      ///< --block-size SIZE
    std::optional<std::string> descriptor_size{}; ///< --descriptor-size SIZE
    bool raw = false;
    bool zero = false;
};

/// What the user asked for, options read and checked.
struct Invocation
{
    std::vector<std::string> arguments;
    Client_IO_Base::Options options;
    bool recursive = false;
    bool long_form = false;
    bool overwrite = false;
    bool resume = false;
    bool summarize = false;
    unsigned jobs = 4;
    Serve_Options server;
    Image_Flags image;
    Reporter& report;
    Output& out;
};

/// The options that a command knows beside those that all know; bits.
enum Command_Option : unsigned
{
    takes_recursive = 1U,
    takes_recursive_upper = 2U, ///< -R, as for ls
    takes_long = 4U,
    takes_overwrite = 8U,
    takes_resume = 16U,
    takes_jobs = 32U,
    takes_summarize = 64U,
    shows_transfer = 128U,   ///< no option: the command moves data
    takes_transforms = 256U, ///< --compress and the like: the command opens files
    takes_server = 512U,     ///< those of `serve`, in place of all that have to do with targets
    takes_extents = 1024U,   ///< --extents and what else says how an image is stored
    takes_zero = 2048U,
};

/// One command: its row in the help and what carries it out.
struct Command
{
    const char* name;      ///< that of a command in a group begins with the group's ("image save")
    const char* arguments; ///< as the help shows them
    const char* summary;
    const char* example;
    unsigned options;
    std::size_t least_arguments;
    std::size_t most_arguments;
    /// Does the work; results go to out, failures to report, which knows the exit code. May throw
    /// Usage_Error before anything was changed.
    void (*run)(Invocation& invocation);
    /// Of a group, which is no command by itself.
    std::span<const Command* const> commands = {};
};

constexpr std::size_t any_number = static_cast<std::size_t>(-1);

extern const Command put_command;
extern const Command get_command;
extern const Command cat_command;
extern const Command ls_command;
extern const Command tree_command;
extern const Command stat_command;
extern const Command du_command;
extern const Command cp_command;
extern const Command mv_command;
extern const Command rm_command;
extern const Command mkdir_command;
extern const Command truncate_command;
extern const Command verify_command;
extern const Command serve_command;
extern const Command image_command;

} // namespace cio
