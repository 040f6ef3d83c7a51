#include "client_io/zstd_io.h"

#include "platform/runtime/format.h"
#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <algorithm>
#include <cstring>
#include <utility>

ZSTD_IO::ZSTD_IO(std::unique_ptr<Client_IO_Base> io, std::int32_t level)
    : Codec_IO(std::move(io)), level_(level)
{
    ACE_DEBUG((LM_TRACE, "zstd io with level %d\n", level_));
}

ZSTD_IO::~ZSTD_IO() = default;

bool ZSTD_IO::Buffer::reserve(std::size_t size)
{
    if (capacity >= size)
        return true;
    data.reset(static_cast<char*>(std::malloc(size)));
    capacity = data ? size : 0;
    return data != nullptr;
}

bool ZSTD_IO::ready(bool for_reading)
{
    if (_io == nullptr && for_reading)
        log_unexpected("Unexpected error in %N:%l, _io.get() is NULL:\n%?\n");
    return _io != nullptr;
}

bool ZSTD_IO::begin()
{
    return writing() ? begin_writing() : begin_reading();
}

bool ZSTD_IO::encode(const void* data, std::uint64_t size)
{
    ZSTD_inBuffer input{data, size, 0};
    while (input.pos < input.size) {
        ZSTD_outBuffer output{dst_buf_.data.get(), dst_buf_.capacity, 0};
        const std::size_t code = ZSTD_compressStream(cstream_.get(), &output, &input);
        if (ZSTD_isError(code))
            return fail(format_text("Failed to zstd compress, %s", ZSTD_getErrorName(code)));
        if (output.pos != 0 && !write_lower(output.dst, output.pos))
            return false;
    }
    return true;
}

bool ZSTD_IO::encode_flush()
{
    return write_out(ZSTD_flushStream, "flush");
}

bool ZSTD_IO::encode_end()
{
    return write_out(ZSTD_endStream, "end");
}

std::int64_t ZSTD_IO::decode(void* buf, std::uint64_t size)
{
    ZSTD_outBuffer output{buf, size, 0};
    while (!frame_ended_ && output.pos < output.size)
        if (!decode_into(output))
            return -1;
    return static_cast<std::int64_t>(output.pos);
}

bool ZSTD_IO::decode(const void*& data, std::uint64_t& size)
{
    if (!dst_buf_.reserve(ZSTD_DStreamOutSize())) {
        log_unexpected("Unexpected error in %N:%l, dst_buf_ is NULL:\n%?\n");
        return false;
    }
    ZSTD_outBuffer output{dst_buf_.data.get(), dst_buf_.capacity, 0};
    while (!frame_ended_ && output.pos == 0)
        if (!decode_into(output))
            return false;
    data = output.dst;
    size = output.pos;
    return true;
}

bool ZSTD_IO::begin_writing()
{
    if (!cstream_)
        cstream_.reset(ZSTD_createCStream());
    if (!cstream_) {
        log_unexpected("Unexpected error in %N:%l, cstream_ is NULL:\n%?\n");
        return false;
    }
    std::size_t code = ZSTD_initCStream(cstream_.get(), level_);
    if (!ZSTD_isError(code))
        code = ZSTD_CCtx_setParameter(cstream_.get(), ZSTD_c_checksumFlag, 1);
    if (ZSTD_isError(code))
        return fail(format_text("Failed to zstd compress, %s", ZSTD_getErrorName(code)));
    if (!dst_buf_.reserve(ZSTD_CStreamOutSize())) {
        log_unexpected("Unexpected error in %N:%l, dst_buf_ is NULL:\n%?\n");
        return false;
    }
    return true;
}

bool ZSTD_IO::begin_reading()
{
    if (!dstream_)
        dstream_.reset(ZSTD_createDStream());
    if (!dstream_) {
        log_unexpected("Unexpected error in %N:%l, dstream_ is NULL:\n%?\n");
        return false;
    }
    const std::size_t code = ZSTD_initDStream(dstream_.get());
    if (ZSTD_isError(code))
        return fail_decompress(ZSTD_getErrorName(code));
    if (!src_buf_.reserve(ZSTD_DStreamInSize())) {
        log_unexpected("Unexpected error in %N:%l, src_buf_ is NULL:\n%?\n");
        return false;
    }
    input_ = {src_buf_.data.get(), 0, 0};
    input_ended_ = any_frame_ = frame_ended_ = false;
    between_frames_ = true;
    return true;
}

