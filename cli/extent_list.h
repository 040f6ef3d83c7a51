#pragma once

#include "cli/image.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>

namespace cio
{

/// The extents of a source that are to be stored: whole data blocks, in ascending order, none of
/// which touch. Costs 16 bytes an extent.
class Extent_List
{
public:
    explicit Extent_List(std::uint64_t block_size) : block_size_(block_size) {}

    /// Adds a range, rounded outwards to whole blocks. Ranges may come in any order and overlap.
    /// @param length  1 or more; the range ends 2^63 at most
    void add(std::uint64_t offset, std::uint64_t length);
    /// To be called when all are added.
    void finish();
    void clear();

    std::span<const Extent> extents() const { return {extents_.get(), count_}; }
    std::uint64_t block_size() const { return block_size_; }
    /// Bytes of all extents, when they are finished.
    std::uint64_t bytes() const;

private:
    struct Free
    {
        void operator()(Extent* extents) const { std::free(extents); }
    };

    void append(const Extent& extent);

    std::uint64_t block_size_;
    // Not a vector, which has its elements twice while it grows: the C library moves pages instead.
    std::unique_ptr<Extent[], Free> extents_;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
    bool ascending_ = true;
};

/// Reads extents that the user has chosen: lines "OFFSET LENGTH", or JSON. Throws Usage_Error,
/// which names the line or element, for anything else.
///
/// Lines: decimal numbers or hexadecimal ones that begin with 0x; what follows a '#' and empty
/// lines do not matter. JSON: an array whose elements are {"offset": N, "length": N} or [N, N], or
/// objects one after the other, of which those of "type" "extent" are taken. So the output of `cio
/// image info` serves in both forms. A line or element has 64 KiB at most.
///
/// @param path         a file; "-" is standard input
/// @param source_size  where extents have to end at the latest
/// @return false when the program was asked to end before standard input did
[[nodiscard]] bool read_extents(const std::string& path, std::uint64_t source_size,
                                Extent_List& list);

} // namespace cio
