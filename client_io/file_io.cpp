#include "client_io/file_io.h"

#include "platform/json/json_value.h"
#include "platform/runtime/copy_file.h"
#include "platform/runtime/directory_reader.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/format.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/path.h"
#include "platform/runtime/posix_error.h"

#include <ace/Default_Constants.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace
{

constexpr unsigned short default_creation_mode = 0750;
constexpr std::uint64_t largest_position = std::numeric_limits<std::int64_t>::max();

constexpr std::uint64_t cache_window = 33554432;
constexpr File_Options file_options{65536, cache_window, true, 1, cache_window};

constexpr char separator = ACE_DIRECTORY_SEPARATOR_CHAR_A;

void use_separator(std::string& path)
{
    std::replace(path.begin(), path.end(), '/', separator);
}

unsigned short creation_mode_of(const json_spirit::Value& extra)
{
    unsigned mode = 0777;
    std::int64_t mask = 0;
    if (extra.is_object() && json_spirit::object_get(extra.get_ref<const json_spirit::Object&>(),
                                                     "X-Mode-Creation-Mask", mask))
        mode &= ~static_cast<unsigned>(mask);
    return static_cast<unsigned short>(mode);
}

} // namespace

File_IO::File_IO() = default;
File_IO::~File_IO() = default;

std::int64_t File_IO::read(void* buf, std::uint64_t size)
{
    if (writing_ || !reader_) {
        error_ = "Operation not permitted";
        return -1;
    }
    if (remaining_ == 0)
        return 0;
    size =
        std::min(size, remaining_ > 0 ? static_cast<std::uint64_t>(remaining_) : largest_position);
    const std::int64_t remaining_before = remaining_;

    std::uint64_t copied = 0;
    const auto count = [&](std::uint64_t part) {
        copied += part;
        if (remaining_ > 0)
            remaining_ -= static_cast<std::int64_t>(part);
        return part;
    };
    const auto deliver = [&](const char* data, std::uint64_t available) {
        const std::uint64_t part = std::min(available, size - copied);
        std::memcpy(static_cast<char*>(buf) + copied, data, part);
        return count(part);
    };
    const auto fail = [&] {
        // The call can be repeated: what it took goes back.
        const std::int64_t position = reader_.seek(0, SEEK_CUR);
        reader_.seek(position - static_cast<std::int64_t>(copied), SEEK_SET);
        remaining_ = remaining_before;
        ACE_OS::last_error(errnum_);
        return -1;
    };

    if (buffer_pos_ != 0)
        buffer_pos_ += deliver(reader_.buffer() + buffer_pos_, reader_.buffer_size() - buffer_pos_);
    while (copied < size) {
        buffer_pos_ = 0;
        // Whole blocks need not go through the buffer.
        const std::uint64_t step = std::min(size - copied, cache_window);
        const std::uint64_t whole = step - step % reader_.buffer_size();
        if (whole != 0) {
            const std::int64_t length = reader_.read(static_cast<char*>(buf) + copied, whole);
            if (length < 0) {
                set_read_error();
                return fail();
            }
            if (count(static_cast<std::uint64_t>(length)) < whole)
                break;
            continue;
        }
        char* block = nullptr;
        std::int64_t length = 0;
        if (!next_block(block, length))
            return fail();
        if (length == 0)
            break;
        const auto available = static_cast<std::uint64_t>(length);
        buffer_pos_ = deliver(block, available);
        if (available < reader_.buffer_size()) {
            // What is left moves to the buffer's end, where the next call looks for it.
            const std::uint64_t left = available - buffer_pos_;
            const std::uint64_t start = reader_.buffer_size() - left;
            std::memmove(reader_.buffer() + start, block + buffer_pos_, left);
            buffer_pos_ = left != 0 ? start : 0;
        }
    }
    return static_cast<std::int64_t>(copied);
}

bool File_IO::write(const void* buf, std::uint64_t size)
{
    if (!writing_ || !writer_) {
        error_ = "Operation not permitted";
        return false;
    }
    if (size > largest_position - position_) {
        ACE_OS::last_error(os_error::file_too_large);
        return set_error("Failed to write", path_);
    }
    if (!writer_.write(static_cast<const char*>(buf), size, nullptr)) {
        ACE_OS::last_error(writer_.last_error());
        return set_error("Failed to write", path_);
    }
    position_ += size;
    size_ = std::max(size_, static_cast<std::int64_t>(position_));
    return true;
}

std::uint64_t File_IO::size() const
{
    return static_cast<std::uint64_t>(size_);
}

