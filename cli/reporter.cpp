#include "cli/reporter.h"

#include "platform/json/json_value.h"

#include <algorithm>
#include <chrono>

namespace cio
{
namespace
{

constexpr std::chrono::milliseconds draw_interval{100};
// Interface number of the JSON lines: counts up when a member changes its meaning or goes away.
constexpr int json_version = 1;

std::string format_duration(double seconds)
{
    const auto whole = static_cast<std::uint64_t>(std::max(0.0, seconds));
    const auto two = [](std::uint64_t n) {
        return std::string{static_cast<char>('0' + n / 10), static_cast<char>('0' + n % 10)};
    };
    const std::string tail = two(whole / 60 % 60) + ":" + two(whole % 60);
    return whole >= 3600 ? std::to_string(whole / 3600) + ":" + tail : tail;
}

/// "0.3 s", and like format_duration() from a minute on.
std::string format_seconds(double seconds)
{
    const auto tenths = static_cast<std::uint64_t>(std::max(0.0, seconds) * 10);
    return tenths >= 600 ? format_duration(seconds)
                         : std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

std::string format_rate(std::uint64_t bytes, double seconds)
{
    const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    return format_bytes(static_cast<std::uint64_t>(rate)) + "/s";
}

} // namespace

Reporter::Reporter(Settings settings, Output& results, Output& messages)
    : settings_(std::move(settings)), results_(results), messages_(messages),
      json_(settings_.command == "cat" ? messages : results),
      show_progress_(settings_.transfer && !settings_.quiet &&
                     (settings_.json || messages.is_terminal())),
      start_(Clock::current().steady_now()),
      next_draw_((start_ + draw_interval).time_since_epoch().count())
{}

void Reporter::error(std::string_view path, const Failure& failure)
{
    const std::lock_guard lock(mutex_);
    common_code_ = failed_ == 0 || common_code_ == failure.code ? failure.code : exit_failed;
    ++failed_;
    message("error", path, failure.text, {{"exit_code", static_cast<int>(failure.code)}});
}

void Reporter::skipped(std::string_view path, std::string_view why)
{
    const std::lock_guard lock(mutex_);
    ++skipped_;
    message("warning", path, "skipped: " + std::string(why), {});
}

void Reporter::warning(std::string_view text)
{
    const std::lock_guard lock(mutex_);
    message("warning", "", "warning: " + std::string(text), {});
}

void Reporter::note(std::string_view path, std::string_view text)
{
    const std::lock_guard lock(mutex_);
    message("note", path, std::string(text), {});
}

void Reporter::difference(std::string_view path, const char* kind, const std::string& text,
                          std::int64_t offset)
{
    const std::lock_guard lock(mutex_);
    ++differences_;
    if (settings_.json) {
        json_spirit::Object members{{"difference", kind}};
        add_bytes(members, "path", path); // also the root's, which is empty
        if (offset >= 0)
            members["offset"] = offset;
        message("difference", path, text, std::move(members));
    } else if (!settings_.quiet) {
        erase_progress();
        results_.write(results_.printable(path) + ": " + text + "\n");
        results_.flush();
    }
}

void Reporter::partial(std::string_view path, std::uint64_t bytes, bool can_continue)
{
    const std::lock_guard lock(mutex_);
    message("partial", path,
            "interrupted: " + std::to_string(bytes) + " bytes of this file are there" +
                (can_continue ? "; --resume continues it" : ""),
            {{"bytes", bytes}});
}

void Reporter::file_found(std::optional<std::uint64_t> bytes)
{
    files_found_.fetch_add(1, std::memory_order_relaxed);
    if (bytes)
        bytes_found_.fetch_add(*bytes, std::memory_order_relaxed);
    else
        sizes_known_.store(false, std::memory_order_relaxed);
}

void Reporter::all_found()
{
    all_found_.store(true, std::memory_order_relaxed);
}

void Reporter::already_there(std::uint64_t bytes)
{
    bytes_found_.fetch_sub(bytes, std::memory_order_relaxed);
}

void Reporter::bytes_moved(std::uint64_t bytes)
{
    bytes_done_.fetch_add(bytes, std::memory_order_relaxed);
    refresh_progress();
}

void Reporter::item_done(bool is_file)
{
    items_done_.fetch_add(1, std::memory_order_relaxed);
    if (is_file)
        files_done_.fetch_add(1, std::memory_order_relaxed);
    refresh_progress();
}

Exit_Code Reporter::finish(bool interrupted)
{
    const std::lock_guard lock(mutex_);
    erase_progress();
    const Exit_Code code = exit_code(interrupted);
    write_summary(code, interrupted);
    return code;
}

void Reporter::message(const char* type, std::string_view path, const std::string& text,
                       json_spirit::Object members)
{
    if (settings_.quiet)
        return;
    erase_progress();
    if (settings_.json) {
        members["type"] = type;
        if (!path.empty())
            add_bytes(members, "path", path);
        members["text"] = text;
        json_.write_line(members);
        json_.flush();
        return;
    }
    std::string line = "cio: " + settings_.command + ": ";
    if (!path.empty())
        line += messages_.printable(path) + ": ";
    messages_.write(line + messages_.printable(text) + "\n");
    messages_.flush();
}

void Reporter::refresh_progress()
{
    if (!show_progress_)
        return;
    const Clock::Steady_Time now = Clock::current().steady_now();
    Clock::Steady_Time::rep due = next_draw_.load(std::memory_order_relaxed);
    if (now.time_since_epoch().count() < due)
        return;
    const auto next = (now + draw_interval).time_since_epoch().count();
    // Of several threads that find it due, one draws.
    if (!next_draw_.compare_exchange_strong(due, next, std::memory_order_relaxed))
        return;
    const std::lock_guard lock(mutex_);
    draw_progress(now);
}

void Reporter::draw_progress(Clock::Steady_Time now)
{
    const double seconds = seconds_since_start(now);
    const std::uint64_t bytes = bytes_done_;
    const std::uint64_t total = std::max<std::uint64_t>(bytes_found_, bytes);
    const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
    const bool total_known = all_found_ && sizes_known_;
    const bool left_known = total_known && rate > 0;
    const double left = left_known ? static_cast<double>(total - bytes) / rate : 0;
    if (settings_.json) {
        json_spirit::Object line{{"type", "progress"},
                                 {"bytes", bytes},
                                 {"files", files_done_.load()},
                                 {"bytes_per_second", static_cast<std::uint64_t>(rate)}};
        if (total_known)
            line["bytes_total"] = total;
        if (all_found_)
            line["files_total"] = files_found_.load();
        if (left_known)
            line["seconds_left"] = static_cast<std::uint64_t>(left);
        json_.write_line(line);
        json_.flush();
        return;
    }
    std::string line = "\r";
    line += format_bytes(bytes);
    if (total_known)
        line += " of " + format_bytes(total);
    line += "  " + std::to_string(files_done_.load());
    if (all_found_)
        line += " of " + std::to_string(files_found_.load());
    line += " files  " + format_rate(bytes, seconds);
    if (left_known)
        line += "  " + format_duration(left) + " left";
    messages_.write(line + "\x1b[K");
    messages_.flush();
    drawn_ = true;
}

void Reporter::erase_progress()
{
    if (drawn_)
        messages_.write("\r\x1b[K");
    drawn_ = false;
}

void Reporter::write_summary(Exit_Code code, bool interrupted)
{
    const double seconds = seconds_since_start(Clock::current().steady_now());
    messages_.flush();
    if (settings_.quiet)
        return;
    if (settings_.json) {
        json_spirit::Object line{{"type", "summary"},
                                 {"version", json_version},
                                 {"command", settings_.command},
                                 {"files", files_done_.load()},
                                 {"bytes", bytes_done_.load()},
                                 {"skipped", skipped_},
                                 {"failed", failed_},
                                 {"seconds", seconds},
                                 {"interrupted", interrupted},
                                 {"exit_code", static_cast<int>(code)}};
        if (settings_.command.ends_with("verify"))
            line["differences"] = differences_;
        json_.write_line(line);
        json_.flush();
        return;
    }
    if (!settings_.transfer)
        return;
    std::string line = settings_.command + ": " + std::to_string(files_done_.load()) + " files, " +
                       format_bytes(bytes_done_) + ", " + format_seconds(seconds) + ", " +
                       format_rate(bytes_done_, seconds);
    if (settings_.command.ends_with("verify"))
        line += ", " + std::to_string(differences_) + " differences";
    if (skipped_ > 0)
        line += ", " + std::to_string(skipped_) + " skipped";
    if (failed_ > 0)
        line += ", " + std::to_string(failed_) + " failed";
    results_.write(line + "\n");
    results_.flush();
}

double Reporter::seconds_since_start(Clock::Steady_Time now) const
{
    return std::chrono::duration<double>(now - start_).count();
}

Exit_Code Reporter::exit_code(bool interrupted) const
{
    if (interrupted)
        return exit_interrupted;
    if (differences_ > 0)
        return exit_failed;
    if (failed_ == 0)
        return exit_done;
    return items_done_ > 0 ? exit_partly : common_code_;
}

} // namespace cio