/// Lets the compressor write what it holds, until nothing is left.
bool ZSTD_IO::write_out(std::size_t (*step)(ZSTD_CStream*, ZSTD_outBuffer*), const char* what)
{
    std::size_t left = 0;
    do {
        ZSTD_outBuffer output{dst_buf_.data.get(), dst_buf_.capacity, 0};
        left = step(cstream_.get(), &output);
        if (ZSTD_isError(left))
            return fail(format_text("Failed to zstd %s, %s", what, ZSTD_getErrorName(left)));
        if (output.pos != 0 && !write_lower(output.dst, output.pos))
            return false;
    } while (left != 0);
    return true;
}

/// One step of decompression; sets frame_ended_ behind the last frame.
bool ZSTD_IO::decode_into(ZSTD_outBuffer& output)
{
    if (between_frames_ ? !begin_frame() : !fill_input(1))
        return false;
    if (frame_ended_)
        return true;
    const std::size_t had = output.pos;
    const std::size_t code = ZSTD_decompressStream(dstream_.get(), &output, &input_);
    if (ZSTD_isError(code))
        return fail_decompress(ZSTD_getErrorName(code));
    // Without input the decoder can only hand out what it still holds.
    if (input_ended_ && input_.pos == input_.size && code != 0 && output.pos == had)
        return fail_decompress("the file ends inside a frame");
    frame_done_ += output.pos - had;
    between_frames_ = code == 0;
    // The decoder does not compare them when the last block is empty.
    if (between_frames_ && frame_size_ != ZSTD_CONTENTSIZE_UNKNOWN && frame_size_ != frame_done_)
        return fail_decompress("the frame does not hold what it says");
    any_frame_ = any_frame_ || between_frames_;
    return true;
}

/// Makes sure that the input holds @p least bytes, or all that there are.
bool ZSTD_IO::fill_input(std::size_t least)
{
    char* const start = src_buf_.data.get();
    while (!input_ended_ && input_.size - input_.pos < least) {
        const std::size_t held = input_.size - input_.pos;
        std::memmove(start, static_cast<const char*>(input_.src) + input_.pos, held);
        const std::int64_t n = read_lower(start + held, src_buf_.capacity - held);
        if (n < 0)
            return false;
        input_ = {start, held + static_cast<std::size_t>(n), 0};
        input_ended_ = n == 0;
    }
    return true;
}

/// Looks at the header of the next frame; without one the stream has ended.
bool ZSTD_IO::begin_frame()
{
    constexpr std::size_t largest_header = 18;
    if (!fill_input(largest_header))
        return false;
    const char* const start = static_cast<const char*>(input_.src) + input_.pos;
    const std::size_t held = input_.size - input_.pos;
    if (any_frame_ && held != 0 && *start == 0) // no frame begins so
        return skip_padding();
    frame_ended_ = held == 0 && any_frame_;
    frame_done_ = 0;
    frame_size_ = ZSTD_getFrameContentSize(start, held);
    if (frame_size_ == ZSTD_CONTENTSIZE_ERROR) // the decoder will find words for it
        frame_size_ = ZSTD_CONTENTSIZE_UNKNOWN;
    return true;
}

/// Behind the last frame there may be zeros, with which targets that store whole blocks fill them.
bool ZSTD_IO::skip_padding()
{
    const auto is_zero = [](char byte) { return byte == 0; };
    while (input_.pos != input_.size) {
        const char* const start = static_cast<const char*>(input_.src);
        if (!std::all_of(start + input_.pos, start + input_.size, is_zero))
            return fail_decompress("Unknown frame descriptor");
        input_.pos = input_.size;
        if (!fill_input(1))
            return false;
    }
    ACE_DEBUG((LM_WARNING, "Ignored zeros behind the zstd data of the file\n"));
    frame_ended_ = true;
    return true;
}

bool ZSTD_IO::fail_decompress(const char* reason)
{
    return fail(format_text("Failed to zstd decompress, %s", reason));
}