bool File_IO::connect(const URI& uri, const Options& options)
{
    overwrite_ = options.overwrite;
    root_ = uri.path(false);
    if (root_.empty()) {
        error_ = "Directory is not set";
        return false;
    }
    use_separator(root_);
    if (separator == '\\' && root_.back() == ':')
        root_ += separator; // the root of the drive, not its current directory
    if (!create_directory(root_, default_creation_mode)) {
        root_.clear();
        return false;
    }
    return true;
}

bool File_IO::reconnect()
{
    if (!root_.empty())
        return true;
    error_ = "URI is not set";
    return false;
}

bool File_IO::is_connected() const
{
    return !root_.empty();
}

void File_IO::disconnect()
{
    root_.clear();
}

bool File_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    return open_file(path, mode, offset, size, default_creation_mode);
}

bool File_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    return open_file(path, mode, 0, 0, creation_mode_of(extra));
}

bool File_IO::is_open() const
{
    return (writing_ ? writer_.handle() : reader_.handle()) != ACE_INVALID_HANDLE;
}

bool File_IO::close()
{
    const bool flushed = flush();
    if (!writing_) {
        reader_.close();
        return flushed;
    }
    if (writer_ && !writer_.close()) {
        ACE_OS::last_error(writer_.last_error());
        return set_error("Failed to write", path_);
    }
    return flushed;
}

bool File_IO::read(const void*& data, std::uint64_t& size)
{
    if (writing_ || !reader_) {
        error_ = "Operation not permitted";
        return false;
    }
    if (remaining_ == 0) {
        size = 0;
        return true;
    }
    char* block = nullptr;
    std::int64_t length = 0;
    if (!next_block(block, length))
        return false;
    if (remaining_ > 0) {
        length = std::min(length, remaining_);
        remaining_ -= length;
    }
    data = length != 0 ? block : nullptr;
    size = static_cast<std::uint64_t>(length);
    return true;
}

bool File_IO::flush()
{
    return true;
}

bool File_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    const auto target = static_cast<std::int64_t>(offset);
    if (writing_) {
        if (writer_.seek(target, SEEK_SET) < 0) {
            ACE_OS::last_error(writer_.last_error());
            return set_error("Failed to seek", path_);
        }
        position_ = offset;
        size_ = std::max(size_, target);
    } else {
        if (reader_.seek(target, SEEK_SET) < 0) {
            ACE_OS::last_error(reader_.last_error());
            return set_error("Failed to seek", path_);
        }
        buffer_pos_ = 0;
    }
    remaining_ = length != 0 ? static_cast<std::int64_t>(std::min(length, largest_position)) : -1;
    return true;
}

std::uint64_t File_IO::size(const char* path)
{
    file_system::Status status;
    if (path == nullptr || !file_system::status(full_path(path).c_str(), true, status))
        return size_unknown;
    return status.is_directory() ? size_of_directory : status.size;
}

bool File_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    const std::string directory = full_path(path);
    Directory_Reader reader;
    if (!reader.open(directory.c_str(), false, 0))
        return set_error("Failed to open directory", directory);
    Directory_Reader::Entry entry;
    for (;;) {
        const int result = reader.read(entry);
        if (result < 0)
            return set_error("Failed to read", directory);
        if (result == 0)
            return true;
        entries.push_back({std::move(entry.name), entry.is_dir(), entry.mtime, entry.size});
    }
}

bool File_IO::make_dir(const char* path, unsigned short mode)
{
    return create_directory(full_path(path), mode);
}

bool File_IO::truncate(const char* path, std::uint64_t size)
{
    const std::string file = full_path(path);
    return file_system::truncate(file.c_str(), size) || set_error("Fail to truncate file", file);
}

bool File_IO::remove(const char* path)
{
    const std::string entry = full_path(path);
    file_system::Status found;
    file_system::Status base;
    if (file_system::status(entry.c_str(), false, found) &&
        file_system::status(root_.c_str(), true, base) && found.is_same_file(base))
    {
        // The base directory itself, which everything else of the connection needs.
        ACE_OS::last_error(os_error::busy);
        return set_error("Failed to remove", entry);
    }
    return file_system::remove(entry.c_str()) || os_error::is_missing(ACE_OS::last_error()) ||
           set_error("Failed to remove", entry);
}

bool File_IO::copy(const char* src, const char* dst, bool overwrite)
{
    const std::string from = full_path(src);
    const std::string to = full_path(dst);
    if (!overwrite && file_system::exists(to.c_str())) {
        errnum_ = EEXIST; // on every system
        error_ = format_text("Failed to copy %s to %s: File exists", from.c_str(), to.c_str());
        return false;
    }
    if (copy_file(from.c_str(), to.c_str(), file_system::share_all, nullptr, overwrite))
        return true;
    errnum_ = ACE_OS::last_error();
    error_ = format_text("Failed to copy %s to %s: %s", from.c_str(), to.c_str(),
                         POSIX_Error(errnum_, 1).c_str());
    return false;
}

