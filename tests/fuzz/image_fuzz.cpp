#include "client_io/image_block_reader.h"
#include "platform/image/image_format.h"
#include "tests/fuzz/bytes_io.h"
#include "tests/support/allocation_count.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using qovr::Image_Parser;
using Bytes = std::vector<std::uint8_t>;

/// Larger blocks are refused: an input of this length could not hold one.
constexpr std::uint64_t largest_block = 65536;

void expect(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

std::uint32_t number_at(const Bytes& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;)
        number = number << 8U | bytes[at + i];
    return number;
}

void put_number(Bytes& bytes, std::size_t at, std::uint32_t number)
{
    for (std::size_t i = 0; i < 4; ++i, number >>= 8U)
        bytes[at + i] = static_cast<std::uint8_t>(number);
}

std::uint32_t checksum(const Bytes& bytes, std::size_t at, std::size_t size)
{
    return qovr::image_checksum({bytes.data() + at, size});
}

/// Makes every checksum right that the image's own numbers lead to: no fuzzer guesses them.
void repair(Bytes& image)
{
    constexpr std::size_t data_block_at = 48;
    constexpr std::size_t descriptor_block_at = 52;
    constexpr std::size_t extra_size_at = 64;
    constexpr std::size_t extra_checksum_at = 68;
    constexpr std::size_t superblock_checksum_at = 508;
    constexpr std::size_t blocks_at = 12;
    constexpr std::size_t descriptor_checksum_at = 60;

    if (image.size() < qovr::image_superblock_size)
        return;
    const std::uint64_t data_block = number_at(image, data_block_at);
    const std::uint64_t descriptor_block = number_at(image, descriptor_block_at);
    std::uint64_t extra = number_at(image, extra_size_at);
    std::uint64_t at = qovr::image_superblock_size;
    if (extra <= image.size() - at)
        put_number(image, extra_checksum_at, checksum(image, at, extra));
    put_number(image, superblock_checksum_at, checksum(image, 0, superblock_checksum_at));
    while (descriptor_block >= extra + qovr::image_descriptor_header_size && at < image.size() &&
           descriptor_block <= image.size() - at)
    {
        const std::uint64_t start = at + extra;
        const std::uint64_t size = descriptor_block - extra;
        put_number(image, start + descriptor_checksum_at, 0);
        put_number(image, start + descriptor_checksum_at, checksum(image, start, size));
        at += descriptor_block + data_block * number_at(image, start + blocks_at);
        extra = 0;
    }
}

/// What a parser reports, checked while it does.
class Report : public Image_Parser::Callback
{
public:
    bool handle_superblock(const Image_Parser::Superblock& super) override
    {
        expect(events.empty(), "the super block comes first");
        expect(super.data_blk_size <= largest_block && super.desc_blk_size <= largest_block,
               "the limit of block sizes holds");
        expect(super.data_blocks != 0, "an image holds a data block");
        superblock = super;
        events.push_back("superblock");
        return true;
    }
    bool handle_superblock_extra(const void* extra, std::uint64_t size) override
    {
        expect(events.size() == 1 && size == superblock.extra_size,
               "the extra area comes second, and whole");
        events.emplace_back(static_cast<const char*>(extra), size);
        return true;
    }
    bool handle_descriptor_header(const Image_Parser::Descriptor_Header& header) override
    {
        expect(!events.empty() && records_due == 0, "a descriptor block has all its records");
        expect(header.sequence == sequence++, "descriptor blocks come in their turn");
        expect(header.id == superblock.id, "descriptor blocks belong to the image");
        expect(header.records > 0 && header.data_blocks > 0, "a descriptor block is not empty");
        records_due = header.records;
        run_end = 0;
        blocks_recorded = 0;
        data_blocks += header.data_blocks;
        blocks_announced = header.data_blocks;
        events.push_back("header " + std::to_string(header.data_blocks));
        return true;
    }
    bool handle_descriptor_record(std::uint64_t offset, std::uint64_t count) override
    {
        expect(records_due-- > 0, "no more records than the header counts");
        expect(count > 0 && offset >= run_end && offset + count > offset, "records ascend");
        run_end = offset + count;
        expect(run_end <= qovr::source_blocks(superblock), "a record lies in the source");
        blocks_recorded += count;
        if (records_due == 0)
            expect(blocks_recorded == blocks_announced, "records and header agree");
        events.push_back(std::to_string(offset) + '+' + std::to_string(count));
        return true;
    }
    bool handle_data(const void* piece, std::uint64_t size) override
    {
        expect(size > 0 && records_due == 0, "data come behind the records");
        data.append(static_cast<const char*>(piece), size);
        expect(data.size() <= data_blocks * superblock.data_blk_size, "no more than announced");
        return true;
    }

    std::vector<std::string> events; ///< all but data
    std::string data;
    Image_Parser::Superblock superblock;
    std::uint64_t data_blocks = 0; ///< that headers announced
    std::uint64_t sequence = 0;

private:
    std::uint64_t records_due = 0;
    std::uint64_t run_end = 0;
    std::uint64_t blocks_announced = 0;
    std::uint64_t blocks_recorded = 0;
};

