#pragma once

#include "cli/extent_list.h"
#include "cli/image_source.h"
#include "cli/reporter.h"
#include "client_io/image_client_io_writer.h"

namespace cio
{

/// Stores the extents of a list as a block image, zeros included. The list is not copied, so that
/// its memory is all that extents cost.
class Listed_Blocks_Writer : public Image_Client_IO_Writer
{
public:
    /// @param list  finished, not empty, in blocks of the options' size
    Listed_Blocks_Writer(Client_IO* io, Image_Source& source, const Extent_List& list,
                         Reporter& report);
    ~Listed_Blocks_Writer() override;

    /// Writes the whole image.
    /// @return false when the program was asked to end (no text), or on failure
    [[nodiscard]] bool write_image(const qovr::Image_Options& options, Failure& failure);

private:
    /// A place in the list.
    struct Place
    {
        std::size_t extent = 0;
        std::uint64_t done = 0; ///< bytes of the extent that stand before
    };

    bool record_batch(Place& place);
    bool store_batch(Place& place, const Place& end, char* buffer, Failure& failure);
    bool store(std::uint64_t offset, std::uint64_t length, char* buffer, Failure& failure);

    Image_Source& source_;
    const Extent_List& list_;
    Reporter& report_;
};

} // namespace cio
