#pragma once

#include "platform/image/image_records.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace qovr
{

/// What a writer puts into the super block of its image.
struct Image_Options
{
    std::uint64_t source_size = 0; ///< bytes of what is saved, 0 = unknown
    /// Bytes of one data block and of one descriptor block: powers of two from 512 to 16 MiB.
    std::uint64_t data_block_size = default_image_block;
    std::uint64_t descriptor_block_size = default_image_block;
    std::int64_t creation_time = 0; ///< POSIX seconds, 0 = the time of writing the super block
    Image_Id id{};                  ///< all zeros = a random one
    /// Contents of the extra area, bytes of any kind; none when empty. At most
    /// largest_image_extra(descriptor_block_size) bytes.
    std::string extra;
};

/// Writes a block image: a header, then batches of records, each followed by the data that its
/// records announce, in their order.
///
/// The bytes go to overflow() as they arise; data are handed on from the caller's buffer without
/// a copy. Records of one batch may stand in any order and overlap: the batch becomes as many
/// descriptor blocks as it needs for records to ascend within each. Memory: two descriptor
/// blocks, whatever the size of the image.
///
/// After a failure the writer stays failed (state 8): what overflow() took is not known.
/// One object writes one image and serves one thread.
class CLIENT_IO_EXPORT Image_Writer
{
public:
    /// What state() tells. The first three numbers are part of the interface.
    enum State : int
    {
        header_due = 1,
        records_due = 2,
        data_due = 3,
        finished = 4, ///< the list of records was ended and its data are complete
        failed = 8,
    };

    Image_Writer();
    virtual ~Image_Writer();
    Image_Writer(const Image_Writer&) = delete;
    Image_Writer& operator=(const Image_Writer&) = delete;

    /// Takes the next bytes of the image. They are gone after the call.
    /// @return whether every byte was taken
    virtual bool overflow(const void* data, std::uint64_t size) = 0;

    /// Replaces the defaults; before the header only.
    /// @return false when a size is none that the format has; data_block_size() is 0 then, and
    ///         nothing can be written
    [[nodiscard]] bool set_options(const Image_Options& options);

    /// Says before the header how many data blocks the image will have, so that readers notice
    /// one that was cut off wherever that happened. Without it they cannot notice a cut behind a
    /// batch whose list of records was full, where the image may have ended as well.
    void announce_data_blocks(std::uint64_t count);

    int state() const { return state_; }
    /// Bytes; 0 when the options were refused.
    std::uint32_t data_block_size() const;
    const Image_Id& id() const { return superblock_.id; }

    /// Writes the super block. Descriptor blocks carry @p version and @p magic.
    /// @param version  0, the one there is
    /// @param magic    "SDD1"
    [[nodiscard]] bool write_descriptor_header(std::uint16_t version, const char* magic);

    /// Adds a run of data blocks to the batch. (0, 0) ends the list of records and with it the
    /// image: state 3, and behind the batch's data nothing more (which is nothing at all when the
    /// batch before was full). An image holds one data block at least.
    /// @param block_offset, block_count  data blocks, in the source
    /// @return how many of the blocks were recorded, from 1; fewer than asked when the batch is
    ///         full (4,294,967,295 data blocks), 0 for the end of the list; state 3 when the batch
    ///         is full. -1, with nothing recorded, out of turn, for no blocks, for a run that ends
    ///         beyond the source or beyond 2^63 bytes, or for more blocks (at the end of the
    ///         list: fewer) than were announced
    [[nodiscard]] std::int64_t write_descriptor_record(std::uint64_t block_offset,
                                                       std::uint64_t block_count);

    /// Ends the batch before it is full, to be called when more records follow it: state 3.
    /// @return false out of turn, for a batch without records, or when all that was announced is
    ///         recorded
    [[nodiscard]] bool end_batch();

    /// Writes data that the batch announced, in pieces of any size; behind the last one the state
    /// is 2 (4 when the list of records was ended).
    /// @return @p size; -1 out of turn, for more bytes than are due (nothing is written then), or
    ///         when overflow() failed
    [[nodiscard]] std::int64_t write_data(const void* data, std::uint64_t size);

protected:
    /// Nothing can be written any more: state 8.
    void give_up() { state_ = failed; }

private:
    std::uint64_t batch_bytes_due() const;
    void close_batch(Image_Continuation continuation);
    bool write_descriptor_block();
    bool emit(const void* data, std::uint64_t size);

    int state_ = header_due;
    Image_Superblock superblock_;
    std::string extra_;
    std::uint64_t announced_ = unknown_block_count;
    std::uint64_t recorded_ = 0;         ///< data blocks of the image so far
    std::uint64_t sequence_ = 0;         ///< of the next descriptor block
    std::vector<Image_Record> records_;  ///< the batch
    std::uint64_t batch_blocks_ = 0;     ///< data blocks that the batch announces
    std::size_t described_ = 0;          ///< records whose descriptor block is written
    std::uint64_t described_blocks_ = 0; ///< data blocks of these
    std::uint64_t bytes_due_ = 0;        ///< data of the last descriptor block
    Image_Continuation continuation_ = Image_Continuation::more;
    std::vector<unsigned char> block_; ///< where descriptor blocks are built
};

} // namespace qovr
