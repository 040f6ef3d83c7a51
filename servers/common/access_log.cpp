#include "servers/common/access_log.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr std::size_t most_waiting = 8U << 20U;
constexpr std::string_view hex_digits = "0123456789ABCDEF";

int open_log(const std::string& path)
{
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640);
}

std::string log_time(std::int64_t posix_seconds)
{
    const std::time_t time = posix_seconds;
    std::tm parts = {};
    std::array<char, 64> text = {};
    ::gmtime_r(&time, &parts);
    return {text.data(),
            std::strftime(text.data(), text.size(), "%d/%b/%Y:%H:%M:%S +0000", &parts)};
}

/// Adds what a peer has sent, "-" for nothing.
void append_safely(std::string& line, std::string_view text)
{
    if (text.empty())
        line += '-';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x7F && c != '"' && c != '\\')
            line += c;
        else
            line += {'\\', 'x', hex_digits[byte >> 4U], hex_digits[byte & 15U]};
    }
}

} // namespace

std::string access_line(const Access_Record& record, std::int64_t posix_seconds)
{
    std::string line(record.address);
    line += " - ";
    append_safely(line, record.user);
    line += " [" + log_time(posix_seconds) + "] \"";
    append_safely(line, record.method);
    line += ' ';
    append_safely(line, record.target);
    line += ' ';
    line += record.version;
    line += "\" " + std::to_string(record.status) + ' ' + std::to_string(record.sent) + ' ' +
            std::to_string(std::chrono::duration<double>(record.duration).count()) + ' ' +
            std::to_string(record.received) + '\n';
    return line;
}

std::unique_ptr<Access_Log> Access_Log::open(const std::string& path)
{
    const int file = open_log(path);
    return file < 0 ? nullptr : std::unique_ptr<Access_Log>(new Access_Log(path, file));
}

Access_Log::Access_Log(std::string path, int file)
    : path_(std::move(path)), file_(file), thread_([this] { run(); })
{}

Access_Log::~Access_Log()
{
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    changed_.notify_one();
    thread_.join();
    ::close(file_);
}

void Access_Log::write(const Access_Record& record)
{
    const std::string line = access_line(record, std::time(nullptr));
    {
        const std::lock_guard lock(mutex_);
        if (lines_.size() + line.size() > most_waiting) {
            ++left_out_;
            return;
        }
        lines_ += line;
    }
    changed_.notify_one();
}

bool Access_Log::reopen()
{
    const int file = open_log(path_);
    if (file < 0)
        return false;
    {
        const std::lock_guard lock(mutex_);
        if (next_file_ >= 0)
            ::close(next_file_);
        next_file_ = file;
    }
    changed_.notify_one();
    return true;
}

void Access_Log::run()
{
    std::string lines;
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ends_ || next_file_ >= 0 || !lines_.empty(); });
        const bool ends = ends_;
        const int next = std::exchange(next_file_, -1);
        const std::uint64_t left_out = std::exchange(left_out_, 0);
        lines.swap(lines_);
        lock.unlock();
        if (left_out > 0)
            lines += "# " + std::to_string(left_out) + " lines left out\n";
        write_out(lines);
        lines.clear();
        if (next >= 0) {
            ::close(file_);
            file_ = next;
        }
        lock.lock();
        if (ends && lines_.empty())
            return;
    }
}

void Access_Log::write_out(const std::string& lines) const
{
    std::size_t done = 0;
    while (done < lines.size()) {
        const ssize_t n = ::write(file_, lines.data() + done, lines.size() - done);
        if (n > 0)
            done += static_cast<std::size_t>(n);
        else if (n == 0 || errno != EINTR)
            return; // a full disk must not stop the service
    }
}
