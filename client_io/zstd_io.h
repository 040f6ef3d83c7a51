#pragma once

#include "client_io/codec_io.h"

#include <cstdlib>
#include <zstd.h>

/// Compresses what is written and decompresses what is read, in the zstd format.
///
/// Written is one frame with a checksum of its contents; opened for append, one more frame. Read
/// are all frames of the file, also those of others (any level, windows up to 128 MiB); zeros
/// behind the last one are ignored, with a warning in the log. Anything else there, and a file that
/// ends inside a frame, fails with "Failed to zstd decompress, ...", like damaged data.
///
/// The buffers have the sizes that zstd recommends (together below 400 KiB) and are kept until
/// destruction, as are zstd's own streams; those need what the level or the frame's window asks
/// for, at most 128 MiB and a little more to read.
class ZSTD_IO : public Codec_IO
{
public:
    /// @param io     layer below; owned from now on
    /// @param level  zstd's compression level; out of its range means the nearest one, 0 zstd's
    ///               default
    ZSTD_IO(std::unique_ptr<Client_IO_Base> io, std::int32_t level);
    ~ZSTD_IO() override;

private:
    struct Buffer
    {
        struct Free
        {
            void operator()(char* memory) const { std::free(memory); }
        };

        bool reserve(std::size_t size);
        std::unique_ptr<char, Free> data;
        std::size_t capacity = 0;
    };
    struct Free_CStream
    {
        void operator()(ZSTD_CStream* stream) const { ZSTD_freeCStream(stream); }
    };
    struct Free_DStream
    {
        void operator()(ZSTD_DStream* stream) const { ZSTD_freeDStream(stream); }
    };

    bool ready(bool for_reading) override;
    bool begin() override;
    bool encode(const void* data, std::uint64_t size) override;
    bool encode_flush() override;
    bool encode_end() override;
    std::int64_t decode(void* buf, std::uint64_t size) override;
    bool decode(const void*& data, std::uint64_t& size) override;

    bool begin_writing();
    bool begin_reading();
    bool write_out(std::size_t (*step)(ZSTD_CStream*, ZSTD_outBuffer*), const char* what);
    bool decode_into(ZSTD_outBuffer& output);
    bool fill_input(std::size_t least);
    bool begin_frame();
    bool skip_padding();
    bool fail_decompress(const char* reason);

    std::unique_ptr<ZSTD_CStream, Free_CStream> cstream_;
    std::unique_ptr<ZSTD_DStream, Free_DStream> dstream_;
    std::int32_t level_;
    Buffer src_buf_; ///< compressed bytes to read
    Buffer dst_buf_; ///< output that is not decompressed into the caller's memory
    ZSTD_inBuffer input_{};
    bool input_ended_ = false;
    unsigned long long frame_size_ = 0; ///< bytes that the frame says it holds
    unsigned long long frame_done_ = 0; ///< bytes of it that were decompressed
    bool between_frames_ = false;       ///< no byte of the next frame was met
    bool any_frame_ = false;            ///< one is complete
    bool frame_ended_ = false;          ///< everything was handed out
};
