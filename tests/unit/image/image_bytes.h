#pragma once

#include "platform/image/image_parser.h"
#include "platform/image/image_writer.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Images as strings: written, parsed, and changed in single fields.

/// Where fields of an image stand; those of a descriptor block from its own start.
namespace image_field
{
constexpr std::size_t version = 8;
constexpr std::size_t after_version = 10;
constexpr std::size_t superblock_size = 12;
constexpr std::size_t id = 16;
constexpr std::size_t source_size = 32;
constexpr std::size_t data_blocks = 40;
constexpr std::size_t data_block_size = 48;
constexpr std::size_t descriptor_block_size = 52;
constexpr std::size_t extra_size = 64;
constexpr std::size_t extra_checksum = 68;
constexpr std::size_t room = 72;
constexpr std::size_t checksum = 508;
} // namespace image_field

namespace descriptor_field
{
constexpr std::size_t version = 4;
constexpr std::size_t continuation = 6;
constexpr std::size_t records = 8;
constexpr std::size_t data_blocks = 12;
constexpr std::size_t sequence = 16;
constexpr std::size_t id = 24;
constexpr std::size_t room = 40;
constexpr std::size_t checksum = 60;
constexpr std::size_t first_record = 64;
} // namespace descriptor_field

std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t width);
void put_number(std::string& bytes, std::size_t at, std::size_t width, std::uint64_t number);

/// CRC-32C, bit by bit.
std::uint32_t slow_crc32c(std::string_view bytes);

/// Makes the super block's checksum right; that of the extra area as well.
void seal_superblock(std::string& image);

/// The place of a descriptor block in an image.
struct Descriptor_Place
{
    std::size_t at = 0;   ///< of its magic
    std::size_t size = 0; ///< bytes
    std::size_t data = 0; ///< where its data begin
};

/// Makes a descriptor block's checksum right.
void seal_descriptor(std::string& image, const Descriptor_Place& place);
/// The descriptor blocks, as the image's own numbers tell their places.
std::vector<Descriptor_Place> descriptor_places(std::string_view image);

/// An Image_Writer whose image is a string.
class String_Image_Writer : public qovr::Image_Writer
{
public:
    bool overflow(const void* data, std::uint64_t size) override;

    /// Writes data blocks that are due, full of @p fill.
    bool write_data_due(std::uint64_t blocks, char fill = 'd');

    std::string image;
    std::uint64_t room = ~std::uint64_t{0}; ///< bytes that are taken before everything fails
    std::vector<std::pair<const void*, std::uint64_t>> pieces; ///< as they came
};

/// Options for small images: blocks of 512 bytes, a fixed id and time.
qovr::Image_Options small_options();

/// A run of data blocks, or of bytes.
struct Range
{
    std::uint64_t offset = 0;
    std::uint64_t count = 0;

    bool operator==(const Range&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Range& range);

/// A whole image of batches of runs in blocks of options.data_block_size bytes. The data of a block
/// are the letter of its number in the image, from 'a' to 'z' and again.
/// @param announced  data blocks, unknown_block_count = not announced
/// @param ended      by (0, 0) behind the last batch, which has to have room then
std::string written_image(const qovr::Image_Options& options,
                          const std::vector<std::vector<Range>>& batches, std::uint64_t announced,
                          bool ended);
/// Three blocks in two descriptor blocks, the second one ended, of small_options().
std::string two_descriptor_image();

/// Notes what a parser reports.
class Parse_Log : public qovr::Image_Parser::Callback
{
public:
    bool handle_superblock(const qovr::Image_Parser::Superblock& super) override;
    bool handle_superblock_extra(const void* data, std::uint64_t size) override;
    bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& header) override;
    bool handle_descriptor_record(std::uint64_t block_offset, std::uint64_t block_count) override;
    bool handle_data(const void* data, std::uint64_t size) override;

    /// In order: "superblock", "extra TEXT", "header BLOCKS", "record OFFSET COUNT", "data". Data
    /// that come one piece after the other stand there once.
    std::vector<std::string> events;
    std::string data;
    qovr::Image_Superblock superblock;
    std::vector<qovr::Image_Descriptor_Header> headers;
    std::string refused; ///< the event that is answered with false

private:
    bool note(const std::string& event);
};

struct Parse_Result
{
    bool whole = false; ///< every byte was parsed, and the image may end there
    std::uint64_t parsed = 0;
    int state = 0;
    std::string error;
};

/// Parses in pieces of @p piece bytes at most.
Parse_Result parse_image(std::string_view image, qovr::Image_Parser::Callback& callback,
                         std::uint64_t piece = ~std::uint64_t{0}, bool without_data = false,
                         std::uint64_t largest_block = 0);
/// Why an image is refused: the parser's reason, "incomplete", or "" when it is not refused.
std::string refusal(std::string_view image);
