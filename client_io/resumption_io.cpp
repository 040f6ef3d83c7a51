#include "client_io/resumption_io.h"

#include "platform/runtime/clock.h"
#include "platform/runtime/format.h"
#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <algorithm>
#include <cinttypes>
#include <utility>

namespace
{

/// The pauses of one retry, and how much of the time for it is gone.
class Retry_Timer
{
public:
    explicit Retry_Timer(std::uint64_t max_seconds) : start_(now()), max_seconds_(max_seconds) {}

    void pause()
    {
        Clock::current().sleep(pause_);
        if (pause_ <= std::chrono::seconds(59))
            pause_ += std::chrono::seconds(10);
    }
    /// Looks at the time.
    bool timed_out()
    {
        elapsed_ = static_cast<std::uint64_t>((now() - start_).count());
        return elapsed_ >= max_seconds_;
    }
    /// Seconds until timed_out() looked, for messages.
    int elapsed() const { return static_cast<int>(static_cast<std::uint32_t>(elapsed_)); }

private:
    static std::chrono::seconds now()
    {
        return std::chrono::duration_cast<std::chrono::seconds>(
            Clock::current().steady_now().time_since_epoch());
    }

    std::chrono::seconds start_;
    std::uint64_t max_seconds_;
    std::uint64_t elapsed_ = 0;
    std::chrono::seconds pause_{10};
};

} // namespace

Resumption_IO::Resumption_IO(std::unique_ptr<Client_IO_Base> io, std::uint64_t buffer_size)
    : Pipe_IO(std::move(io)), buffer_(buffer_size, 0)
{}

Resumption_IO::~Resumption_IO() = default;

std::int64_t Resumption_IO::read(void* buf, std::uint64_t size)
{
    if (!begin_operation())
        return -1;
    if (left_ == 0)
        return 0;
    size = std::min(size, left_);
    std::int64_t n = _io->read(buf, size);
    const auto reopen_and_read = [&] {
        if (!reopen_for_reading())
            return false;
        n = left_ == 0 ? 0 : _io->read(buf, size);
        return n >= 0;
    };
    if (n < 0 && !write_mode_)
        retry(reopen_and_read, "reading");
    if (n > 0)
        advance(static_cast<std::uint64_t>(n));
    return n;
}

bool Resumption_IO::write(const void* buf, std::uint64_t size)
{
    if (!begin_operation())
        return false;
    if (!check_target())
        return false;
    const auto write_lower = [this](const void* data, std::uint64_t n) {
        return _io->write(data, n);
    };
    try {
        if (write_lower(buf, size) || retry_write(write_lower, buf, size)) {
            buffer_.write(buf, size);
            return true;
        }
    } catch (...) {
        write_failed_ = true; // how much of it arrived is not known
        throw;
    }
    write_failed_ = true;
    return false;
}

bool Resumption_IO::connect(const URI& uri, const Options& options)
{
    if (!begin_operation())
        return false;
    max_seconds_retry_ = options.max_retry;
    if (_io->connect(uri, options))
        return true;
    const std::string scheme = uri.scheme() + "://";
    const std::string host = uri.host(false);
    if (max_seconds_retry_ == 0) {
        ACE_DEBUG((LM_DEBUG, "Not retry connecting %s%s:%hu since max_seconds_retry is 0\n",
                   scheme.c_str(), host.c_str(), uri.port()));
        return false;
    }
    Retry_Timer timer(max_seconds_retry_);
    error_ = _io->error();
    for (;;) {
        timer.pause();
        if (_io->connect(uri, options)) {
            error_.clear();
            return true;
        }
        if (timer.timed_out()) {
            ACE_ERROR((LM_ERROR,
                       "The retry of connecting %s%s:%hu has timed out after %d seconds\n",
                       scheme.c_str(), host.c_str(), uri.port(), timer.elapsed()));
            return false;
        }
    }
}

bool Resumption_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    return open_with([=, this] { return _io->open(path, mode, offset, size); }, path, mode, offset,
                     size);
}

bool Resumption_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    return open_with([=, this, &extra] { return _io->open(path, mode, extra); }, path, mode, 0, 0);
}

