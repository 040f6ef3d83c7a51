#pragma once

#include "platform/image/image_records.h"

#include <ace/Log_Priority.h>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace qovr
{

/// Parses a block image from pieces of any size and reports what it finds to a callback, in the
/// order of the image: the super block, the extra area if there is one, then for each descriptor
/// block its header, its records and its data.
///
/// Nothing is reported of the super block, the extra area or a descriptor block before its
/// checksum, its place in the image and its numbers are found right; data carry no checksum and
/// are handed on as they come, from the caller's buffer. Memory: one descriptor block, whose size
/// is checked before.
///
/// After a failure every further parse() fails. One object parses one image and serves one thread.
class CLIENT_IO_EXPORT Image_Parser
{
public:
    using Superblock = Image_Superblock;
    using Descriptor_Header = Image_Descriptor_Header;

    /// What state() tells. 4, 0x10 and 0x20 are part of the interface.
    enum State : int
    {
        superblock_due = 1,
        descriptor_due = 4,   ///< at the boundary of a descriptor block: an image may end here only
        in_descriptor = 0x10, ///< a part of a descriptor block is there
        data_due = 0x20,
        failed = 0x40,
    };

    class Callback;

    /// @param callback       not owned; it must outlive the parser
    /// @param without_data   the input leaves the data out: descriptor block follows descriptor
    ///                       block, for a caller that skips the data by seeking
    /// @param largest_block  bytes: images with larger blocks of either kind are refused; 0 = the
    ///                       format's largest, 16 MiB
    Image_Parser(Callback* callback, bool without_data, std::uint64_t largest_block);

    /// Parses the next piece of the image.
    /// @param parsed  receives how many bytes were taken: all of them on success
    [[nodiscard]] bool parse(const void* data, std::uint64_t size, std::uint64_t& parsed);

    int state() const { return state_; }
    /// Whether the image may end here: at the boundary of a descriptor block, with all that it
    /// announced.
    bool complete() const;
    /// Why the parse failed; empty when it did not, or when a callback said stop.
    const char* error() const { return error_; }

    /// Logs "MESSAGE, state=0xSTATE, offset=BYTES" and the reason of a failure, if there is one.
    void dump(ACE_Log_Priority priority, const char* message) const;

private:
    std::uint64_t take(const unsigned char* data, std::uint64_t size);
    const unsigned char* gather(const unsigned char* data, std::uint64_t size, std::uint64_t whole,
                                std::uint64_t& taken);
    bool parse_superblock(const unsigned char* bytes);
    bool parse_descriptor(const unsigned char* bytes);
    bool check_descriptor(std::span<const unsigned char> block, const Descriptor_Header& header);
    bool fail(const char* reason);

    Callback* callback_;
    bool without_data_;
    std::uint64_t largest_block_;
    int state_ = superblock_due;
    const char* error_ = "";
    std::uint64_t offset_ = 0; ///< bytes parsed
    Superblock superblock_;
    std::uint64_t sequence_ = 0;    ///< of the next descriptor block
    std::uint64_t data_blocks_ = 0; ///< announced by descriptor blocks so far
    Image_Continuation continuation_ = Image_Continuation::more;
    std::uint64_t bytes_due_ = 0;      ///< of data
    std::vector<unsigned char> block_; ///< the part of a block that is there
};

/// Told what was found; false makes the parse fail.
class CLIENT_IO_EXPORT Image_Parser::Callback
{
public:
    Callback() = default;
    Callback(const Callback&) = delete;
    Callback& operator=(const Callback&) = delete;
    virtual ~Callback();

    virtual bool handle_superblock(const Superblock& super) = 0;
    /// The extra area, whole; not called for an image without one.
    virtual bool handle_superblock_extra(const void* data, std::uint64_t size) = 0;
    virtual bool handle_descriptor_header(const Descriptor_Header& header) = 0;
    /// Both in data blocks. Within a descriptor block each record lies behind the one before.
    virtual bool handle_descriptor_record(std::uint64_t block_offset,
                                          std::uint64_t block_count) = 0;
    /// The next @p size bytes (1 or more) of the data that the records announced. They are
    /// gone after the call.
    virtual bool handle_data(const void* data, std::uint64_t size) = 0;
};

} // namespace qovr
