#pragma once

#include "cli/failure.h"
#include "cli/image_disk.h"

#include <cstdint>
#include <string>

namespace cio
{

/// What an image is restored to: a device, a file that is there, or a new one.
///
/// Ranges that are not written keep what is there; those of a new file, or of one that was emptied,
/// are holes.
class Image_Target
{
public:
    explicit Image_Target(std::string path) : path_(std::move(path)) {}
    /// Closes it; a file that was made and not completed is removed.
    ~Image_Target();
    Image_Target(const Image_Target&) = delete;
    Image_Target& operator=(const Image_Target&) = delete;

    const std::string& path() const { return path_; }
    image_disk::Kind kind() const { return kind_; }
    /// Whether it was there before.
    bool existed() const { return kind_ != image_disk::Kind::none; }

    /// Looks what is there, and refuses what cannot be written to or, without @p overwrite, is
    /// there.
    [[nodiscard]] bool examine(bool overwrite, Failure& failure);

    /// Opens it for @p size bytes; a file that is shorter becomes so long.
    /// @param zero  every byte that is not written shall be zero
    [[nodiscard]] bool open(std::uint64_t size, bool zero, Failure& failure);
    bool is_open() const { return handle_ != ACE_INVALID_HANDLE; }

    [[nodiscard]] bool write(const void* data, std::uint64_t size, std::uint64_t offset,
                             Failure& failure);

    /// Completes it: what is not written becomes zero if that was asked for, and a device has it
    /// all.
    /// @param size  bytes of the source
    [[nodiscard]] bool complete(std::uint64_t size, Failure& failure);

    /// Bytes that were written.
    std::uint64_t written() const { return written_; }
    /// Whether what was there before is not as it was any more.
    bool is_changed() const { return existed() && (written_ > 0 || emptied_ || settled_ > 0); }

private:
    bool open_handle(std::uint64_t size, bool zero, Failure& failure);
    bool make_zero(std::uint64_t end, Failure& failure);
    bool fail(Failure& failure);
    void discard();

    std::string path_;
    image_disk::Kind kind_ = image_disk::Kind::none; // as it was found
    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
    bool emptied_ = false;      // a file that was there
    bool zero_device_ = false;  // gaps have to be made zero
    std::uint64_t settled_ = 0; // of a device: every byte before is written or was made zero
    std::uint64_t written_ = 0;
    std::uint64_t store_from_ = 0; // the system was told to store what stands before
};

} // namespace cio
