#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <lzo/lzo1x.h>
#include <new>

#include "platform/lzop/lzop_big_endian.h"
#include "platform/lzop/lzop_checksum.h"
#include "platform/lzop/lzop_header.h"
#include "platform/lzop/lzop_state.h"

namespace
{

// In the place of a block's size: the file goes on in another one.
constexpr std::uint32_t split_mark = 0xffffffff;
// An LZO1X instruction makes fewer bytes than this of each of its own.
constexpr std::size_t most_expansion = 255;

class Decompressor : public Lzop_State
{
public:
    [[nodiscard]] int decompress(Lzop_Stream& stream, bool end) noexcept override;

private:
    enum class Progress
    {
        made,
        needs_input,
        needs_room,
        failed ///< error_ says how
    };
    enum class Part
    {
        magic,
        header,
        extra_field_size,
        extra_field,
        extra_field_checksum,
        block_sizes,
        block_checksums,
        block_data
    };
    struct Block
    {
        std::uint32_t size = 0; ///< of the plain data
        std::uint32_t compressed_size = 0;
        unsigned checksums_size = 0;

        [[nodiscard]] bool stored() const { return compressed_size == size; }
    };

    [[nodiscard]] Progress step(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_magic(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_header(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_extra_field_size(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress skip_extra_field(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_extra_field_checksum(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_block_sizes(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_block_checksums(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress read_block_data(Lzop_Stream& stream) noexcept;
    [[nodiscard]] Progress gather_block_data(Lzop_Stream& stream) noexcept;
    [[nodiscard]] int decode_block(const unsigned char* data, unsigned char* out) noexcept;

    [[nodiscard]] bool gather(Lzop_Stream& stream, std::size_t need) noexcept
    {
        return lzop_gather(stream, gathered_.data(), have_, need);
    }
    Progress go_on(Part part) noexcept;
    Progress fail(int error) noexcept;
    [[nodiscard]] bool has(std::uint32_t flag) const noexcept
    {
        return (header_.flags & flag) != 0;
    }
    void add_to_header_checksum(const unsigned char* data, std::size_t size) noexcept;

    Part part_ = Part::magic;
    int error_ = LZOP_OK;
    bool saw_member_ = false;

    std::array<unsigned char, lzop_max_header_size> gathered_{}; ///< of the part that is read
    std::size_t have_ = 0;                                       ///< bytes of it

    Lzop_Header header_;
    std::uint32_t extra_field_left_ = 0;
    std::uint32_t header_checksum_ = 0;

    Block block_;
    Lzop_Buffer compressed_; ///< block data that came in pieces
    std::size_t compressed_have_ = 0;
    Lzop_Buffer plain_; ///< a block that the caller's room does not hold
    Lzop_Pending pending_;
};

int Decompressor::decompress(Lzop_Stream& stream, bool end) noexcept
{
    for (;;) {
        if (!pending_.drain(stream))
            return LZOP_OK;
        switch (step(stream)) {
        case Progress::made:
            break;
        case Progress::needs_room:
            return LZOP_OK;
        case Progress::failed:
            return error_;
        case Progress::needs_input:
            if (!end)
                return LZOP_OK;
            return saw_member_ && part_ == Part::magic && have_ == 0 ? LZOP_END : LZOP_E_TRUNCATED;
        }
    }
}

Decompressor::Progress Decompressor::step(Lzop_Stream& stream) noexcept
{
    switch (part_) {
    case Part::magic:
        return read_magic(stream);
    case Part::header:
        return read_header(stream);
    case Part::extra_field_size:
        return read_extra_field_size(stream);
    case Part::extra_field:
        return skip_extra_field(stream);
    case Part::extra_field_checksum:
        return read_extra_field_checksum(stream);
    case Part::block_sizes:
        return read_block_sizes(stream);
    case Part::block_checksums:
        return read_block_checksums(stream);
    case Part::block_data:
        break;
    }
    return read_block_data(stream);
}

Decompressor::Progress Decompressor::read_magic(Lzop_Stream& stream) noexcept
{
    const bool complete = gather(stream, sizeof lzop_magic);
    // Bytes that cannot become a magic are refused at once, not only when there are enough.
    if (std::memcmp(gathered_.data(), lzop_magic, have_) != 0)
        return fail(LZOP_E_MAGIC);
    return complete ? go_on(Part::header) : Progress::needs_input;
}

Decompressor::Progress Decompressor::read_header(Lzop_Stream& stream) noexcept
{
    const std::size_t size = lzop_header_size({gathered_.data(), have_});
    if (have_ < size)
        return gather(stream, size) ? Progress::made : Progress::needs_input;
    const int result = parse_lzop_header({gathered_.data(), size}, header_);
    if (result != LZOP_OK)
        return fail(result);
    return go_on(has(LZOP_EXTRA_FIELD) ? Part::extra_field_size : Part::block_sizes);
}

Decompressor::Progress Decompressor::read_extra_field_size(Lzop_Stream& stream) noexcept
{
    if (!gather(stream, 4))
        return Progress::needs_input;
    extra_field_left_ = lzop_get_32(gathered_.data());
    header_checksum_ = has(LZOP_HEADER_CRC32) ? lzop_crc32_start : lzop_adler32_start;
    add_to_header_checksum(gathered_.data(), 4);
    return go_on(Part::extra_field);
}

Decompressor::Progress Decompressor::skip_extra_field(Lzop_Stream& stream) noexcept
{
    const std::size_t size = std::min<std::size_t>(extra_field_left_, stream.avail_in);
    if (size > 0) {
        add_to_header_checksum(stream.next_in, size);
        stream.next_in += size;
        stream.avail_in -= size;
        extra_field_left_ -= static_cast<std::uint32_t>(size);
    }
    return extra_field_left_ == 0 ? go_on(Part::extra_field_checksum) : Progress::needs_input;
}

Decompressor::Progress Decompressor::read_extra_field_checksum(Lzop_Stream& stream) noexcept
{
    if (!gather(stream, 4))
        return Progress::needs_input;
    if (lzop_get_32(gathered_.data()) != header_checksum_)
        return fail(LZOP_E_HEADER);
    return go_on(Part::block_sizes);
}

Decompressor::Progress Decompressor::read_block_sizes(Lzop_Stream& stream) noexcept
{
    if (have_ < 4 && !gather(stream, 4))
        return Progress::needs_input;
    block_.size = lzop_get_32(gathered_.data());
    if (block_.size == 0) {
        saw_member_ = true;
        return go_on(Part::magic);
    }
    if (block_.size == split_mark)
        return fail(LZOP_E_UNSUPPORTED);
    if (block_.size > lzop_max_block_size)
        return fail(LZOP_E_BLOCK_SIZE);

    if (!gather(stream, 8))
        return Progress::needs_input;
    block_.compressed_size = lzop_get_32(&gathered_[4]);
    if (block_.compressed_size == 0 || block_.compressed_size > block_.size ||
        block_.size / most_expansion > block_.compressed_size)
        return fail(LZOP_E_BLOCK_SIZE);
    std::uint32_t flags = header_.flags & (LZOP_ADLER32_PLAIN | LZOP_CRC32_PLAIN);
    if (!block_.stored())
        flags |= header_.flags & (LZOP_ADLER32_COMPRESSED | LZOP_CRC32_COMPRESSED);
    block_.checksums_size = 4 * static_cast<unsigned>(std::popcount(flags));
    compressed_have_ = 0;
    return go_on(Part::block_checksums);
}

Decompressor::Progress Decompressor::read_block_checksums(Lzop_Stream& stream) noexcept
{
    if (!gather(stream, block_.checksums_size))
        return Progress::needs_input;
    part_ = Part::block_data; // and the checksums stay gathered
    return Progress::made;
}

Decompressor::Progress Decompressor::read_block_data(Lzop_Stream& stream) noexcept
{
    const bool whole = compressed_have_ == 0 && stream.avail_in >= block_.compressed_size;
    if (!whole && compressed_have_ < block_.compressed_size)
        return gather_block_data(stream);
    // What cannot be handed out is not decoded: its damage would hide the good bytes before it.
    if (stream.avail_out == 0)
        return Progress::needs_room;

    const bool direct = stream.avail_out >= block_.size;
    if (!direct && !plain_.reserve(block_.size))
        return fail(LZOP_E_NO_MEMORY);
    const int result = decode_block(whole ? stream.next_in : compressed_.data(),
                                    direct ? stream.next_out : plain_.data());
    if (result != LZOP_OK)
        return fail(result);
    if (whole) {
        stream.next_in += block_.compressed_size;
        stream.avail_in -= block_.compressed_size;
    }
    if (direct) {
        stream.next_out += block_.size;
        stream.avail_out -= block_.size;
    } else {
        pending_.set(plain_.data(), block_.size);
    }
    return go_on(Part::block_sizes);
}

Decompressor::Progress Decompressor::gather_block_data(Lzop_Stream& stream) noexcept
{
    if (stream.avail_in == 0)
        return Progress::needs_input;
    // The size is only a claim: beyond a usual block, memory follows what really came.
    const std::size_t coming =
        std::min<std::size_t>(block_.compressed_size, compressed_have_ + stream.avail_in);
    if (coming > compressed_.capacity()) {
        const std::size_t room = std::max({lzop_block_size, 2 * compressed_.capacity(), coming});
        if (!compressed_.reserve(std::min<std::size_t>(room, lzop_max_block_size),
                                 compressed_have_))
            return fail(LZOP_E_NO_MEMORY);
    }
    return lzop_gather(stream, compressed_.data(), compressed_have_, block_.compressed_size)
               ? Progress::made
               : Progress::needs_input;
}

int Decompressor::decode_block(const unsigned char* data, unsigned char* out) noexcept
{
    const unsigned char* checksum = gathered_.data();
    // Takes the next checksum of the block.
    const auto matches = [&](std::uint32_t value) {
        const std::uint32_t expected = lzop_get_32(checksum);
        checksum += 4;
        return value == expected;
    };
    const unsigned char* const plain_checksums = checksum;
    if (has(LZOP_ADLER32_PLAIN))
        checksum += 4;
    if (has(LZOP_CRC32_PLAIN))
        checksum += 4;

    if (block_.stored()) {
        std::memcpy(out, data, block_.size);
    } else {
        const std::size_t size = block_.compressed_size;
        if (has(LZOP_ADLER32_COMPRESSED) && !matches(lzop_adler32(lzop_adler32_start, data, size)))
            return LZOP_E_BLOCK_CHECKSUM;
        if (has(LZOP_CRC32_COMPRESSED) && !matches(lzop_crc32(lzop_crc32_start, data, size)))
            return LZOP_E_BLOCK_CHECKSUM;
        lzo_uint n = block_.size;
        if (lzo1x_decompress_safe(data, size, out, &n, nullptr) != LZO_E_OK || n != block_.size)
            return LZOP_E_BLOCK_DATA;
    }

    // The filter stored differences to the byte so many places before.
    if (header_.filter > 0)
        for (std::size_t i = header_.filter; i < block_.size; ++i)
            out[i] = static_cast<unsigned char>(out[i] + out[i - header_.filter]);

    checksum = plain_checksums;
    if (has(LZOP_ADLER32_PLAIN) && !matches(lzop_adler32(lzop_adler32_start, out, block_.size)))
        return LZOP_E_BLOCK_CHECKSUM;
    if (has(LZOP_CRC32_PLAIN) && !matches(lzop_crc32(lzop_crc32_start, out, block_.size)))
        return LZOP_E_BLOCK_CHECKSUM;
    return LZOP_OK;
}

Decompressor::Progress Decompressor::go_on(Part part) noexcept
{
    part_ = part;
    have_ = 0;
    return Progress::made;
}

Decompressor::Progress Decompressor::fail(int error) noexcept
{
    error_ = error;
    return Progress::failed;
}

void Decompressor::add_to_header_checksum(const unsigned char* data, std::size_t size) noexcept
{
    header_checksum_ = has(LZOP_HEADER_CRC32) ? lzop_crc32(header_checksum_, data, size)
                                              : lzop_adler32(header_checksum_, data, size);
}

} // namespace

std::unique_ptr<Lzop_State> make_lzop_decompressor() noexcept
{
    return std::unique_ptr<Lzop_State>{new (std::nothrow) Decompressor};
}
