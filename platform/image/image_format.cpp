#include "platform/image/image_format.h"

#include <algorithm>
#include <bit>
#include <boost/crc.hpp>
#include <cstring>

namespace qovr
{
namespace
{

constexpr char superblock_magic[] = "CIOIMAGE";

// Where the fields stand.
namespace at
{
constexpr std::size_t format_version = 8;
constexpr std::size_t superblock_size = 12;
constexpr std::size_t id = 16;
constexpr std::size_t source_size = 32;
constexpr std::size_t data_blocks = 40;
constexpr std::size_t data_blk_size = 48;
constexpr std::size_t desc_blk_size = 52;
constexpr std::size_t creation_time = 56;
constexpr std::size_t extra_size = 64;
constexpr std::size_t extra_checksum = 68;
constexpr std::size_t superblock_room = 72;
constexpr std::size_t superblock_checksum = 508;
} // namespace at

namespace at_descriptor
{
constexpr std::size_t version = 4;
constexpr std::size_t continuation = 6;
constexpr std::size_t records = 8;
constexpr std::size_t data_blocks = 12;
constexpr std::size_t sequence = 16;
constexpr std::size_t id = 24;
constexpr std::size_t room = 40;
constexpr std::size_t checksum = 60;
} // namespace at_descriptor

template <class Number>
void put(unsigned char* to, Number number)
{
    for (std::size_t i = 0; i < sizeof number; ++i)
        to[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(number) >> (8 * i));
}

template <class Number>
Number get(const unsigned char* from)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        number |= std::uint64_t{from[i]} << (8 * i);
    return static_cast<Number>(number);
}

bool is_zero(std::span<const unsigned char> bytes)
{
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char c) { return c == 0; });
}

using Checksum = boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true>;

/// Over the whole block, its own field taken as zeros.
std::uint32_t descriptor_checksum(std::span<const unsigned char> block)
{
    constexpr unsigned char zeros[sizeof(std::uint32_t)] = {};
    Checksum checksum;
    checksum.process_bytes(block.data(), at_descriptor::checksum);
    checksum.process_bytes(zeros, sizeof zeros);
    checksum.process_bytes(block.data() + image_descriptor_header_size,
                           block.size() - image_descriptor_header_size);
    return checksum.checksum();
}

} // namespace

bool is_image_block_size(std::uint64_t size)
{
    return std::has_single_bit(size) && size >= smallest_image_block && size <= largest_image_block;
}

std::uint64_t largest_image_extra(std::uint64_t desc_blk_size)
{
    return desc_blk_size - image_descriptor_header_size - image_descriptor_record_size;
}

std::uint32_t image_checksum(std::span<const unsigned char> bytes)
{
    Checksum checksum;
    checksum.process_bytes(bytes.data(), bytes.size());
    return checksum.checksum();
}

