#include "client_io/client_io.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "platform/runtime/format.h"
#include "platform/runtime/unexpected.h"

#include <ace/OS_Errno.h>
#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <istream>
#include <new>
#include <system_error>

namespace
{

/// Whether a path argument was given; logs @p message at the caller's place when it was not.
bool given(const char* argument, const char* message, const char* file = __builtin_FILE(),
           int line = __builtin_LINE())
{
    if (argument != nullptr && *argument != '\0')
        return true;
    log_unexpected(message, file, line);
    return false;
}

constexpr const char* path_missing = "Unexpected error in %N:%l, path is NULL or \"\":\n%?\n";
constexpr const char* src_missing = "Unexpected error in %N:%l, src is NULL or \"\":\n%?\n";
constexpr const char* dest_missing = "Unexpected error in %N:%l, dest is NULL or \"\":\n%?\n";
constexpr const char* remote_missing = "Unexpected error in %N:%l, remote is NULL or \"\":\n%?\n";
constexpr const char* local_missing = "Unexpected error in %N:%l, local is NULL or \"\":\n%?\n";

unsigned write_mode(bool overwrite)
{
    return overwrite ? Client_IO::mode_write | Client_IO::mode_overwrite : Client_IO::mode_write;
}

constexpr const char* progress_failed = "The progress callback failed";

/// Tells a caller's callback. @return false when it threw, which ends the transfer
bool report(const Client_IO::Progress& progress, std::uint64_t bytes)
{
    try {
        if (progress)
            progress(bytes);
        return true;
    } catch (...) {
        return false;
    }
}

bool call(const Client_IO::Walk_Callback& callback, const char* path,
          const Client_IO::Directory_Entry& entry)
{
    try {
        return callback(path, entry);
    } catch (...) {
        return false;
    }
}

/// The reason for which a stream failed, as far as the C library, which streams stand on, knows
/// one.
std::string stream_failure(int reason)
{
    const std::string text = std::generic_category().message(reason != 0 ? reason : EIO);
    return format_text("Failed to read local file: %s", text.c_str());
}

/// Reads a piece of a stream whose exceptions may be switched on.
std::uint64_t read_some(std::istream& in, char* buffer, std::size_t size)
{
    try {
        in.read(buffer, static_cast<std::streamsize>(size));
    } catch (...) {
        // The stream's state tells what happened; a stream buffer that threw has set none.
        if (in.good())
            in.clear(std::ios_base::badbit | in.rdstate());
    }
    return static_cast<std::uint64_t>(in.gcount());
}

} // namespace

/// What all operations on paths do before the stack carries them out.
template <class Operation>
bool Client_IO::forward(Operation operation)
try {
    if (!check_connected() || !check_no_file_open())
        return false;
    error_.clear();
    return operation();
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

std::uint64_t Client_IO::size(const char* path)
try {
    if (!check_connected())
        return size_unknown;
    error_.clear();
    return io_->size(path);
} catch (const std::bad_alloc&) {
    out_of_memory();
    return size_unknown;
}

bool Client_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    if (path == nullptr) {
        log_unexpected("Unexpected error in %N:%l, path is NULL:\n%?\n");
        return false;
    }
    return forward([&] { return io_->get_dir(path, entries); });
}

bool Client_IO::make_dir(const char* path, unsigned short mode)
{
    return given(path, path_missing) && forward([&] { return io_->make_dir(path, mode); });
}

bool Client_IO::truncate(const char* path, std::uint64_t size)
{
    return given(path, path_missing) && forward([&] { return io_->truncate(path, size); });
}

bool Client_IO::remove(const char* path)
{
    return given(path, path_missing) && forward([&] { return io_->remove(path); });
}

bool Client_IO::copy(const char* src, const char* dst, bool overwrite)
{
    return given(src, src_missing) && given(dst, dest_missing) &&
           forward([&] { return io_->copy(src, dst, overwrite); });
}

bool Client_IO::rename(const char* src, const char* dst, bool overwrite)
{
    return given(src, src_missing) && given(dst, dest_missing) &&
           forward([&] { return io_->rename(src, dst, overwrite); });
}

bool Client_IO::get_file(const char* remote, const char* local, int local_flags,
                         std::uint64_t file_option, Progress progress)
try {
    if (!given(remote, remote_missing) || !given(local, local_missing) || !check_connected() ||
        !check_no_file_open())
        return false;

    if (refuse_same_file(remote, local))
        return false;

    std::uint64_t start = 0;
    if ((local_flags & O_APPEND) != 0) {
        file_system::Status status;
        if (file_system::status(local, true, status) && status.is_file()) {
            start = status.size;
            local_flags &= ~O_TRUNC;
        } else
            local_flags = (local_flags & ~O_APPEND) | O_TRUNC | O_CREAT;
    }
    if (!open(remote, mode_read, start, 0))
        return false;
    // A local file that is longer than the remote one is no beginning of it. Below a transform the
    // stack knows only the stored size, which says nothing about it.
    const bool plain = compression_ == COMPRESSION_NONE && encryption_ == ENCRYPTION_NONE;
    if (const std::uint64_t whole = size(); plain && whole != size_unknown && start > whole) {
        error_ = "Invalid offset";
        return close_after_failure();
    }
    if (!get_file_i(local, local_flags, file_option, progress))
        return close_after_failure();
    const ACE_Errno_Guard guard(errno);
    close();
    return true;
} catch (const std::bad_alloc&) {
    close();
    return out_of_memory();
}

