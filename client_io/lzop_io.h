#pragma once

#include "client_io/codec_io.h"
#include "platform/lzop/lzop.h"

/// Compresses what is written and decompresses what is read, in the lzop format.
///
/// A flush() ends a member of the format, and what is written after it begins the next; so does a
/// file opened for append. Read are all members of the file, also those of others. Damaged data,
/// and a file that ends inside a member, fail with "Failed to decompress: %d" and a number of
/// Lzop_Result. Built without the codec, every open fails with "lzop is not supported by this
/// build".
///
/// Works in one buffer of 256 KiB in the object, and in the codec's own while a file is open.
class Lzop_IO : public Codec_IO
{
public:
    /// @param io     layer below; owned from now on
    /// @param level  1 to 9 as for the lzop tool; beyond them the nearest one, 0 the tool's
    ///               default (3)
    Lzop_IO(std::unique_ptr<Client_IO_Base> io, std::int32_t level);
    ~Lzop_IO() override;

    using Codec_IO::size;

    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;

private:
    bool ready(bool for_reading) override;
    bool begin() override;
    bool encode(const void* data, std::uint64_t size) override;
    bool encode_flush() override;
    bool encode_end() override;
    std::int64_t decode(void* buf, std::uint64_t size) override;
    bool decode(const void*& data, std::uint64_t& size) override;
    void end() override;

    void keep_input();
    bool compress(const void* data, std::uint64_t size, bool finish);
    bool decompress();

    Lzop_Stream stream_;
    std::int8_t level_;
    std::vector<unsigned char> kept_; ///< lent input that an operation in between would end
    bool input_ended_ = false;
    bool ended_ = false; ///< everything was handed out
    unsigned char work_[262144];
};
