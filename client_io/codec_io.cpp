#include "client_io/codec_io.h"

#include <algorithm>
#include <utility>

Codec_IO::Codec_IO(std::unique_ptr<Client_IO_Base> io) : Pipe_IO(std::move(io)) {}

Codec_IO::~Codec_IO() = default;

/// Discards what stands before the offset of the open. That reads through this object's own read,
/// and does not count as handing out.
template <class Skip>
auto Codec_IO::skip_pending(Skip skip)
{
    const std::uint64_t left = std::exchange(left_, unlimited);
    try {
        const auto result = skip(std::exchange(pending_skip_, 0));
        left_ = left;
        return result;
    } catch (...) {
        failed_ = true;
        throw;
    }
}

std::int64_t Codec_IO::read(void* buf, std::uint64_t size)
{
    if (!ready(true) || !check(false))
        return -1;
    error_.clear();
    if (size == 0)
        return 0;
    if (pending_skip_ != 0) {
        const bool skipped = skip_pending([&](std::uint64_t n) { return skip(n, buf, size); });
        if (!skipped) {
            skip_failed();
            return -1;
        }
    }
    size = std::min(size, left_);
    failed_ = true; // until the work is done, which memory may run out for
    const std::int64_t n = size == 0 ? 0 : decode(buf, size);
    failed_ = n < 0;
    if (n > 0 && left_ != unlimited)
        left_ -= static_cast<std::uint64_t>(n);
    return n;
}

bool Codec_IO::write(const void* buf, std::uint64_t size)
{
    if (!ready(false) || !check(true))
        return false;
    error_.clear();
    failed_ = true;
    failed_ = size != 0 && !encode(buf, size);
    return !failed_;
}

bool Codec_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    if (!start(path, mode, offset))
        return false;
    left_ = size == 0 ? unlimited : size;
    return finish_open(_io->open(path, mode, 0, 0), mode);
}

bool Codec_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    if (!start(path, mode, 0))
        return false;
    left_ = unlimited;
    return finish_open(_io->open(path, mode, extra), mode);
}

bool Codec_IO::close()
{
    if (!ready(false))
        return false;
    const bool was_written = open_ && writing_;
    if (!was_written || !failed_)
        error_.clear();
    if (was_written && !failed_ && !end_written_) {
        failed_ = true;
        failed_ = !encode_end();
        end_written_ = !failed_;
    }
    const bool complete = !was_written || !failed_;
    // The lower layer's close may succeed and forget what went wrong before.
    std::string reason = complete ? std::string() : error();
    const bool closed = _io && _io->close();
    // What could not be closed is open still, and as incomplete as before.
    open_ = open_ && !closed && is_open();
    writing_ = writing_ && open_;
    if (!open_)
        end();
    if (!complete)
        error_ = std::move(reason);
    return complete && closed;
}

bool Codec_IO::read(const void*& data, std::uint64_t& size)
{
    data = nullptr;
    size = 0;
    if (!ready(true) || !check(false))
        return false;
    error_.clear();
    if (left_ == 0)
        return true;
    if (pending_skip_ != 0) {
        const std::int64_t behind = skip_pending([this](std::uint64_t n) { return skip(n); });
        if (behind < 0)
            return skip_failed();
        data = block_;
        size = static_cast<std::uint64_t>(behind);
    }
    failed_ = true;
    failed_ = size == 0 && !decode(data, size);
    if (failed_)
        return false;
    block_ = data;
    size = std::min(size, left_);
    if (size == 0)
        data = nullptr;
    if (left_ != unlimited)
        left_ -= size;
    return true;
}

bool Codec_IO::flush()
{
    if (!ready(false) || !check(true))
        return false;
    error_.clear();
    failed_ = true;
    failed_ = !encode_flush();
    return !failed_ && _io->flush();
}

bool Codec_IO::seek(std::uint64_t /*offset*/, std::uint64_t /*length*/)
{
    error_ = "Not seekable";
    return false;
}

bool Codec_IO::retriable() const
{
    return ok_ && _io && _io->retriable();
}

/// After a failure of the stream its text stays.
bool Codec_IO::check(bool for_writing)
{
    if (!open_) {
        error_ = "Not open";
        return false;
    }
    if (for_writing != writing_) {
        error_ = "Operation not permitted";
        return false;
    }
    if (end_written_) { // and the close failed below
        error_ = "Not open";
        return false;
    }
    return !failed_;
}

bool Codec_IO::write_lower(const void* data, std::uint64_t size)
{
    if (_io->write(data, size))
        return true;
    error_.clear();
    return false;
}

std::int64_t Codec_IO::read_lower(void* buf, std::uint64_t size)
{
    const std::int64_t n = _io->read(buf, size);
    if (n < 0)
        error_.clear();
    return n < 0 ? -1 : n;
}

bool Codec_IO::read_lower(const void*& data, std::uint64_t& size)
{
    if (_io->read(data, size))
        return true;
    error_.clear();
    return false;
}

bool Codec_IO::fail(std::string text)
{
    error_ = std::move(text);
    ok_ = false;
    return false;
}

/// The steps of both opens before that of the lower file.
bool Codec_IO::start(const char* path, unsigned mode, std::uint64_t offset)
{
    error_.clear();
    if (!ready(false) || !_io)
        return false;
    // What is still to be written of the file before belongs to it, not to the next one.
    if (open_ && is_open() && !close())
        return false;
    open_ = false;
    const unsigned access = mode & mode_access;
    writing_ = access != mode_read;
    failed_ = end_written_ = false;
    if (writing_ && offset != 0) {
        error_ = "Invalid offset";
        return false;
    }
    if (access == mode_random_write) {
        error_ = "Random write mode is not supported with compression or encryption";
        return false;
    }
    if (access == mode_append && !can_append()) {
        const std::uint64_t stored = _io->size(path);
        if (stored != 0 && stored != size_unknown && stored != size_of_directory) {
            error_ = "Invalid offset";
            return false;
        }
    }
    if (!begin())
        return false;
    ok_ = true;
    pending_skip_ = offset;
    return true;
}

/// The step of both opens after that of the lower file.
bool Codec_IO::finish_open(bool opened, unsigned mode)
{
    open_ = opened;
    if (!open_ || (mode & mode_access) != mode_append || can_append())
        return open_;
    // size(path) may have failed where the open succeeded.
    const std::uint64_t stored = _io->size();
    if (stored == 0)
        return true;
    open_ = false;
    _io->close();
    error_ = "Invalid offset";
    return false;
}

/// The offset of the open was not reached. The codec and the lower layer have words of their own
/// for what they met; otherwise the stream ended before.
bool Codec_IO::skip_failed()
{
    if (!failed_ || error().empty())
        fail("Invalid offset");
    failed_ = true;
    return false;
}
