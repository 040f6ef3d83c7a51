#include "client_io/lzop_io.h"

#include "platform/runtime/format.h"

#include <ace/Log_Msg.h>
#include <algorithm>
#include <utility>

namespace
{

std::int8_t lzop_level(std::int32_t level)
{
    constexpr std::int32_t tools_default = 3;
    return static_cast<std::int8_t>(level == 0 ? tools_default : std::clamp(level, 1, 9));
}

} // namespace

Lzop_IO::Lzop_IO(std::unique_ptr<Client_IO_Base> io, std::int32_t level)
    : Codec_IO(std::move(io)), level_(lzop_level(level))
{
    ACE_DEBUG((LM_TRACE, "lzop io with level %d\n", level_));
}

Lzop_IO::~Lzop_IO()
{
    lzop_end(stream_);
}

std::uint64_t Lzop_IO::size(const char* path)
{
    keep_input();
    return Codec_IO::size(path);
}

bool Lzop_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    keep_input();
    return Codec_IO::get_dir(path, entries);
}

bool Lzop_IO::ready(bool /*for_reading*/)
{
    return _io != nullptr;
}

bool Lzop_IO::begin()
{
    if (!lzop_available())
        return fail("lzop is not supported by this build");
    const int r =
        writing() ? lzop_compress_init(stream_, level_, 0) : lzop_decompress_init(stream_);
    stream_.avail_in = 0;
    input_ended_ = ended_ = false;
    if (r != LZOP_OK)
        return fail(
            format_text(writing() ? "Failed to compress: %d" : "Failed to decompress: %d", r));
    return true;
}

bool Lzop_IO::encode(const void* data, std::uint64_t size)
{
    return compress(data, size, false);
}

bool Lzop_IO::encode_flush()
{
    return compress(nullptr, 0, true);
}

bool Lzop_IO::encode_end()
{
    return compress(nullptr, 0, true);
}

std::int64_t Lzop_IO::decode(void* buf, std::uint64_t size)
{
    stream_.next_out = static_cast<unsigned char*>(buf);
    stream_.avail_out = size;
    while (stream_.avail_out != 0 && !ended_) {
        if (stream_.avail_in == 0 && !input_ended_) {
            const std::int64_t n = read_lower(work_, sizeof work_);
            if (n < 0)
                return -1;
            stream_.next_in = work_;
            stream_.avail_in = static_cast<std::size_t>(n);
            input_ended_ = n == 0;
        }
        if (!decompress())
            return -1;
    }
    return static_cast<std::int64_t>(size - stream_.avail_out);
}

bool Lzop_IO::decode(const void*& data, std::uint64_t& size)
{
    stream_.next_out = work_;
    stream_.avail_out = sizeof work_;
    while (stream_.avail_out == sizeof work_ && !ended_) {
        if (stream_.avail_in == 0 && !input_ended_) {
            const void* block = nullptr;
            std::uint64_t n = 0;
            if (!read_lower(block, n))
                return false;
            stream_.next_in = static_cast<const unsigned char*>(block);
            stream_.avail_in = n;
            input_ended_ = n == 0;
        }
        if (!decompress())
            return false;
    }
    data = work_;
    size = sizeof work_ - stream_.avail_out;
    return true;
}

void Lzop_IO::end()
{
    lzop_end(stream_);
    stream_.avail_in = 0;
}

/// Copies the input that the lower layer has lent, before an operation that ends the loan.
void Lzop_IO::keep_input()
{
    if (stream_.avail_in == 0 || writing())
        return;
    std::vector<unsigned char> kept(stream_.next_in, stream_.next_in + stream_.avail_in);
    kept_.swap(kept);
    stream_.next_in = kept_.data();
}

bool Lzop_IO::compress(const void* data, std::uint64_t size, bool finish)
{
    stream_.next_in = static_cast<const unsigned char*>(data);
    stream_.avail_in = size;
    int r = LZOP_OK;
    do {
        stream_.next_out = work_;
        stream_.avail_out = sizeof work_;
        r = lzop_compress(stream_, finish);
        if (r != LZOP_OK && r != LZOP_END)
            return fail(format_text("Failed to compress: %d", r));
        const std::size_t produced = sizeof work_ - stream_.avail_out;
        if (produced != 0 && !write_lower(work_, produced))
            return false;
    } while (finish ? r != LZOP_END : stream_.avail_in != 0);
    return true;
}

/// One step of decompression; sets ended_ behind the last member.
bool Lzop_IO::decompress()
{
    const int r = lzop_decompress(stream_, input_ended_);
    ended_ = r == LZOP_END;
    return ended_ || r == LZOP_OK || fail(format_text("Failed to decompress: %d", r));
}