/// Says yes, and needs no memory.
class Silent : public Image_Parser::Callback
{
public:
    bool handle_superblock(const Image_Parser::Superblock&) override { return true; }
    bool handle_superblock_extra(const void*, std::uint64_t) override { return true; }
    bool handle_descriptor_header(const Image_Parser::Descriptor_Header&) override { return true; }
    bool handle_descriptor_record(std::uint64_t, std::uint64_t) override { return true; }
    bool handle_data(const void*, std::uint64_t) override { return true; }
};

struct Outcome
{
    bool parsed_all = false;
    bool complete = false;
    std::string error;

    bool operator==(const Outcome&) const = default;
};

Outcome parse(const Bytes& image, std::size_t piece, bool without_data,
              Image_Parser::Callback& callback)
{
    Image_Parser parser(&callback, without_data, largest_block);
    Outcome outcome;
    outcome.parsed_all = true;
    for (std::size_t at = 0; at < image.size() && outcome.parsed_all;) {
        const std::size_t n = std::min(piece, image.size() - at);
        std::uint64_t parsed = 0;
        outcome.parsed_all = parser.parse(image.data() + at, n, parsed);
        expect(outcome.parsed_all ? parsed == n : parsed <= n, "all is taken, or it failed");
        expect(outcome.parsed_all == (parser.state() != Image_Parser::failed),
               "the state tells a failure");
        at += n;
    }
    outcome.complete = parser.complete();
    outcome.error = parser.error();
    expect(outcome.parsed_all == outcome.error.empty(), "what is refused has a reason");
    expect(outcome.parsed_all || !outcome.complete, "what is refused is not complete");
    return outcome;
}

/// The image as one reads it who passes over the data by seeking.
Bytes without_data(const Bytes& image, const Report& report)
{
    const std::uint64_t data_block = report.superblock.data_blk_size;
    const std::uint64_t descriptor_block = report.superblock.desc_blk_size;
    Bytes rest(image.begin(), image.begin() + qovr::image_superblock_size);
    auto from = image.begin() + qovr::image_superblock_size;
    for (const std::string& event : report.events)
        if (event.starts_with("header ")) {
            rest.insert(rest.end(), from, from + static_cast<std::ptrdiff_t>(descriptor_block));
            from += static_cast<std::ptrdiff_t>(
                descriptor_block + data_block * std::strtoull(event.c_str() + 7, nullptr, 10));
        }
    return rest;
}

/// A facade over given bytes.
class Facade : public Client_IO
{
public:
    Facade(const Bytes& bytes, std::size_t piece)
    {
        Options options;
        options.max_retry = 0;
        expect(connect_stack(std::make_unique<Bytes_IO>(bytes.data(), bytes.size(), piece),
                             PROTOCOL_FILE, URI(), options, options) &&
                   Client_IO::open("image", mode_read, 0, 0),
               "opening succeeds");
    }
};

/// Every form of reading accepts what the parser accepts, and delivers the same.
void check_readers(const Bytes& image, std::size_t piece, const Outcome& outcome,
                   const Report& report)
{
    for (int form = 0; form < 3; ++form) {
        Facade io(image, piece);
        Image_Block_Reader reader;
        std::string data;
        const auto take = [&](const void* bytes, std::uint64_t size, std::int64_t offset) {
            expect(offset >= 0, "offsets are not negative");
            data.append(static_cast<const char*>(bytes), size);
            return true;
        };
        bool ok = false;
        if (form == 0)
            ok = reader.read_blocks(io, take);
        else if (form == 1)
            ok = reader.read_blocks(io, take, 0);
        else
            ok = reader.read_blocks_align(io, take, 0);
        expect(ok == (outcome.parsed_all && outcome.complete), "the forms of reading agree");
        if (ok)
            expect(data == report.data, "every form delivers the same");
    }
}

} // namespace

/// The first byte of the input chooses lengths, and whether checksums are repaired (odd) or stay;
/// the rest is the image.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t piece = 1 + std::size_t{data[0]} * data[0];
    Bytes image(data + 1, data + size);
    if (data[0] % 2 == 1)
        repair(image);

    Report whole;
    const Outcome outcome = parse(image, SIZE_MAX, false, whole);
    for (const std::size_t split : {std::size_t{1}, piece}) {
        Report again;
        expect(parse(image, split, false, again) == outcome && again.events == whole.events &&
                   again.data == whole.data,
               "in pieces the image is the same");
    }
    {
        Silent silent;
        const Allocation_Count memory;
        parse(image, piece, false, silent);
        // Beside one block, texts of failures.
        expect(memory.bytes() <= largest_block + 512, "no more memory than one block");
    }
    if (outcome.complete) {
        expect(whole.data.size() == whole.data_blocks * whole.superblock.data_blk_size,
               "a complete image holds what its headers announce");
        Report shorter;
        expect(parse(without_data(image, whole), piece, true, shorter).complete &&
                   shorter.events == whole.events && shorter.data.empty(),
               "without its data the image is the same");
    }
    // Of an image with larger blocks they know no limit.
    if (outcome.error != "blocks that are larger than the reader allows")
        check_readers(image, piece, outcome, whole);
    return 0;
}
