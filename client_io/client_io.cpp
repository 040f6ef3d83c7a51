#include "client_io/client_io.h"

#include "client_io/pipe_io.h"
#include "platform/runtime/format.h"
#include "platform/runtime/posix_error.h"
#include "platform/runtime/unexpected.h"

#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <new>
#include <utility>

namespace
{

/// Positions count modulo 2^64: a backend that goes beyond the largest one is not undefined.
std::int64_t advance(std::int64_t position, std::uint64_t size)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(position) + size);
}

} // namespace

std::int64_t Client_IO::read(void* buf, std::uint64_t size)
try {
    if (buf == nullptr) {
        log_unexpected("Unexpected error in %N:%l, buff is NULL:\n%?\n");
        return -1;
    }
    if (size == 0) {
        log_unexpected_values("Unexpected error in %N:%l, size%s <= 0%s:\n%?\n", "=0", "");
        return -1;
    }
    if (!check_connected() || !check_open())
        return -1;
    if (write_mode_) {
        error_ = "Operation not permitted in write mode";
        return -1;
    }
    error_.clear();
    const std::int64_t n = io_->read(buf, size);
    if (n > 0)
        position_ = advance(position_, static_cast<std::uint64_t>(n));
    return n;
} catch (const std::bad_alloc&) {
    out_of_memory();
    return -1;
}

bool Client_IO::write(const void* buf, std::uint64_t size)
try {
    if (buf == nullptr) {
        log_unexpected("Unexpected error in %N:%l, buff is NULL:\n%?\n");
        return false;
    }
    if (!check_connected() || !check_open())
        return false;
    if (!write_mode_) {
        error_ = "Operation not permitted in read mode";
        return false;
    }
    if (size == 0)
        return true;
    error_.clear();
    if (!io_->write(buf, size))
        return false;
    bytes_written_ = advance(bytes_written_, size);
    position_ = advance(position_, size);
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

std::uint64_t Client_IO::size() const
{
    return is_connected() && is_open() ? io_->size() : size_unknown;
}

bool Client_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
try {
    if (!prepare_open(path, mode) || !check_random_write(mode) ||
        !io_->open(path, mode, offset, size))
        return false;
    unclosed_ = write_mode_;
    position_ = static_cast<std::int64_t>(mode == mode_append ? io_->size() : offset);
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
try {
    if (!prepare_open(path, mode) || !check_random_write(mode) || !io_->open(path, mode, extra))
        return false;
    unclosed_ = write_mode_;
    position_ = mode == mode_append ? static_cast<std::int64_t>(io_->size()) : 0;
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::is_open() const
{
    return io_ && io_->is_open();
}

bool Client_IO::close()
try {
    unclosed_ = false; // whatever comes of it, the caller is told
    if (!check_connected() || !check_open())
        return false;
    position_ = -1;
    error_.clear();
    return io_->close();
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::read(const void*& data, std::uint64_t& size)
try {
    if (!check_connected() || !check_open())
        return false;
    if (write_mode_) {
        error_ = "Operation not permitted in write mode";
        return false;
    }
    error_.clear();
    if (!io_->read(data, size))
        return false;
    position_ = advance(position_, size);
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::flush()
try {
    if (!check_connected() || !check_open())
        return false;
    if (!write_mode_) {
        error_ = "Operation not permitted in read mode";
        return false;
    }
    error_.clear();
    return io_->flush();
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::seek(std::uint64_t offset, std::uint64_t length)
try {
    if (!check_open())
        return false;
    error_.clear();
    if (!io_->seek(offset, length))
        return false;
    position_ = static_cast<std::int64_t>(offset);
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

std::uint64_t Client_IO::original_size() const
{
    if (is_connected() && bytes_written_ >= 0)
        return static_cast<std::uint64_t>(bytes_written_);
    return Client_IO_Base::original_size();
}

std::uint64_t Client_IO::storage_size() const
{
    return is_connected() ? io_->storage_size() : size_unknown;
}

int Client_IO::errnum() const
{
    return io_ ? io_->errnum() : 0;
}

const std::string& Client_IO::error() const
{
    return error_.empty() && io_ ? io_->error() : error_;
}

bool Client_IO::retriable() const
{
    return io_ && io_->retriable();
}

std::string Client_IO::get_config(const char* key) const
try {
    return is_connected() ? io_->get_config(key) : std::string();
} catch (const std::bad_alloc&) {
    ACE_OS::last_error(ENOMEM);
    return {};
}

bool Client_IO::writable() const
{
    return write_mode_;
}

bool Client_IO::allow_random_write() const
{
    return protocol_ == PROTOCOL_HTTP || protocol_ == PROTOCOL_DEDUP || protocol_ == PROTOCOL_FILE;
}

bool Client_IO::check_random_write(unsigned mode)
{
    if ((mode & mode_access) != mode_random_write)
        return true;
    if (!allow_random_write()) {
        error_ = "Random write mode is not supported with this protocol";
        return false;
    }
    if (protocol_ == PROTOCOL_DEDUP)
        return true;
    if (compression_ == COMPRESSION_NONE && encryption_ == ENCRYPTION_NONE)
        return true;
    error_ = "Random write mode is not supported with compression or encryption";
    return false;
}

bool Client_IO::prepare_open(const char* path, unsigned mode)
{
    if (path == nullptr || *path == '\0') {
        log_unexpected("Unexpected error in %N:%l, path is NULL or \"\":\n%?\n");
        return false;
    }
    if (!check_connected())
        return false;
    if (is_open() && !close()) {
        error_ = "Failed to close previous file: " + error();
        return false;
    }
    if (std::exchange(unclosed_, false)) {
        position_ = -1;
        error_ = "Failed to close previous file: the connection was lost";
        return false;
    }
    write_mode_ = (mode & mode_access) != mode_read;
    bytes_written_ = write_mode_ ? 0 : -1;
    error_.clear();
    if (auto_compression_)
        set_compression(std::string(path));
    return io_ != nullptr; // no memory for the transform
}

void Client_IO::set_error(const char* what, const char* path)
{
    const POSIX_Error reason(ACE_OS::last_error(), 1);
    error_ = format_text("%s %s: %s", what, path, reason.c_str());
}

bool Client_IO::check_connected()
{
    if (is_connected() || reconnect())
        return true;
    error_ = "Not connected";
    return false;
}

bool Client_IO::check_open()
{
    if (is_open())
        return true;
    error_ = "Not open";
    return false;
}

void Client_IO::take_off_transform()
{
    // A subclass may have put something else on top, which cannot give up what is below it.
    if (auto* transform = dynamic_cast<Pipe_IO*>(io_.get()))
        io_ = transform->release();
}

/// What every operation does when memory runs out in its midst. @return false, for the operation
bool Client_IO::out_of_memory() noexcept
{
    error_.clear();
    ACE_OS::last_error(ENOMEM);
    return false;
}
