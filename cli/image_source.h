#pragma once

#include "cli/failure.h"
#include "cli/image.h"
#include "cli/image_disk.h"
#include "platform/runtime/file_system.h"

#include <cstdint>
#include <optional>
#include <string>

namespace cio
{

/// A disk, a partition or an image file that is read at any place.
class Image_Source
{
public:
    Image_Source() = default;
    ~Image_Source();
    Image_Source(const Image_Source&) = delete;
    Image_Source& operator=(const Image_Source&) = delete;

    [[nodiscard]] bool open(const std::string& path, Failure& failure);

    ACE_HANDLE handle() const { return handle_; }
    /// Bytes, as it was opened.
    std::uint64_t size() const { return size_; }
    /// What was opened; zeros for a device.
    const file_system::Status& status() const { return status_; }

    bool is_device() const { return !status_.is_file(); }

    /// Reads exactly @p size bytes; those behind the end of the source are zeros.
    [[nodiscard]] bool read(char* buffer, std::uint64_t size, std::uint64_t offset,
                            Failure& failure);

    /// The next range at or behind @p offset that may hold data; nothing when only a hole is left.
    [[nodiscard]] std::optional<Extent> next_data(std::uint64_t offset) const
    {
        return offset < size_ ? image_disk::next_data(handle_, offset, size_) : std::nullopt;
    }

    /// Whether it looks as it did when it was opened: a file by its size and time; a device, which
    /// has no such, by its first bytes, which most file systems change when they are mounted.
    [[nodiscard]] bool is_unchanged() const;

private:
    std::string read_head() const;

    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
    std::uint64_t size_ = 0;
    file_system::Status status_;
    std::string head_;            // of a device
    std::uint64_t forgotten_ = 0; // the page cache was asked to forget up to here
};

} // namespace cio
