#include "tests/support/memory_io.h"

#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/support/this_system.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

Memory_IO::Memory_IO(std::shared_ptr<Memory_File_System> files,
                     std::shared_ptr<Violations> violations)
    : files_(std::move(files)), violations_(std::move(violations))
{}

std::int64_t Memory_IO::read(void* buf, std::uint64_t size)
{
    check_order("read", Needs::file_to_read);
    if (!check_open(false))
        return -1;
    const Memory_File_System::Node* node = files_->find(path_);
    if (node == nullptr) {
        fail("Failed to read", path_, os_error::no_such_file);
        return -1;
    }
    const std::uint64_t wanted = std::min(size, end_ - std::min(end_, position_));
    const std::uint64_t n = node->bytes.read(position_, static_cast<char*>(buf), wanted);
    position_ += n;
    return static_cast<std::int64_t>(n);
}

bool Memory_IO::write(const void* buf, std::uint64_t size)
{
    check_order("write", Needs::file_to_write);
    if (!check_open(true))
        return false;
    Memory_File_System::Node* node = files_->find(path_);
    if (node == nullptr)
        return fail("Failed to write", path_, os_error::no_such_file);
    node->bytes.write(position_, static_cast<const char*>(buf), size);
    position_ += size;
    return true;
}

std::uint64_t Memory_IO::size() const
{
    if (!open_)
        return size_unknown;
    const Memory_File_System::Node* node = files_->find(path_);
    return node == nullptr ? size_unknown : node->bytes.size();
}

bool Memory_IO::connect(const URI&, const Options& options)
{
    disconnect();
    overwrite_ = options.overwrite;
    connected_ = was_connected_ = true;
    return true;
}

bool Memory_IO::reconnect()
{
    if (violations_ && !was_connected_)
        violations_->push_back("reconnect before connect");
    if (!was_connected_)
        return fail("Never connected");
    open_ = false;
    connected_ = true;
    return true;
}

void Memory_IO::disconnect()
{
    open_ = false;
    connected_ = false;
}

bool Memory_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    check_order("open", Needs::no_file);
    if (open_ && !close())
        return false;
    const unsigned access = mode & mode_access;
    if (access < mode_read || access > mode_random_write)
        return fail("Invalid open mode");
    if (access == mode_append && offset != 0)
        return fail("Invalid offset: not supported");

    Memory_File_System::Node* node = files_->find(path);
    if (access == mode_read) {
        if (node == nullptr || node->is_dir)
            return fail("Failed to open", path,
                        node == nullptr ? files_->missing(path)
                                        : this_system::errors.open_directory);
    } else {
        const bool overwrite = overwrite_ || (mode & mode_overwrite) != 0;
        if (access == mode_write && node != nullptr && !overwrite)
            return fail("Failed to open", path, os_error::file_exists);
        if (const int number = files_->create_file(path, node); number != 0)
            return fail("Failed to open", path, number);
        if (access == mode_write && offset == 0)
            files_->begin_again(*node);
    }
    open_ = true;
    writing_ = access != mode_read;
    path_ = path;
    position_ = access == mode_append ? node->bytes.size() : offset;
    end_ = size == 0 ? size_unknown : offset + size;
    return true;
}

bool Memory_IO::close()
{
    check_order("close", Needs::file);
    if (!open_)
        return fail("Not open");
    open_ = false;
    return true;
}

bool Memory_IO::read(const void*& data, std::uint64_t& size)
{
    block_.resize(65536);
    const std::int64_t n = read(block_.data(), block_.size());
    data = block_.data();
    size = n < 0 ? 0 : static_cast<std::uint64_t>(n);
    return n >= 0;
}

bool Memory_IO::flush()
{
    check_order("flush", Needs::file_to_write);
    return check_open(true);
}

bool Memory_IO::seek(std::uint64_t offset, std::uint64_t)
{
    check_order("seek", Needs::file);
    if (!open_)
        return fail("Not open");
    position_ = offset;
    end_ = size_unknown;
    return true;
}

std::uint64_t Memory_IO::size(const char* path)
{
    check_order("size", Needs::no_file);
    const Memory_File_System::Node* node = files_->find(path);
    if (node == nullptr) {
        fail("Failed to examine", path, files_->missing(path));
        return size_unknown;
    }
    return node->is_dir ? size_of_directory : node->bytes.size();
}

bool Memory_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    check_order("get_dir", Needs::no_file);
    const int number = files_->list(path, entries);
    return number == 0 || fail("Failed to list", path, number);
}

bool Memory_IO::make_dir(const char* path, unsigned short)
{
    check_order("make_dir", Needs::no_file);
    const int number = files_->make_dir(path);
    return number == 0 || fail("Failed to create directory", path, number);
}

bool Memory_IO::truncate(const char* path, std::uint64_t size)
{
    check_order("truncate", Needs::no_file);
    Memory_File_System::Node* node = files_->find(path);
    if (node == nullptr || node->is_dir)
        return fail("Failed to truncate", path,
                    node == nullptr ? files_->missing(path) : this_system::errors.open_directory);
    node->bytes.truncate(size);
    return true;
}

bool Memory_IO::remove(const char* path)
{
    check_order("remove", Needs::no_file);
    const int number = files_->remove(path);
    return number == 0 || fail("Failed to remove", path, number);
}

bool Memory_IO::copy(const char* src, const char* dst, bool overwrite)
{
    check_order("copy", Needs::no_file);
    if (!overwrite && files_->find(dst) != nullptr)
        return fail("Failed to copy", dst, EEXIST);
    const int number = files_->copy(src, dst);
    return number == 0 || fail("Failed to copy", src, number);
}

bool Memory_IO::rename(const char* src, const char* dst, bool overwrite)
{
    check_order("rename", Needs::no_file);
    if (!overwrite && files_->find(dst) != nullptr)
        return fail("Failed to rename", dst, EEXIST);
    const int number = files_->rename(src, dst);
    return number == 0 || fail("Failed to rename", src, number);
}

std::string Memory_IO::get_config(const char* key) const
{
    const Memory_File_System::Node* node = open_ ? files_->find(path_) : nullptr;
    return node != nullptr && std::strcmp(key, "file_version") == 0 ? std::to_string(node->version)
                                                                    : std::string();
}

void Memory_IO::check_order(const char* operation, Needs needs) const
{
    if (!violations_)
        return;
    const char* violation = nullptr;
    if (!was_connected_)
        violation = "before connect";
    else if (!connected_)
        violation = "without a connection";
    else if (needs == Needs::no_file && open_)
        violation = "while a file is open";
    else if (needs >= Needs::file && !open_)
        violation = "without an open file";
    else if (needs == Needs::file_to_read && writing_)
        violation = "of a file that is open for writing";
    else if (needs == Needs::file_to_write && !writing_)
        violation = "of a file that is open for reading";
    if (violation != nullptr)
        violations_->push_back(std::string(operation) + ' ' + violation);
}

bool Memory_IO::fail(const char* text)
{
    error_ = text;
    return false;
}

bool Memory_IO::fail(const char* what, const std::string& path, int number)
{
    errnum_ = number;
    error_ = std::string(what) + ' ' + path + ": " + POSIX_Error(number, 1).str();
    return false;
}

bool Memory_IO::check_open(bool writing)
{
    if (!open_)
        return fail("Not open");
    return writing_ == writing || fail("Operation not permitted");
}
