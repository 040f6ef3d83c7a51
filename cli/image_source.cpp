#include "cli/image_source.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <algorithm>
#include <cstring>

namespace cio
{
namespace
{

// What was read is dropped from the page cache in pieces of this size.
constexpr std::uint64_t cache_window = 32U << 20U;

Failure open_failure()
{
    return system_failure("Failed to open local file", ACE_OS::last_error());
}

} // namespace

Image_Source::~Image_Source()
{
    if (handle_ != ACE_INVALID_HANDLE)
        ACE_OS::close(handle_);
}

bool Image_Source::open(const std::string& path, Failure& failure)
{
    // Before it is opened: opening a pipe would wait for somebody at its other end.
    const image_disk::Kind kind = image_disk::kind_of(path.c_str());
    if (kind == image_disk::Kind::other) {
        failure = {exit_failed, "Neither a file nor a block device"};
        return false;
    }
    if (kind != image_disk::Kind::none)
        handle_ = file_system::open(path.c_str(), O_RDONLY, file_system::share_all);
    const bool examined =
        handle_ != ACE_INVALID_HANDLE &&
        (kind == image_disk::Kind::device ? image_disk::device_size(handle_, size_)
                                          : file_system::status(handle_, status_));
    if (!examined) {
        failure = open_failure();
        return false;
    }
    if (kind == image_disk::Kind::file)
        size_ = status_.size;
    else
        head_ = read_head();
    return true;
}

bool Image_Source::read(char* buffer, std::uint64_t size, std::uint64_t offset, Failure& failure)
{
    const std::uint64_t there = std::min(size, size_ - std::min(size_, offset));
    const std::int64_t got = image_disk::read_at(handle_, buffer, there, offset);
    if (got < 0) {
        failure = system_failure("Failed to read local file", ACE_OS::last_error());
        return false;
    }
    if (static_cast<std::uint64_t>(got) != there) {
        failure = {exit_failed, "changed while it was read"};
        return false;
    }
    std::memset(buffer + there, 0, size - there);
    const std::uint64_t position = offset + there;
    if (position < forgotten_)
        forgotten_ = position;
    if (position - forgotten_ >= cache_window) {
        image_disk::forget(handle_, forgotten_, position - forgotten_);
        forgotten_ = position;
    }
    return true;
}

std::string Image_Source::read_head() const
{
    constexpr std::uint64_t size = 4096;
    std::string head(std::min(size, size_), '\0');
    const std::int64_t got = image_disk::read_at(handle_, head.data(), head.size(), 0);
    head.resize(got < 0 ? 0
                        : static_cast<std::size_t>(got)); // whoever reads it next meets it again
    return head;
}

bool Image_Source::is_unchanged() const
{
    if (!status_.is_file())
        return read_head() == head_;
    file_system::Status now;
    return file_system::status(handle_, now) && now.size == status_.size &&
           now.mtime == status_.mtime;
}

} // namespace cio