bool Client_IO::get_file_i(const char* local, int local_flags, std::uint64_t file_option,
                           const Progress& progress)
{
    File_Options options;
    options.block_size = file_option;
    File_Writer writer;
    if (!writer.open(local, local_flags, true, file_system::share_all, options)) {
        ACE_OS::last_error(writer.last_error());
        set_error("Failed to open local file", local);
        return false;
    }
    bool ok = false;
    for (;;) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        ok = read(data, size);
        if (!ok || size == 0)
            break;
        ok = writer.write(static_cast<const char*>(data), size, nullptr);
        if (!ok)
            break;
        ok = report(progress, size);
        if (!ok) {
            error_ = progress_failed;
            break;
        }
    }
    if (!writer.close()) {
        ACE_OS::last_error(writer.last_error());
        set_error("Failed to flush local file", local);
        return false;
    }
    return ok;
}

bool Client_IO::put_file(const char* remote, const char* local, bool overwrite, int local_flags,
                         std::uint64_t file_option, Progress progress)
try {
    if (!given(remote, remote_missing) || !given(local, local_missing) || !check_connected() ||
        !check_no_file_open())
        return false;

    if (refuse_same_file(remote, local))
        return false;

    File_Options options;
    options.block_size = file_option;
    File_Reader reader;
    if (!reader.open(local, local_flags, options, file_system::share_all, false)) {
        ACE_OS::last_error(reader.last_error());
        set_error("Failed to open local file", local);
        return false;
    }
    if (!open(remote, write_mode(overwrite), 0, 0)) {
        set_error("Failed to open remote file", remote);
        return false;
    }
    for (;;) {
        char* data = nullptr;
        std::int64_t size = 0;
        if (!reader.read(data, size) || size < 0) {
            ACE_OS::last_error(reader.last_error());
            set_error("Failed to read local file", local);
            return close_after_failure();
        }
        if (size == 0)
            break;
        if (!write(data, static_cast<std::uint64_t>(size)))
            return close_after_failure();
        if (!report(progress, static_cast<std::uint64_t>(size))) {
            error_ = progress_failed;
            return close_after_failure();
        }
    }
    return close();
} catch (const std::bad_alloc&) {
    close();
    return out_of_memory();
}

bool Client_IO::put_stream(std::istream& in, const char* remote, bool overwrite)
try {
    if (!given(remote, remote_missing) || !check_connected() || !check_no_file_open())
        return false;
    // A stream that has failed already must not cost the file that stands there.
    if (in.fail() && !in.eof()) {
        error_ = stream_failure(errno);
        return false;
    }
    if (!open(remote, write_mode(overwrite), 0, 0))
        return false;
    char buffer[65536];
    while (!in.eof()) {
        errno = 0;
        const std::uint64_t size = read_some(in, buffer, sizeof buffer);
        const int reason = errno;
        if (size != 0 && !write(buffer, size))
            return close_after_failure();
        if (!in.good() && !in.eof()) {
            error_ = stream_failure(reason);
            return close_after_failure();
        }
    }
    return close();
} catch (const std::bad_alloc&) {
    close();
    return out_of_memory();
}

bool Client_IO::get_contents(const char* path, std::string& out)
try {
    if (!open(path, mode_read, 0, 0))
        return false;
    out.clear();
    for (;;) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        if (!read(data, size))
            return close_after_failure();
        if (size == 0)
            return close();
        out.append(static_cast<const char*>(data), size);
    }
} catch (const std::bad_alloc&) {
    close();
    return out_of_memory();
}

bool Client_IO::put_contents(const char* path, const std::string& data, bool overwrite)
{
    return put_contents(path, data.data(), data.size(), overwrite);
}

bool Client_IO::put_contents(const char* path, const void* data, std::uint64_t size, bool overwrite)
try {
    if (!open(path, write_mode(overwrite), 0, 0))
        return false;
    return write(data, size) ? close() : close_after_failure();
} catch (const std::bad_alloc&) {
    close();
    return out_of_memory();
}

bool Client_IO::walk_directory(const char* path, const Walk_Callback& callback)
try {
    const char* directory = path != nullptr ? path : "";
    std::vector<Directory_Entry> entries;
    if (!get_dir(directory, entries))
        return false;
    std::string prefix = directory;
    if (!prefix.empty() && prefix.back() != '/')
        prefix += '/';
    for (const Directory_Entry& entry : entries) {
        if (entry.is_dir)
            walk_directory((prefix + entry.name).c_str(), callback);
        else if (!call(callback, path, entry))
            return false;
    }
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::check_no_file_open()
{
    if (!is_open())
        return true;
    error_ = "A file is already open";
    return false;
}

/// One file cannot be read while its other end is emptied.
bool Client_IO::refuse_same_file(const char* remote, const char* local)
{
    if (local_root_.empty() ||
        !file_system::is_same_file((local_root_ + '/' + remote).c_str(), local))
        return false;
    error_ = format_text("%s and %s are the same file", remote, local);
    return true;
}

/// Ends the open file of an operation that failed without losing the reason: its text and the
/// system error number stay what they were.
/// @return false, for the operation to return
bool Client_IO::close_after_failure()
{
    const ACE_Errno_Guard guard(errno);
    const std::string reason = error();
    close();
    error_ = reason;
    return false;
}