bool Resumption_IO::close()
{
    if (!begin_operation())
        return false;
    left_ = unlimited; // what is read without a file is not the end of one
    const bool whole = check_target();
    if (_io->close())
        return whole;
    return !write_mode_ ||
           (whole &&
            retry_write([this](const void*, std::uint64_t) { return _io->close(); }, nullptr, 0));
}

bool Resumption_IO::read(const void*& data, std::uint64_t& size)
{
    if (!begin_operation())
        return false;
    if (left_ == 0) {
        data = nullptr;
        size = 0;
        return true;
    }
    const auto reopen_and_read = [&] {
        if (!reopen_for_reading())
            return false;
        data = nullptr;
        size = 0;
        return left_ == 0 || _io->read(data, size);
    };
    if (!_io->read(data, size) && (write_mode_ || !retry(reopen_and_read, "reading")))
        return false;
    size = std::min(size, left_);
    advance(size);
    return true;
}

bool Resumption_IO::flush()
{
    if (!begin_operation())
        return false;
    if (!check_target())
        return false;
    const auto flush_lower = [this](const void*, std::uint64_t) { return _io->flush(); };
    return flush_lower(nullptr, 0) || retry_write(flush_lower, nullptr, 0);
}

bool Resumption_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    if (!Pipe_IO::seek(offset, length))
        return false;
    if (write_mode_) {
        extent_ = std::max(extent_, buffer_.end());
        stretch_ = offset;
        evidence_ = Evidence::none;
        buffer_.reset(offset);
    } else {
        position_ = offset;
        left_ = length == 0 ? unlimited : length;
    }
    return true;
}

std::uint64_t Resumption_IO::size(const char* path)
{
    if (!begin_operation())
        return size_unknown;
    std::uint64_t n = 0;
    const auto ask = [&] {
        n = _io->size(path);
        // That it is a directory is an answer too.
        return static_cast<std::int64_t>(n) >= 0 || n == size_of_directory;
    };
    if (!ask())
        retry([&] { return _io->reconnect() && ask(); }, "getting size of");
    return n;
}

bool Resumption_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    if (!begin_operation())
        return false;
    const std::size_t before = entries.size();
    const auto list = [&] {
        if (_io->get_dir(path, entries))
            return true;
        entries.resize(std::min(before, entries.size()));
        return false;
    };
    return list() || retry([&] { return _io->reconnect() && list(); }, "reading directory");
}

/// The precondition of every operation, and what it forgets first.
bool Resumption_IO::begin_operation()
{
    if (!_io) {
        log_unexpected("Unexpected error in %N:%l, _io is NULL:\n%?\n");
        return false;
    }
    error_.clear();
    return true;
}

void Resumption_IO::remember_file(const char* path, unsigned mode, std::uint64_t offset)
{
    path_ = path != nullptr ? path : "";
    mode_ = mode;
    // Reopened, a file that was begun goes on instead of beginning again.
    if ((mode & mode_access) == mode_write)
        mode_ = (mode ^ mode_write) | mode_append;
    write_mode_ = (mode & mode_access) != mode_read;
    position_ = offset;
}

/// Takes stock of the file that was opened with these arguments.
void Resumption_IO::reset_buffer(unsigned mode, std::uint64_t offset)
{
    const unsigned access = mode & mode_access;
    const std::uint64_t size = _io->size();
    const bool known = size != size_unknown;
    stretch_ = access == mode_append && known ? size : offset;
    if (access == mode_append)
        evidence_ = known ? Evidence::size : Evidence::useless;
    else if (access != mode_random_write && (size == offset || (!known && offset == 0)))
        evidence_ = Evidence::size;
    else if (access == mode_random_write || offset != 0)
        evidence_ = Evidence::none;
    else
        evidence_ = Evidence::useless; // a new file that has a size is an old one
    const bool at_end = (mode & 3U) != 0 && known && evidence_ != Evidence::none;
    buffer_.reset(at_end ? size : offset);
    extent_ = access != mode_random_write && known ? std::max(size, offset) : unlimited;
    write_failed_ = false;
    incomplete_ = false;
    foreign_tail_ = 0;
    replaced_ = false;
    file_size_ = write_mode_ ? size_unknown : size;
    file_version_ = write_mode_ ? std::string() : _io->get_config("file_version");
}