void encode(const Image_Superblock& superblock,
            std::span<unsigned char, image_superblock_size> bytes)
{
    std::fill(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    unsigned char* const to = bytes.data();
    std::memcpy(to, superblock_magic, sizeof superblock_magic - 1);
    put(to + at::format_version, image_version);
    put(to + at::superblock_size, static_cast<std::uint32_t>(image_superblock_size));
    std::copy(superblock.id.begin(), superblock.id.end(), to + at::id);
    put(to + at::source_size, superblock.source_size);
    put(to + at::data_blocks, superblock.data_blocks);
    put(to + at::data_blk_size, static_cast<std::uint32_t>(superblock.data_blk_size));
    put(to + at::desc_blk_size, static_cast<std::uint32_t>(superblock.desc_blk_size));
    put(to + at::creation_time, superblock.creation_time);
    put(to + at::extra_size, superblock.extra_size);
    put(to + at::extra_checksum, superblock.extra_checksum);
    put(to + at::superblock_checksum, image_checksum(bytes.first(at::superblock_checksum)));
}

const char* decode(std::span<const unsigned char, image_superblock_size> bytes,
                   Image_Superblock& superblock)
{
    const unsigned char* const from = bytes.data();
    if (std::memcmp(from, superblock_magic, sizeof superblock_magic - 1) != 0)
        return "not a block image";
    if (image_checksum(bytes.first(at::superblock_checksum)) !=
        get<std::uint32_t>(from + at::superblock_checksum))
        return "wrong checksum of the super block";
    if (get<std::uint16_t>(from + at::format_version) != image_version)
        return "unknown version of the format";
    std::copy_n(from + at::id, superblock.id.size(), superblock.id.begin());
    superblock.source_size = get<std::uint64_t>(from + at::source_size);
    superblock.data_blocks = get<std::uint64_t>(from + at::data_blocks);
    superblock.data_blk_size = get<std::uint32_t>(from + at::data_blk_size);
    superblock.desc_blk_size = get<std::uint32_t>(from + at::desc_blk_size);
    superblock.creation_time = get<std::int64_t>(from + at::creation_time);
    superblock.extra_size = get<std::uint32_t>(from + at::extra_size);
    superblock.extra_checksum = get<std::uint32_t>(from + at::extra_checksum);
    const auto room =
        bytes.subspan(at::superblock_room, at::superblock_checksum - at::superblock_room);
    if (get<std::uint32_t>(from + at::superblock_size) != image_superblock_size ||
        get<std::uint16_t>(from + at::format_version + 2) != 0 || !is_zero(room))
        return "fields in the super block that this version does not have";
    if (!is_image_block_size(superblock.data_blk_size) ||
        !is_image_block_size(superblock.desc_blk_size))
        return "a size of blocks that the format does not have";
    if (superblock.extra_size > largest_image_extra(superblock.desc_blk_size))
        return "an extra area that is too large";
    if (superblock.extra_size == 0 && superblock.extra_checksum != 0)
        return "a checksum of an extra area that is not there";
    return nullptr;
}

void encode(const Image_Descriptor_Header& header, std::span<const Image_Record> records,
            std::span<unsigned char> block)
{
    std::fill(block.begin(), block.end(), static_cast<unsigned char>(0));
    unsigned char* const to = block.data();
    std::memcpy(to, image_descriptor_magic, sizeof image_descriptor_magic - 1);
    put(to + at_descriptor::version, image_descriptor_version);
    put(to + at_descriptor::continuation, static_cast<std::uint16_t>(header.continuation));
    put(to + at_descriptor::records, header.records);
    put(to + at_descriptor::data_blocks, header.data_blocks);
    put(to + at_descriptor::sequence, header.sequence);
    std::copy(header.id.begin(), header.id.end(), to + at_descriptor::id);
    unsigned char* record_to = to + image_descriptor_header_size;
    for (const Image_Record& record : records) {
        put(record_to, record.offset);
        put(record_to + sizeof record.offset, record.count);
        record_to += image_descriptor_record_size;
    }
    put(to + at_descriptor::checksum, descriptor_checksum(block));
}

const char* decode(std::span<const unsigned char> block, Image_Descriptor_Header& header)
{
    const unsigned char* const from = block.data();
    if (std::memcmp(from, image_descriptor_magic, sizeof image_descriptor_magic - 1) != 0)
        return "no descriptor block where one is due";
    if (descriptor_checksum(block) != get<std::uint32_t>(from + at_descriptor::checksum))
        return "wrong checksum of a descriptor block";
    if (get<std::uint16_t>(from + at_descriptor::version) != image_descriptor_version)
        return "unknown version of a descriptor block";
    header.records = get<std::uint32_t>(from + at_descriptor::records);
    header.data_blocks = get<std::uint32_t>(from + at_descriptor::data_blocks);
    header.sequence = get<std::uint64_t>(from + at_descriptor::sequence);
    std::copy_n(from + at_descriptor::id, header.id.size(), header.id.begin());
    const auto continuation = get<std::uint16_t>(from + at_descriptor::continuation);
    const auto room =
        block.subspan(at_descriptor::room, at_descriptor::checksum - at_descriptor::room);
    if (continuation > static_cast<std::uint16_t>(Image_Continuation::may_stop) || !is_zero(room))
        return "fields in a descriptor block that this version does not have";
    header.continuation = static_cast<Image_Continuation>(continuation);
    if (header.records == 0 || header.records > image_record_capacity(block.size()))
        return "a count of records that does not fit the descriptor block";
    return nullptr;
}

Image_Record decode_record(std::span<const unsigned char> block, std::size_t number)
{
    const unsigned char* const from =
        block.data() + image_descriptor_header_size + number * image_descriptor_record_size;
    return {get<std::uint64_t>(from), get<std::uint64_t>(from + sizeof(std::uint64_t))};
}

} // namespace qovr
