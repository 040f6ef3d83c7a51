#pragma once

#include "client_io/image_block_writer.h"
#include "platform/image/image_parser.h"

#include <deque>
#include <functional>

/// Reads a block image from the open file of a Client_IO and hands its extents to a callback.
///
/// Every read goes from the present position of the file to its end; the caller opens and closes
/// it. True means that the whole image was there and every byte was delivered. An image that was
/// cut off, and damage to anything but data, is a failure, of which the callback may have been
/// given a part before; damage to data is not noticed here (compression and encryption with
/// checksums notice it).
///
/// Failures are logged in one line; the Client_IO keeps its own error(). A callback that throws
/// stops like one that returns false. Memory: one descriptor block and its records, at most 48 MiB,
/// and the buffer; 0.2 MiB for an image of the usual block sizes.
///
/// An object serves any number of reads, one at a time.
class CLIENT_IO_EXPORT Image_Block_Reader
{
public:
    /// Given @p size bytes that belong at byte @p offset of the source; they are gone after the
    /// call. A piece never crosses the end of an extent; runs of blocks that touch are one extent.
    /// False stops.
    using Handler = std::function<bool(const void* data, std::uint64_t size, std::int64_t offset)>;

    class Callback;

    Image_Block_Reader();
    virtual ~Image_Block_Reader();
    Image_Block_Reader(const Image_Block_Reader&) = delete;
    Image_Block_Reader& operator=(const Image_Block_Reader&) = delete;

    /// For derived classes that want to see what the image tells of itself, or to refuse it by
    /// returning false. Base: true.
    virtual bool handle_superblock(const qovr::Image_Parser::Superblock& super);
    virtual bool handle_superblock_extra(const void* data, std::uint64_t size);
    virtual bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& header);

    /// Reads by Client_IO's zero-copy read: data reach @p fn from its own buffers.
    [[nodiscard]] bool read_blocks(Client_IO& io, const Handler& fn);
    /// Reads through a buffer.
    /// @param buffer_size  bytes, 65536 at least (less is raised)
    [[nodiscard]] bool read_blocks(Client_IO& io, const Handler& fn, std::uint64_t buffer_size);
    /// Reads the super block, each descriptor block and its data as reads of exactly their size.
    /// @param buffer_size  bytes, raised to 65536; not less than either kind of block of the image
    ///                     has, and a multiple of its data blocks
    [[nodiscard]] bool read_blocks_align(Client_IO& io, const Handler& fn,
                                         std::uint64_t buffer_size);

private:
    bool read_zero_copy(Client_IO& io, const Handler& fn);
    bool read_buffered(Client_IO& io, const Handler& fn, std::uint64_t buffer_size);
    bool read_aligned(Client_IO& io, const Handler& fn, std::uint64_t buffer_size);
    static bool read_exact(Client_IO& io, void* buffer, std::uint64_t size);
};

/// What a read makes of the parser's reports: a queue of extents, which the data that follow are
/// matched against.
class CLIENT_IO_EXPORT Image_Block_Reader::Callback : public qovr::Image_Parser::Callback
{
public:
    /// @param reader   whose hooks are called; not owned
    /// @param handler  not copied: it must outlive this object
    Callback(Image_Block_Reader* reader, const Handler* handler);
    ~Callback() override;

    bool handle_superblock(const qovr::Image_Parser::Superblock& super) override;
    bool handle_superblock_extra(const void* data, std::uint64_t size) override;
    bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& header) override;
    bool handle_descriptor_record(std::uint64_t block_offset, std::uint64_t block_count) override;
    bool handle_data(const void* data, std::uint64_t size) override;

    std::uint64_t data_block_bytes() const { return data_block_bytes_; }
    std::uint64_t desc_block_bytes() const { return desc_block_bytes_; }
    std::uint64_t data_blocks() const { return data_blocks_; }

private:
    Image_Block_Reader* reader_;
    const Handler* handler_;
    std::deque<Image_Block_Writer::Block> blocks_; ///< announced, without their data so far
    std::uint64_t data_block_bytes_ = 0;           ///< of one data block, 0 before the super block
    std::uint64_t desc_block_bytes_ = 0;           ///< of one descriptor block
    std::uint64_t data_blocks_ = 0;                ///< behind the current descriptor block
};