bool Resumption_IO::reopen_for_reading()
{
    // Targets may refuse to open a file at its end; that all of it was read is known without.
    const bool at_end = position_ != 0 && position_ == file_size_;
    if (!_io->reconnect() ||
        !_io->open(path_.c_str(), mode_, at_end ? 0 : position_, left_ == unlimited ? 0 : left_) ||
        !check_same_file())
        return false;
    if (at_end)
        left_ = 0;
    return true;
}

bool Resumption_IO::check_same_file()
{
    const std::uint64_t size = _io->size();
    const std::string version = _io->get_config("file_version");
    const bool other_size =
        size != size_unknown && file_size_ != size_unknown && size != file_size_;
    replaced_ =
        other_size || (version != file_version_ && !version.empty() && !file_version_.empty());
    if (!replaced_)
        return true;
    error_ = "Failed to resume read, the file was replaced";
    if (other_size)
        error_ = format_text("Failed to resume read, the file was replaced, size %" PRIu64
                             ", now %" PRIu64,
                             file_size_, size);
    static_cast<void>(_io->close()); // nothing of the other file shall be read
    return false;
}

void Resumption_IO::advance(std::uint64_t n)
{
    position_ += n;
    if (left_ != unlimited)
        left_ -= n;
}

template <class Operation>
bool Resumption_IO::open_with(Operation open_lower, const char* path, unsigned mode,
                              std::uint64_t offset, std::uint64_t size)
{
    if (!begin_operation())
        return false;
    // The layer below would end that file too, but of what it lost nothing would be known any more.
    if (write_mode_ && _io->is_open() && !close())
        return false;
    remember_file(path, mode, offset);
    left_ = size == 0 || write_mode_ ? unlimited : size;
    if (!open_lower() && !retry([&] { return _io->reconnect() && open_lower(); }, "opening"))
        return false;
    reset_buffer(mode, offset);
    return true;
}

/// Repeats an operation other than a write.
/// @param what  "reading", ..., for messages
template <class Operation>
bool Resumption_IO::retry(Operation operation, const char* what)
{
    if (max_seconds_retry_ == 0) {
        ACE_DEBUG(
            (LM_DEBUG, "Not retry %s %s since max_seconds_retry is 0\n", what, path_.c_str()));
        return false;
    }
    if (!_io->retriable()) {
        ACE_DEBUG((LM_DEBUG, "Not retry %s %s since the error is not retriable: %s\n", what,
                   path_.c_str(), _io->error().c_str()));
        return false;
    }
    Retry_Timer timer(max_seconds_retry_);
    error_ = _io->error();
    replaced_ = false;
    for (;;) {
        timer.pause();
        if (operation()) {
            error_.clear();
            return true;
        }
        const bool timed_out = timer.timed_out();
        if (!timed_out && !replaced_ && _io->retriable())
            continue;
        if (replaced_ || !timed_out)
            ACE_ERROR((LM_ERROR, "The retry of %s %s failed since the error is not retriable: %s\n",
                       what, path_.c_str(), replaced_ ? error_.c_str() : _io->error().c_str()));
        else
            ACE_ERROR((LM_ERROR, "The retry of %s %s has timed out after %d seconds\n", what,
                       path_.c_str(), timer.elapsed()));
        return false;
    }
}

