#include "cli/listed_blocks_writer.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <memory>

namespace cio
{
namespace
{

constexpr std::uint64_t buffer_size = 1U << 18U;

} // namespace

Listed_Blocks_Writer::Listed_Blocks_Writer(Client_IO* io, Image_Source& source,
                                           const Extent_List& list, Reporter& report)
    : Image_Client_IO_Writer(io), source_(source), list_(list), report_(report)
{}

Listed_Blocks_Writer::~Listed_Blocks_Writer() = default;

bool Listed_Blocks_Writer::write_image(const qovr::Image_Options& options, Failure& failure)
{
    const auto buffer = std::make_unique<char[]>(buffer_size);
    announce_data_blocks(list_.bytes() / list_.block_size());
    bool good = set_options(options) && write_descriptor_header(qovr::image_descriptor_version,
                                                                qovr::image_descriptor_magic);
    Place recorded;
    Place stored;
    while (good && stored.extent < list_.extents().size()) {
        good = record_batch(recorded);
        if (good && !store_batch(stored, recorded, buffer.get(), failure))
            return false;
    }
    if (!good)
        failure = stream_failure(*io_);
    return good;
}

/// Records extents from @p place on until the batch is full or the list has ended.
bool Listed_Blocks_Writer::record_batch(Place& place)
{
    const std::uint64_t block = data_block_size();
    while (state() == records_due && place.extent < list_.extents().size()) {
        const Extent& extent = list_.extents()[place.extent];
        const std::int64_t count = write_descriptor_record((extent.offset + place.done) / block,
                                                           (extent.length - place.done) / block);
        if (count < 1)
            return false;
        place.done += static_cast<std::uint64_t>(count) * block;
        if (place.done == extent.length)
            place = {place.extent + 1, 0};
    }
    return state() == data_due || write_descriptor_record(0, 0) == 0;
}

/// Stores what was recorded, from @p place to @p end.
bool Listed_Blocks_Writer::store_batch(Place& place, const Place& end, char* buffer,
                                       Failure& failure)
{
    while (place.extent != end.extent || place.done != end.done) {
        const Extent& extent = list_.extents()[place.extent];
        const std::uint64_t stop = place.extent == end.extent ? end.done : extent.length;
        if (!store(extent.offset + place.done, stop - place.done, buffer, failure))
            return false;
        place = place.extent == end.extent ? end : Place{place.extent + 1, 0};
    }
    return true;
}

bool Listed_Blocks_Writer::store(std::uint64_t offset, std::uint64_t length, char* buffer,
                                 Failure& failure)
{
    for (std::uint64_t done = 0; done < length;) {
        const std::uint64_t n = std::min(buffer_size, length - done);
        if (interrupt::requested() || !source_.read(buffer, n, offset + done, failure))
            return false;
        if (write_data(buffer, n) < 0) {
            failure = stream_failure(*io_);
            return false;
        }
        report_.bytes_moved(n);
        done += n;
    }
    return true;
}

} // namespace cio
