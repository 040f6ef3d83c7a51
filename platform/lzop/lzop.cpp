#include "platform/lzop/lzop.h"

#include <algorithm>
#include <cstring>
#include <lzo/lzoconf.h>
#include <new>
#include <utility>

#include "platform/lzop/lzop_state.h"

namespace
{

constexpr int lowest_level = 1;
constexpr int highest_level = 9;

int install(Lzop_Stream& stream, std::unique_ptr<Lzop_State> state)
{
    stream.state = state.release();
    return stream.state != nullptr ? LZOP_OK : LZOP_E_NO_MEMORY;
}

template <typename Operation>
int run(Lzop_Stream& stream, Operation operation)
{
    if (stream.state == nullptr || stream.state->failed)
        return LZOP_E_STATE;
    const int result = operation(*stream.state);
    stream.state->failed = result != LZOP_OK && result != LZOP_END;
    return result;
}

} // namespace

bool lzop_available() noexcept
{
    // Fails when the library's types are not those of the header we were compiled with.
    static const bool suits = lzo_init() == LZO_E_OK;
    return suits;
}

int lzop_compress_init(Lzop_Stream& stream, int level, int flags) noexcept
{
    lzop_end(stream);
    if (!lzop_available())
        return LZOP_E_UNAVAILABLE;
    if (level < lowest_level || level > highest_level)
        return LZOP_E_LEVEL;
    if (flags != 0)
        return LZOP_E_UNSUPPORTED;
    return install(stream, make_lzop_compressor(level));
}

int lzop_compress(Lzop_Stream& stream, bool finish) noexcept
{
    return run(stream, [&](Lzop_State& state) { return state.compress(stream, finish); });
}

int lzop_decompress_init(Lzop_Stream& stream) noexcept
{
    lzop_end(stream);
    if (!lzop_available())
        return LZOP_E_UNAVAILABLE;
    return install(stream, make_lzop_decompressor());
}

int lzop_decompress(Lzop_Stream& stream, bool end) noexcept
{
    return run(stream, [&](Lzop_State& state) { return state.decompress(stream, end); });
}

void lzop_end(Lzop_Stream& stream) noexcept
{
    delete std::exchange(stream.state, nullptr);
}

bool Lzop_Buffer::reserve(std::size_t size, std::size_t kept) noexcept
{
    if (size <= capacity_)
        return true;
    // Without contents to keep, the old memory need not stand beside the new.
    if (kept == 0) {
        bytes_.reset();
        capacity_ = 0;
    }
    std::unique_ptr<unsigned char[]> bytes{new (std::nothrow) unsigned char[size]};
    if (!bytes)
        return false;
    if (kept > 0)
        std::memcpy(bytes.get(), bytes_.get(), kept);
    bytes_ = std::move(bytes);
    capacity_ = size;
    return true;
}

void Lzop_Pending::set(const unsigned char* data, std::size_t size) noexcept
{
    data_ = data;
    size_ = size;
}

bool Lzop_Pending::drain(Lzop_Stream& stream) noexcept
{
    const std::size_t n = std::min(size_, stream.avail_out);
    if (n > 0) {
        std::memcpy(stream.next_out, data_, n);
        data_ += n;
        size_ -= n;
        stream.next_out += n;
        stream.avail_out -= n;
    }
    return size_ == 0;
}

bool lzop_gather(Lzop_Stream& stream, unsigned char* to, std::size_t& have,
                 std::size_t need) noexcept
{
    const std::size_t n = std::min(need - have, stream.avail_in);
    if (n > 0) {
        std::memcpy(to + have, stream.next_in, n);
        have += n;
        stream.next_in += n;
        stream.avail_in -= n;
    }
    return have == need;
}
