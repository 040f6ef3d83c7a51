#include "cli/image_target.h"

#include "cli/interrupt.h"
#include "platform/runtime/file_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <algorithm>
#include <utility>
#include <vector>

namespace cio
{
namespace
{

// A device is given what was written in pieces of this size, so that the end does not wait for all.
constexpr std::uint64_t cache_window = 32U << 20U;

} // namespace

bool Image_Target::examine(bool overwrite, Failure& failure)
{
    kind_ = image_disk::kind_of(path_.c_str());
    if (!existed() && !file_system::exists(path_.c_str()))
        return true; // and if it is there nevertheless, making it fails
    if (!overwrite)
        failure = {exit_exists, "File already exists"};
    else if (kind_ == image_disk::Kind::other)
        failure = {exit_failed, "Neither a file nor a block device"};
    else
        return true;
    return false;
}

bool Image_Target::open(std::uint64_t size, bool zero, Failure& failure)
{
    handle_ = image_disk::open_for_writing(path_.c_str(), kind_);
    if (handle_ == ACE_INVALID_HANDLE) {
        failure = system_failure("Failed to open local file", ACE_OS::last_error());
        return false;
    }
    made_ = !existed();
    if (kind_ == image_disk::Kind::device) {
        std::uint64_t room = 0;
        if (!image_disk::device_size(handle_, room))
            return fail(failure);
        if (room < size) {
            failure = {exit_failed, "Is smaller than the source: " + std::to_string(room) +
                                        " bytes, " + std::to_string(size) + " are needed"};
            return false;
        }
        zero_device_ = zero;
        return true;
    }
    file_system::Status status;
    if (!file_system::status(handle_, status))
        return fail(failure);
    if (zero && status.size != 0 && !resize(0, Change::emptied, failure))
        return false;
    const std::uint64_t there = zero ? 0 : status.size;
    return there >= size || resize(size, Change::longer, failure);
}

bool Image_Target::resize(std::uint64_t size, Change change, Failure& failure)
{
    if (!image_disk::set_file_size(handle_, size))
        return fail(failure);
    change_ = std::max(change_, change);
    return true;
}

bool Image_Target::write(const void* data, std::uint64_t size, std::uint64_t offset,
                         Failure& failure)
{
    if (zero_device_ && offset > settled_ && !make_zero(offset, failure))
        return false;
    change_ = std::max(change_, Change::written);
    if (!image_disk::write_at(handle_, data, size, offset))
        return fail(failure);
    settled_ = std::max(settled_, offset + size);
    written_ += size;
    if (kind_ != image_disk::Kind::device)
        return true;
    store_from_ = std::min(store_from_, offset + size);
    if (offset + size - store_from_ >= cache_window) {
        image_disk::store(handle_, store_from_, offset + size - store_from_);
        image_disk::forget(handle_, 0, store_from_); // the disk had a window's time to take it
        store_from_ = offset + size;
    }
    return true;
}

/// Makes a device zero from where it is settled to @p end.
bool Image_Target::make_zero(std::uint64_t end, Failure& failure)
{
    constexpr std::uint64_t page = 4096; // the quick way takes whole sectors only
    const std::uint64_t whole = end - end % page;
    change_ = std::max(change_, Change::written);
    if (whole > settled_ && image_disk::make_zero(handle_, settled_, whole - settled_))
        settled_ = whole;
    const std::vector<char> zeros(1U << 20U);
    while (settled_ < end && !interrupt::requested()) {
        const std::uint64_t n = std::min<std::uint64_t>(zeros.size(), end - settled_);
        if (!image_disk::write_at(handle_, zeros.data(), n, settled_))
            return fail(failure);
        settled_ += n;
    }
    return settled_ == end;
}

bool Image_Target::complete(std::uint64_t size, Failure& failure)
{
    if (zero_device_ && size > settled_ && !make_zero(size, failure))
        return false;
    if (kind_ == image_disk::Kind::device && !image_disk::sync(handle_))
        return fail(failure);
    if (ACE_OS::close(std::exchange(handle_, ACE_INVALID_HANDLE)) != 0)
        return fail(failure);
    made_ = false;
    return true;
}

bool Image_Target::discard()
{
    if (handle_ != ACE_INVALID_HANDLE)
        ACE_OS::close(std::exchange(handle_, ACE_INVALID_HANDLE));
    made_ = made_ && !file_system::remove(path_.c_str()) && file_system::exists(path_.c_str());
    return !made_;
}

bool Image_Target::fail(Failure& failure)
{
    failure = system_failure("Failed to write", ACE_OS::last_error());
    return false;
}

} // namespace cio
