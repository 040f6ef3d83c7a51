#include "tests/unit/image/image_bytes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <ostream>

std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t width)
{
    std::uint64_t number = 0;
    for (std::size_t i = width; i-- > 0;)
        number = number << 8U | static_cast<unsigned char>(bytes.at(at + i));
    return number;
}

void put_number(std::string& bytes, std::size_t at, std::size_t width, std::uint64_t number)
{
    for (std::size_t i = 0; i < width; ++i, number >>= 8U)
        bytes.at(at + i) = static_cast<char>(number);
}

std::uint32_t slow_crc32c(std::string_view bytes)
{
    std::uint32_t rest = 0xFFFFFFFF;
    for (const char c : bytes) {
        rest ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            rest = rest >> 1U ^ (rest % 2 == 1 ? 0x82F63B78U : 0U);
    }
    return ~rest;
}

void seal_superblock(std::string& image)
{
    const auto extra = number_at(image, image_field::extra_size, 4);
    put_number(image, image_field::extra_checksum, 4,
               slow_crc32c(std::string_view(image).substr(512, extra)));
    put_number(image, image_field::checksum, 4,
               slow_crc32c(std::string_view(image).substr(0, image_field::checksum)));
}

void seal_descriptor(std::string& image, const Descriptor_Place& place)
{
    put_number(image, place.at + descriptor_field::checksum, 4, 0);
    put_number(image, place.at + descriptor_field::checksum, 4,
               slow_crc32c(std::string_view(image).substr(place.at, place.size)));
}

std::vector<Descriptor_Place> descriptor_places(std::string_view image)
{
    std::vector<Descriptor_Place> places;
    const auto data_block = number_at(image, image_field::data_block_size, 4);
    const auto size = number_at(image, image_field::descriptor_block_size, 4);
    std::size_t extra = number_at(image, image_field::extra_size, 4);
    for (std::size_t at = 512; at < image.size(); extra = 0) {
        places.push_back({at + extra, size - extra, at + size});
        at += size + data_block * number_at(image, at + extra + descriptor_field::data_blocks, 4);
    }
    return places;
}

bool String_Image_Writer::overflow(const void* data, std::uint64_t size)
{
    pieces.emplace_back(data, size);
    if (size > room)
        return false;
    room -= size;
    image.append(static_cast<const char*>(data), size);
    return true;
}

bool String_Image_Writer::write_data_due(std::uint64_t blocks, char fill)
{
    const std::string data(blocks * data_block_size(), fill);
    return write_data(data.data(), data.size()) == static_cast<std::int64_t>(data.size());
}

qovr::Image_Options small_options()
{
    qovr::Image_Options options;
    options.data_block_size = 512;
    options.descriptor_block_size = 512;
    options.creation_time = 1234567890;
    std::fill(options.id.begin(), options.id.end(), static_cast<unsigned char>(0xA5));
    return options;
}

std::ostream& operator<<(std::ostream& out, const Range& range)
{
    return out << range.offset << '+' << range.count;
}

std::string written_image(const qovr::Image_Options& options,
                          const std::vector<std::vector<Range>>& batches, std::uint64_t announced,
                          bool ended)
{
    String_Image_Writer writer;
    EXPECT_TRUE(writer.set_options(options));
    if (announced != qovr::unknown_block_count)
        writer.announce_data_blocks(announced);
    EXPECT_TRUE(writer.write_descriptor_header(0, "SDD1"));
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < batches.size(); ++i) {
        std::uint64_t blocks = 0;
        for (const Range& range : batches[i]) {
            EXPECT_EQ(writer.write_descriptor_record(range.offset, range.count),
                      static_cast<std::int64_t>(range.count));
            blocks += range.count;
        }
        const bool is_last = i + 1 == batches.size();
        if (!is_last && writer.state() == qovr::Image_Writer::records_due) {
            EXPECT_TRUE(writer.end_batch());
        }
        if (is_last && ended) {
            EXPECT_EQ(writer.write_descriptor_record(0, 0), 0);
        }
        for (; blocks > 0; --blocks, ++number)
            EXPECT_TRUE(writer.write_data_due(1, static_cast<char>('a' + number % 26)));
    }
    return writer.image;
}

std::string two_descriptor_image()
{
    return written_image(small_options(), {{{10, 1}}, {{20, 2}}}, 3, true);
}

bool Parse_Log::note(const std::string& event)
{
    events.push_back(event);
    return event != refused;
}

bool Parse_Log::handle_superblock(const qovr::Image_Parser::Superblock& super)
{
    superblock = super;
    return note("superblock");
}

bool Parse_Log::handle_superblock_extra(const void* extra, std::uint64_t size)
{
    return note("extra " + std::string(static_cast<const char*>(extra), size));
}

bool Parse_Log::handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& header)
{
    headers.push_back(header);
    return note("header " + std::to_string(header.data_blocks));
}

bool Parse_Log::handle_descriptor_record(std::uint64_t block_offset, std::uint64_t block_count)
{
    return note("record " + std::to_string(block_offset) + ' ' + std::to_string(block_count));
}

bool Parse_Log::handle_data(const void* piece, std::uint64_t size)
{
    EXPECT_GT(size, 0U);
    data.append(static_cast<const char*>(piece), size);
    if (!events.empty() && events.back() == "data")
        events.pop_back();
    return note("data");
}

Parse_Result parse_image(std::string_view image, qovr::Image_Parser::Callback& callback,
                         std::uint64_t piece, bool without_data, std::uint64_t largest_block)
{
    qovr::Image_Parser parser(&callback, without_data, largest_block);
    Parse_Result result;
    bool parsed_all = true;
    while (parsed_all && result.parsed < image.size()) {
        // Of its exact size, so that a sanitizer sees reads behind it.
        const std::string_view rest = image.substr(result.parsed, piece);
        const std::vector<char> bytes(rest.begin(), rest.end());
        std::uint64_t parsed = 0;
        parsed_all = parser.parse(bytes.data(), bytes.size(), parsed);
        EXPECT_EQ(parsed_all, parsed == bytes.size());
        result.parsed += parsed;
    }
    result.whole = parsed_all && parser.complete();
    result.state = parser.state();
    result.error = parser.error();
    return result;
}

std::string refusal(std::string_view image)
{
    Parse_Log log;
    const Parse_Result result = parse_image(image, log);
    if (result.whole)
        return "";
    return result.state == qovr::Image_Parser::failed ? result.error : "incomplete";
}
