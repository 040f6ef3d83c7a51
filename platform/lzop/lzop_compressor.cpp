#include <algorithm>
#include <array>
#include <cstring>
#include <lzo/lzo1x.h>
#include <new>

#include "platform/lzop/lzop_big_endian.h"
#include "platform/lzop/lzop_checksum.h"
#include "platform/lzop/lzop_header.h"
#include "platform/lzop/lzop_state.h"

namespace
{

// Sizes and checksum before the data of a block.
constexpr std::size_t block_prefix_size = 12;
// What LZO1X may make of a block that it cannot shrink (liblzo2's documentation).
constexpr std::size_t worst_compressed_size = lzop_block_size + lzop_block_size / 16 + 64 + 3;
constexpr std::size_t worst_block_size = block_prefix_size + worst_compressed_size;
constexpr std::size_t end_mark_size = 4;

/// What the tool makes of a level.
struct Level
{
    Lzop_Method method;
    unsigned char field; ///< of the header
    std::size_t memory;  ///< work memory of the compressor
};

Level level_settings(int level)
{
    if (level == 1)
        return {Lzop_Method::LZO1X_1_15, 1, LZO1X_1_15_MEM_COMPRESS};
    if (level < 7)
        return {Lzop_Method::LZO1X_1, 5, LZO1X_1_MEM_COMPRESS};
    return {Lzop_Method::LZO1X_999, static_cast<unsigned char>(level), LZO1X_999_MEM_COMPRESS};
}

class Compressor : public Lzop_State
{
public:
    explicit Compressor(int level) : level_{level_settings(level)} {}

    /// @return false when there is no memory
    [[nodiscard]] bool reserve() noexcept;
    [[nodiscard]] int compress(Lzop_Stream& stream, bool finish) noexcept override;

private:
    void put_header() noexcept;
    [[nodiscard]] int put_block(const unsigned char* data, std::size_t size) noexcept;
    [[nodiscard]] int compress_block(const unsigned char* data, std::size_t size,
                                     unsigned char* out, std::size_t& out_size) noexcept;
    void put_end() noexcept;

    const Level level_;
    Lzop_Buffer work_;
    Lzop_Buffer in_;  ///< a block that is not full yet
    Lzop_Buffer out_; ///< what pending_ shows
    Lzop_Buffer optimized_;
    std::size_t buffered_ = 0; ///< bytes in in_
    Lzop_Pending pending_;
    bool in_member_ = false;
    bool began_ = false; ///< a member was ever begun
};

bool Compressor::reserve() noexcept
{
    return work_.reserve(level_.memory) && in_.reserve(lzop_block_size) &&
           out_.reserve(worst_block_size) &&
           (level_.method != Lzop_Method::LZO1X_999 || optimized_.reserve(lzop_block_size));
}

int Compressor::compress(Lzop_Stream& stream, bool finish) noexcept
{
    for (;;) {
        if (!pending_.drain(stream))
            return LZOP_OK;
        if (!in_member_) {
            if (stream.avail_in == 0 && (!finish || began_))
                return finish ? LZOP_END : LZOP_OK;
            put_header();
            continue;
        }

        if (buffered_ == 0 &&
            (stream.avail_in >= lzop_block_size || (finish && stream.avail_in > 0))) {
            const std::size_t size = std::min(stream.avail_in, lzop_block_size);
            const int result = put_block(stream.next_in, size);
            if (result != LZOP_OK)
                return result;
            stream.next_in += size;
            stream.avail_in -= size;
            continue;
        }
        const bool full = lzop_gather(stream, in_.data(), buffered_, lzop_block_size);
        if (full || (finish && buffered_ > 0)) {
            const int result = put_block(in_.data(), buffered_);
            if (result != LZOP_OK)
                return result;
            buffered_ = 0;
            continue;
        }
        if (!finish)
            return LZOP_OK;
        put_end();
    }
}

void Compressor::put_header() noexcept
{
    put_lzop_header(level_.method, level_.field, out_.data());
    pending_.set(out_.data(), lzop_written_header_size);
    in_member_ = true;
    began_ = true;
}

int Compressor::put_block(const unsigned char* data, std::size_t size) noexcept
{
    std::size_t compressed_size = 0;
    const int result = compress_block(data, size, out_.data() + block_prefix_size, compressed_size);
    if (result != LZOP_OK)
        return result;

    unsigned char* at = lzop_put_32(out_.data(), static_cast<std::uint32_t>(size));
    at = lzop_put_32(at, static_cast<std::uint32_t>(compressed_size));
    lzop_put_32(at, lzop_adler32(lzop_adler32_start, data, size));
    pending_.set(out_.data(), block_prefix_size + compressed_size);
    return LZOP_OK;
}

int Compressor::compress_block(const unsigned char* data, std::size_t size, unsigned char* out,
                               std::size_t& out_size) noexcept
{
    lzo_uint n = 0;
    int result = LZO_E_ERROR;
    switch (level_.method) {
    case Lzop_Method::LZO1X_1:
        result = lzo1x_1_compress(data, size, out, &n, work_.data());
        break;
    case Lzop_Method::LZO1X_1_15:
        result = lzo1x_1_15_compress(data, size, out, &n, work_.data());
        break;
    case Lzop_Method::LZO1X_999:
        result = lzo1x_999_compress_level(data, size, out, &n, work_.data(), nullptr, 0, nullptr,
                                          level_.field);
        break;
    }
    if (result != LZO_E_OK || n > worst_compressed_size)
        return LZOP_E_COMPRESS;
    if (n < size && level_.method == Lzop_Method::LZO1X_999) {
        // Decompresses to find shorter encodings, hence not into the caller's input.
        lzo_uint plain_size = size;
        if (lzo1x_optimize(out, n, optimized_.data(), &plain_size, nullptr) != LZO_E_OK ||
            plain_size != size)
            return LZOP_E_COMPRESS;
    }
    // A reader takes equal sizes for stored data.
    if (n >= size) {
        std::memcpy(out, data, size);
        n = size;
    }
    out_size = n;
    return LZOP_OK;
}

void Compressor::put_end() noexcept
{
    lzop_put_32(out_.data(), 0);
    pending_.set(out_.data(), end_mark_size);
    in_member_ = false;
}

} // namespace

std::unique_ptr<Lzop_State> make_lzop_compressor(int level) noexcept
{
    std::unique_ptr<Compressor> compressor{new (std::nothrow) Compressor{level}};
    if (!compressor || !compressor->reserve())
        return nullptr;
    return compressor;
}
