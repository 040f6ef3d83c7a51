#pragma once

#include "platform/runtime/export.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// What a block image consists of; docs/image_format.md has the bytes.
namespace qovr
{

constexpr std::uint16_t image_version = 1;               ///< of the format
constexpr std::size_t image_superblock_size = 512;       ///< bytes
constexpr std::uint64_t smallest_image_block = 512;      ///< bytes, of both kinds of blocks
constexpr std::uint64_t largest_image_block = 1U << 24U; ///< bytes, 16 MiB
constexpr std::uint64_t default_image_block = 1U << 16U; ///< bytes, 64 KiB
constexpr std::uint64_t unknown_block_count = ~std::uint64_t{0};
/// A descriptor block announces no more data blocks than this.
constexpr std::uint64_t most_blocks_of_descriptor = 0xFFFFFFFF;
constexpr char image_descriptor_magic[] = "SDD1";
constexpr std::uint16_t image_descriptor_version = 0;

using Image_Id = std::array<unsigned char, 16>;

/// What stands at the start of an image and holds for all of it.
struct Image_Superblock
{
    Image_Id id{};                                     ///< told apart by it: each image has its own
    std::uint64_t source_size = 0;                     ///< bytes of what was saved, 0 = unknown
    std::uint64_t data_blocks = unknown_block_count;   ///< that the image holds
    std::uint64_t desc_blk_size = default_image_block; ///< bytes of one descriptor block
    std::uint64_t data_blk_size = default_image_block; ///< bytes of one data block
    std::int64_t creation_time = 0;                    ///< POSIX seconds (UTC)
    std::uint32_t extra_size = 0;                      ///< bytes of the extra area
    std::uint32_t extra_checksum = 0;                  ///< CRC-32C of the extra area
};

/// Whether more descriptor blocks stand behind one.
enum class Image_Continuation : std::uint16_t
{
    more = 0,     ///< at least one
    last = 1,     ///< none: the list of records was ended behind it
    may_stop = 2, ///< its list was full; the writer did not know yet
};

/// The head of a descriptor block.
struct Image_Descriptor_Header
{
    std::uint32_t data_blocks = 0; ///< that follow the descriptor block
    std::uint32_t records = 0;
    std::uint64_t sequence = 0; ///< number of the descriptor block in its image, from 0
    Image_Continuation continuation = Image_Continuation::more;
    Image_Id id{}; ///< of the image
};

/// One run of data blocks; both numbers count data blocks.
struct Image_Record
{
    std::uint64_t offset = 0; ///< in the source
    std::uint64_t count = 0;
};

/// Whether a block of either kind may have this size: a power of two in the bounds above.
[[nodiscard]] CLIENT_IO_EXPORT bool is_image_block_size(std::uint64_t size);

/// Bytes at the head of the first descriptor block's place that an extra area may take: it leaves
/// room for a header and one record.
[[nodiscard]] CLIENT_IO_EXPORT std::uint64_t largest_image_extra(std::uint64_t desc_blk_size);

} // namespace qovr
