#pragma once

#include "platform/image/image_records.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

/// The encoding of a block image; docs/image_format.md has the offsets. Numbers are little-endian.
namespace qovr
{

constexpr std::size_t image_descriptor_header_size = 64; ///< bytes
constexpr std::size_t image_descriptor_record_size = 16; ///< bytes

/// Readers tell offsets as signed numbers of 64 bits.
constexpr std::uint64_t largest_image_source = std::numeric_limits<std::int64_t>::max();

/// Data blocks that a source has, the last one perhaps in part; when its size is unknown, as many
/// as there are offsets for.
[[nodiscard]] constexpr std::uint64_t source_blocks(const Image_Superblock& superblock)
{
    const std::uint64_t size =
        superblock.source_size == 0 ? largest_image_source : superblock.source_size;
    return (size - 1) / superblock.data_blk_size + 1;
}

/// How many records a descriptor block of @p size bytes holds.
[[nodiscard]] constexpr std::size_t image_record_capacity(std::size_t size)
{
    return (size - image_descriptor_header_size) / image_descriptor_record_size;
}

/// CRC-32C (Castagnoli; RFC 3720, appendix B.4).
[[nodiscard]] std::uint32_t image_checksum(std::span<const unsigned char> bytes);

void encode(const Image_Superblock& superblock,
            std::span<unsigned char, image_superblock_size> bytes);
/// @return NULL, or what is wrong with the block
[[nodiscard]] const char* decode(std::span<const unsigned char, image_superblock_size> bytes,
                                 Image_Superblock& superblock);

/// Fills a whole descriptor block; what the records leave of it becomes zeros.
void encode(const Image_Descriptor_Header& header, std::span<const Image_Record> records,
            std::span<unsigned char> block);
/// Checks all that a descriptor block tells of itself: magic, version, checksum, its count of
/// records against its size. The records are read by decode_record().
/// @return NULL, or what is wrong with the block
[[nodiscard]] const char* decode(std::span<const unsigned char> block,
                                 Image_Descriptor_Header& header);
/// Record @p number of a descriptor block.
[[nodiscard]] Image_Record decode_record(std::span<const unsigned char> block, std::size_t number);

} // namespace qovr