bool File_IO::rename(const char* src, const char* dst, bool overwrite)
{
    const std::string from = full_path(src);
    const std::string to = full_path(dst);
    if (!overwrite && file_system::exists(to.c_str())) {
        errnum_ = EEXIST; // on every system
        error_ = format_text("Failed to rename %s to %s: File exists", from.c_str(), to.c_str());
        return false;
    }
    if (overwrite ? file_system::rename(from.c_str(), to.c_str())
                  : file_system::rename_new(from.c_str(), to.c_str()))
        return true;
    errnum_ = ACE_OS::last_error();
    error_ = format_text("Failed to rename %s to %s: %s", from.c_str(), to.c_str(),
                         POSIX_Error(errnum_, 1).c_str());
    return false;
}

std::string File_IO::full_path(const char* path) const
{
    // Without a base directory a relative path names nothing, and the system says so.
    if (root_.empty())
        return {};
    std::string relative = path;
    use_separator(relative);
    std::string full = root_;
    while (!full.empty() && full.back() == separator)
        full.pop_back();
    full += separator;
    return full.append(relative, std::min(relative.find_first_not_of(separator), relative.size()));
}

bool File_IO::create_directory(const std::string& path, unsigned short mode)
{
    // The umask is not changed for this: all threads share it.
    const auto created = [mode](const char* made) {
        file_system::set_directory_permissions(made, mode);
    };
    return mkdir_p(path.c_str(), mode, created) == 0 ||
           set_error("Failed to create directory", path);
}

bool File_IO::open_file(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size,
                        unsigned short creation_mode)
{
    if (is_open() && !close())
        return false;
    const bool overwrite = overwrite_ || (mode & mode_overwrite) != 0;
    const unsigned access = mode & mode_access;
    position_ = 0;
    size_ = 0;
    path_ = full_path(path);
    // Refused before a file is made that would then be in the way of the next try.
    if (offset > largest_position) {
        ACE_OS::last_error(os_error::invalid_argument);
        return set_error("Failed to seek", path_);
    }
    file_system::Status status;
    const bool there = file_system::status(path_.c_str(), true, status);
    // Opening a pipe waits for somebody at its other end, perhaps for ever.
    if (there && status.is_pipe()) {
        ACE_OS::last_error(os_error::seek_on_device);
        return set_error("Fail to open file", path_);
    }

    int flags = 0;
    switch (access) {
    case mode_read:
        size_ = there ? static_cast<std::int64_t>(status.size) : -1;
        break;
    case mode_write:
        if (!overwrite && there) {
            ACE_OS::last_error(os_error::file_exists);
            return set_error("File already exists", path_);
        }
        if (offset == 0)
            flags |= O_TRUNC;
        // Nor may a file be replaced that came into being since the look above.
        if (!overwrite)
            flags |= O_EXCL;
        break;
    case mode_append:
        if (offset != 0) {
            error_ = "Invalid offset: not supported";
            return false;
        }
        flags |= O_APPEND;
        position_ = static_cast<std::uint64_t>(size_);
        break;
    case mode_random_write:
        break;
    default:
        error_ = "Invalid open mode";
        return false;
    }

    writing_ = access != mode_read;
    bool opened = false;
    if (writing_) {
        std::string directory;
        // When this fails, so does the open, which says why.
        if (dirname_string(path_, directory, separator) && !file_system::exists(directory.c_str()))
            create_directory(directory, creation_mode);
        opened = writer_.open(path_.c_str(), flags | O_CREAT, true, file_system::share_all,
                              file_options);
        ACE_OS::last_error(writer_.last_error());
    } else {
        opened = reader_.open(path_.c_str(), flags, file_options, file_system::share_all, false);
        ACE_OS::last_error(reader_.last_error());
        buffer_pos_ = 0;
    }
    if (!opened)
        return set_error("Fail to open file", path_);
    if (seek(offset, size))
        return true;
    // The reason is recorded; closing a file that nothing was written to adds none.
    if (writing_)
        static_cast<void>(writer_.close());
    else
        reader_.close();
    return false;
}

bool File_IO::next_block(char*& data, std::int64_t& size)
{
    return (reader_.read(data, size) && size >= 0) || set_read_error();
}

bool File_IO::set_read_error()
{
    ACE_OS::last_error(reader_.last_error());
    return set_error("Failed to read", path_);
}

/// Words a failure of the system; the system error number stays as it was.
/// @return false, for the operation to return
bool File_IO::set_error(const char* what, const std::string& path)
{
    errnum_ = ACE_OS::last_error();
    error_ = format_text("%s %s, errno=%d: %s", what, path.c_str(), errnum_,
                         POSIX_Error(errnum_, 1).c_str());
    ACE_OS::last_error(errnum_);
    return false;
}
