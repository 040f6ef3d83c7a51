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
    Listed_Blocks_Writer(Client_IO* io, Image_Source& source, Reporter& report);
    ~Listed_Blocks_Writer() override;

    /// Writes the whole image; set_options() comes first.
    /// @return false when the program was asked to end, or on failure
    [[nodiscard]] bool write_image(const Extent_List& list, Failure& failure);

private:
    using Iterator = std::deque<Extent>::const_iterator;

    /// A place in the list.
    struct Place
    {
        Iterator extent;
        std::uint64_t done; ///< bytes of the extent that stand before
    };

    bool record_batch(const Extent_List& list, Place& place);
    bool store_batch(Place& place, const Place& end, char* buffer, Failure& failure);
    bool store(std::uint64_t offset, std::uint64_t length, char* buffer, Failure& failure);

    Image_Source& source_;
    Reporter& report_;
};

} // namespace cio