/// Repeats a write, flush or close after bringing the file to where it was before.
/// @param data  NULL for flush and close
template <class Operation>
bool Resumption_IO::retry_write(Operation operation, const void* data, std::uint64_t size)
{
    if (!write_mode_)
        return false;
    if (max_seconds_retry_ == 0) {
        ACE_DEBUG((LM_DEBUG, "Not retry writing %s since max_seconds_retry is 0\n", path_.c_str()));
        return false;
    }
    if (!_io->retriable()) {
        ACE_DEBUG((LM_DEBUG, "Not retry writing %s since the error is not retriable: %s\n",
                   path_.c_str(), _io->error().c_str()));
        return false;
    }
    if (write_failed_) {
        ACE_DEBUG(
            (LM_DEBUG, "Not retry writing %s since an earlier write failed\n", path_.c_str()));
        return false;
    }
    Retry_Timer timer(max_seconds_retry_);
    const std::string first_error = _io->error();
    for (;;) {
        error_ = first_error;
        timer.pause();
        const std::int64_t r = resume(size);
        if (r >= 0 && complete_write(operation, data, size, static_cast<std::uint64_t>(r))) {
            ACE_DEBUG((LM_DEBUG, "%s is resumed successfully from %q\n", path_.c_str(),
                       static_cast<ACE_INT64>(breakpoint_)));
            error_.clear();
            return true;
        }
        if (_io->is_open()) {
            // Not a matter of the connection: what is missing cannot be sent again.
            ACE_ERROR((LM_ERROR,
                       "Stop writing %s due to not enough buffered data to resume: breakpoint is "
                       "%q, start position of buffer is %Q\n",
                       path_.c_str(), static_cast<ACE_INT64>(breakpoint_),
                       static_cast<ACE_UINT64>(buffer_.start())));
            return false;
        }
        const bool timed_out = timer.timed_out();
        if (!timed_out && _io->retriable())
            continue;
        if (!timed_out)
            ACE_ERROR((LM_ERROR,
                       "The retry of writing %s failed since the error is not retriable: %s\n",
                       path_.c_str(), _io->error().c_str()));
        else
            ACE_ERROR((LM_ERROR, "The retry of writing %s has timed out after %d seconds\n",
                       path_.c_str(), timer.elapsed()));
        return false;
    }
}

/// Carries an operation out on the resumed file.
/// @param held  bytes that the target holds behind the buffered ones
template <class Operation>
bool Resumption_IO::complete_write(Operation operation, const void* data, std::uint64_t size,
                                   std::uint64_t held)
{
    if (held > size) {
        // The bytes of this write arrived, so it is done; those behind them are nobody's, and what
        // comes next has to fail.
        foreign_tail_ = held - size;
        return data != nullptr || check_target();
    }
    if (data == nullptr)
        return operation(nullptr, 0);
    return (held > 0 && held == size) ||
           operation(static_cast<const char*>(data) + held, size - held);
}

/// Reconnects, reopens the file and sends again what the target lacks of the buffered bytes.
/// @param size  bytes that the interrupted operation may have added
/// @return how many bytes the target holds behind the buffered ones; -1 on failure
std::int64_t Resumption_IO::resume(std::uint64_t size)
{
    if (!_io->reconnect() || !_io->open(path_.c_str(), mode_, 0, 0))
        return -1;
    incomplete_ = true;
    breakpoint_ = static_cast<std::int64_t>(_io->size());
    if (breakpoint_ < 0)
        return -1;
    if (evidence_ == Evidence::useless) {
        error_ = "Failed to resume write, the size of the target does not tell what it holds, "
                 "last error: " +
                 error_;
        return -1;
    }
    auto pos = static_cast<std::uint64_t>(breakpoint_);
    if (evidence_ == Evidence::none) {
        if (const std::uint64_t most = std::max(extent_, buffer_.end() + size); pos > most) {
            foreign_tail_ = pos - most;
            static_cast<void>(check_target());
            return -1;
        }
        pos = stretch_;
        const bool is_there = pos == 0 && (mode_ & mode_access) == mode_random_write;
        if (!is_there && !_io->seek(pos, 0))
            return -1;
    }
    bool ok = true;
    const void* ptr = nullptr;
    std::int64_t len = 0;
    while (ok) {
        ok = buffer_.read(ptr, len, pos);
        if (len < 1)
            break;
        if (!_io->write(ptr, static_cast<std::uint64_t>(len)))
            return -1;
        pos += static_cast<std::uint64_t>(len);
    }
    if (!ok) {
        error_ = format_text("Failed to resume write, breakpoint %" PRIu64 ", buffer start %" PRIu64
                             ", lost size %" PRIu64 ", last error: %s",
                             pos, buffer_.start(), buffer_.start() - pos, error_.c_str());
        return -1;
    }
    incomplete_ = false;
    return -len;
}

/// Fails when the target is known to hold something else than what was written.
bool Resumption_IO::check_target()
{
    if (foreign_tail_ != 0) {
        error_ = format_text("Failed to resume write, the target holds %" PRIu64
                             " bytes more than were written",
                             foreign_tail_);
        return false;
    }
    if (incomplete_ && _io->is_open()) {
        error_ = "Failed to resume write, the target lacks bytes that were written";
        return false;
    }
    return true;
}
