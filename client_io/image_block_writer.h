#pragma once

#include "client_io/image_client_io_writer.h"

#include <cstddef>
#include <functional>
#include <vector>

/// Stores a list of extents of a source as a block image in the open file of a Client_IO.
///
/// Open the file, add_block() as often as needed in the order in which the data are to be stored,
/// write_blocks() once, close the file: only a successful close() says that the image is there.
/// The image's block sizes and the like are the options of qovr::Image_Writer. An object writes one
/// image.
///
/// The data go from the reader's buffer to Client_IO::write() without a copy. Memory: 16 bytes an
/// extent (as they are reserved), beside two descriptor blocks.
///
/// Failures are logged in one line at most; the Client_IO keeps its own error(). Nothing is rolled
/// back: what was written stays in the file, and readers refuse it unless only the last progress()
/// said stop.
class CLIENT_IO_EXPORT Image_Block_Writer : public Image_Client_IO_Writer
{
public:
    /// An extent, in bytes of the source.
    struct Block
    {
        std::uint64_t offset = 0;
        std::uint64_t length = 0;
    };

    /// Told the bytes of each piece once it is written; false stops, silently.
    using Progress = std::function<bool(std::uint64_t)>;
    /// Asked for source bytes at @p offset.
    /// @param data       receives a buffer of the reader's own, valid until the next call
    /// @param max_bytes  what is left of the range
    /// @return bytes there, 1 to @p max_bytes; less than 1 stops, silently
    using Reader = std::function<std::int64_t(const void*& data, std::uint64_t max_bytes,
                                              std::int64_t offset)>;

    explicit Image_Block_Writer(Client_IO* io);
    ~Image_Block_Writer() override;

    /// Appends an extent. Both numbers must be multiples of data_block_size(), and the length not
    /// 0: write_blocks() fails at an extent for which that is not so. Extents may overlap and stand
    /// in any order; in ascending order an image is smallest.
    void add_block(std::uint64_t offset, std::uint64_t length);
    /// Makes room for @p count extents in all, so that they cost 16 bytes each.
    void reserve(std::uint64_t count);
    /// Empties the list. The state of the image stays: for another image take another object.
    void reset();
    bool empty() const { return blocks_.empty(); }

    /// Writes the whole image.
    /// @return false, with what was written left in the file, for an empty list, an extent that
    ///         cannot be recorded, a callback that said stop, a failed write, or when an earlier
    ///         add_block() was out of memory. A callback that throws stops like one that says so.
    ///         After a failure the object writes nothing any more.
    [[nodiscard]] bool write_blocks(const Progress& progress, const Reader& reader);

    /// The steps of write_blocks().
    /// Records one batch: as many extents as the image takes before their data are due.
    [[nodiscard]] bool write_records();
    /// Writes the data of the batch.
    /// @return 1 = more batches follow, 0 = all is written, -1 = failed
    [[nodiscard]] int write_blocks_i(const Progress& progress, const Reader& reader);
    /// Writes the data of one range. @return 1, -1 = failed
    [[nodiscard]] int write_range(std::uint64_t offset, std::uint64_t length,
                                  const Progress& progress, const Reader& reader);

private:
    bool write_all(const Progress& progress, const Reader& reader);
    void announce();

    std::vector<Block> blocks_;
    std::uint64_t block_start_ = 0; ///< first extent whose data are not all written
    std::uint64_t block_end_ = 0;   ///< first extent whose records are not all written
    std::uint64_t start_ = 0;       ///< bytes of the first whose data are written
    std::uint64_t end_ = 0;         ///< bytes of the second that records cover
    bool incomplete_ = false;       ///< an extent found no memory
};
