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
    /// What became of what was there before. Each is worse than the one above it.
    enum class Change
    {
        none,
        longer,  ///< the end of a file was moved
        written, ///< some of it may be: a write that fails may have been carried out in part
        emptied,
    };

    explicit Image_Target(std::string path) : path_(std::move(path)) {}
    ~Image_Target() { (void)discard(); }
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

    [[nodiscard]] bool write(const void* data, std::uint64_t size, std::uint64_t offset,
                             Failure& failure);

    /// Completes it: what is not written becomes zero if that was asked for, and a device has it
    /// all.
    /// @param size  bytes of the source
    [[nodiscard]] bool complete(std::uint64_t size, Failure& failure);

    /// Closes what was not completed, and removes it when it is a new file: nothing would tell it
    /// from a whole one.
    /// @return false when that file is still there
    bool discard();

    /// Bytes that were written.
    std::uint64_t written() const { return written_; }
    Change change() const { return existed() ? change_ : Change::none; }

private:
    bool resize(std::uint64_t size, Change change, Failure& failure);
    bool make_zero(std::uint64_t end, Failure& failure);
    bool fail(Failure& failure);

    std::string path_;
    image_disk::Kind kind_ = image_disk::Kind::none; // as it was found
    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
    bool made_ = false; // a new file that is not complete
    Change change_ = Change::none;
    bool zero_device_ = false;  // gaps have to be made zero
    std::uint64_t settled_ = 0; // of a device: every byte before is written or was made zero
    std::uint64_t written_ = 0;
    std::uint64_t store_from_ = 0; // the system was told to store what stands before
};

} // namespace cio
