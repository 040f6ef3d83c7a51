#pragma once

#include "cli/failure.h"
#include "cli/output.h"
#include "platform/runtime/clock.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace cio
{

/// Tells the user what happens and adds it up for the exit code: progress, messages, summary.
///
/// Messages go to standard error as "cio: COMMAND: PATH: TEXT", or as JSON lines to the stream of
/// results (for `cat`, whose results are data, to standard error). Progress is drawn at most ten
/// times a second. All operations may be called from any thread.
class Reporter
{
public:
    struct Settings
    {
        std::string command;
        bool quiet = false; ///< no messages, no progress, no summary
        bool json = false;
        bool transfer = false; ///< the command moves data: progress and summary make sense
    };

    /// @param results   standard output
    /// @param messages  standard error
    Reporter(Settings settings, Output& results, Output& messages);

    void error(std::string_view path, const Failure& failure);
    /// Something was left out, which the user should know but is no failure.
    void skipped(std::string_view path, std::string_view why);
    /// Something that the user should change, though nothing was left out.
    void warning(std::string_view text);
    /// Something worth knowing that changes nothing in the result.
    void note(std::string_view path, std::string_view text);
    /// What verify found. @param offset  first byte that differs, -1 = not about bytes
    void difference(std::string_view path, const char* kind, const std::string& text,
                    std::int64_t offset = -1);
    /// The one file that an interruption left unfinished.
    void partial(std::string_view path, std::uint64_t bytes, bool can_continue = true);

    /// A file that will be worked on was found.
    /// @param bytes  how many will be moved; nothing when that cannot be known, and then no totals
    /// of
    ///               bytes are shown
    void file_found(std::optional<std::uint64_t> bytes);
    /// Everything was found: totals are known from now on.
    void all_found();
    /// Part of a found file need not be moved, because it is there already.
    void already_there(std::uint64_t bytes);
    void bytes_moved(std::uint64_t bytes);
    /// A file (or another thing that the command works on) is done.
    void item_done(bool is_file);

    /// Whether `--json` was asked for, which replaces the human form of results as well.
    bool json() const { return settings_.json; }

    /// Ends the progress line, writes the summary and tells the exit code.
    [[nodiscard]] Exit_Code finish(bool interrupted);

private:
    void message(const char* type, std::string_view path, const std::string& text,
                 json_spirit::Object members);
    void refresh_progress();
    void draw_progress(Clock::Steady_Time now);
    void erase_progress();
    void write_summary(Exit_Code code, bool interrupted);
    double seconds_since_start(Clock::Steady_Time now) const;
    Exit_Code exit_code(bool interrupted) const;

    const Settings settings_;
    Output& results_;
    Output& messages_;
    Output& json_;
    const bool show_progress_;
    const Clock::Steady_Time start_;
    std::atomic<Clock::Steady_Time::rep> next_draw_;

    std::atomic<std::uint64_t> files_found_{0};
    std::atomic<std::uint64_t> bytes_found_{0};
    std::atomic<std::uint64_t> files_done_{0};
    std::atomic<std::uint64_t> items_done_{0};
    std::atomic<std::uint64_t> bytes_done_{0};
    std::atomic<bool> all_found_{false};
    std::atomic<bool> sizes_known_{true};

    std::mutex mutex_; // for the streams and what follows
    bool drawn_ = false;
    std::uint64_t skipped_ = 0;
    std::uint64_t failed_ = 0;
    std::uint64_t differences_ = 0;
    Exit_Code common_code_ = exit_done; // of all failures so far; exit_failed when they differ
};

} // namespace cio
