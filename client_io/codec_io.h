#pragma once

#include "client_io/pipe_io.h"

#include <limits>

/// What the compressing and encrypting transforms have in common.
///
/// One file of the layer below holds one stream that only makes sense from its start to its end. So
/// the lower file is always opened at offset 0; a read-mode open at an offset, or with a limit,
/// means bytes of the plain stream: the first read decodes and discards what stands before. Writing
/// begins at offset 0 ("Invalid offset"), seeking is refused ("Not seekable"), and so is writing at
/// random. size() is the lower layer's: bytes as stored.
///
/// A failed read or write leaves the stream in no state to go on from: every further one fails too,
/// and so does the close() of a file that was being written, until a file is opened again. An open
/// file is closed by the next open(), which fails when that fails. A failure of the codec keeps its
/// own text and is not retriable, because what is stored will not get better; a failure below shows
/// the lower layer's text.
class Codec_IO : public Pipe_IO
{
public:
    explicit Codec_IO(std::unique_ptr<Client_IO_Base> io);
    ~Codec_IO() override;

    using Pipe_IO::size;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    /// Ends the stream that was written, then closes the lower file, also when the first failed.
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;
    bool retriable() const override;

protected:
    /// Whether the transform can work at all; says why not.
    virtual bool ready(bool for_reading) = 0;
    /// Begins a stream in the direction that writing() tells.
    virtual bool begin() = 0;
    /// Writes what becomes of @p size bytes.
    virtual bool encode(const void* data, std::uint64_t size) = 0;
    /// Writes as much of what was given so far as the format lets out before its end.
    virtual bool encode_flush() = 0;
    /// Writes the rest of the stream.
    virtual bool encode_end() = 0;
    /// @return decoded bytes, fewer than @p size only at the end; -1 on failure
    virtual std::int64_t decode(void* buf, std::uint64_t size) = 0;
    /// Hands out decoded bytes in a buffer of the transform; @p size 0 is the end.
    virtual bool decode(const void*& data, std::uint64_t& size) = 0;
    /// Whether a stream may be followed by another one in the same file.
    virtual bool can_append() const { return true; }
    /// The file is closed: releases what only an open one needs.
    virtual void end() {}

    bool writing() const { return writing_; }
    /// Whether the open stream takes such an operation; says why not.
    bool check(bool for_writing);
    /// Writes to the lower layer, whose text shows after a failure.
    bool write_lower(const void* data, std::uint64_t size);
    /// Reads from the lower layer, whose text shows after a failure (-1).
    std::int64_t read_lower(void* buf, std::uint64_t size);
    bool read_lower(const void*& data, std::uint64_t& size);
    /// Records a failure of the codec. @return false
    bool fail(std::string text);

private:
    static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

    bool start(const char* path, unsigned mode, std::uint64_t offset);
    bool finish_open(bool opened, unsigned mode);
    template <class Skip>
    auto skip_pending(Skip skip);
    bool skip_failed();

    bool open_ = false;
    bool writing_ = false;
    bool ok_ = false;                ///< no failure of the codec since the last open
    bool failed_ = false;            ///< the open stream cannot go on
    bool end_written_ = false;       ///< of the stream that was written
    std::uint64_t pending_skip_ = 0; ///< decoded bytes to discard before the next read
    std::uint64_t left_ = unlimited; ///< decoded bytes that will still be handed out
    const void* block_ = nullptr;    ///< handed out by the last zero-copy decode()
};
