#pragma once

#include "cli/image_source.h"
#include "cli/reporter.h"
#include "client_io/image_client_io_writer.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace cio
{

/// Stores a source as a block image without its holes and its blocks of zeros, in one pass: what is
/// stored is what was looked at.
///
/// The source is read into windows of 1 MiB, whose data go to the target from where they were read.
/// Each window becomes a batch of its own. Batches are ended before they are full, and the last one
/// says that it is the last: so a cut is noticed though the image does not announce its size. For
/// that one window is read ahead.
class Found_Blocks_Writer : public Image_Client_IO_Writer
{
public:
    Found_Blocks_Writer(Client_IO* io, Image_Source& source, Reporter& report);
    ~Found_Blocks_Writer() override;

    /// Writes the whole image.
    /// @param options  whose extra area leaves room for two records
    /// @return false when the program was asked to end (no text), or on failure
    [[nodiscard]] bool write_image(const qovr::Image_Options& options, Failure& failure);

private:
    /// Blocks that stand one behind the other in the source as in the window.
    struct Run
    {
        const char* data;
        std::uint64_t offset; ///< in the source, blocks
        std::uint64_t count;
    };
    struct Window
    {
        std::unique_ptr<char[]> data;
        std::vector<Run> runs; ///< none: the source has ended
    };

    bool fill(Window& window, Failure& failure);
    bool next_range();
    void find_runs(Window& window, const char* data, std::uint64_t size);
    bool write_window(const Window& window, bool is_last);
    bool write_batch(const Run* first, const Run* last, bool is_last);

    Image_Source& source_;
    Reporter& report_;
    std::uint64_t position_ = 0;  // of the source, whole blocks: what stands before was looked at
    std::uint64_t range_end_ = 0; // of the data that begin at the position
    std::uint64_t most_records_ = 0; // of a batch
};

} // namespace cio
