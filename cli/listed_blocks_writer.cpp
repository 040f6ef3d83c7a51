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

Listed_Blocks_Writer::Listed_Blocks_Writer(Client_IO* io, Image_Source& source, Reporter& report)
    : Image_Client_IO_Writer(io), source_(source), report_(report)
{}

Listed_Blocks_Writer::~Listed_Blocks_Writer() = default;

bool Listed_Blocks_Writer::write_image(const Extent_List& list, Failure& failure)
{
    const auto buffer = std::make_unique<char[]>(buffer_size);
    Place recorded{list.extents().begin(), 0};
    Place stored = recorded;
    announce_data_blocks(list.bytes() / data_block_size());
    bool good =
        write_descriptor_header(qovr::image_descriptor_version, qovr::image_descriptor_magic);
    while (good && state() == records_due) {
        good = record_batch(list, recorded);
        if (good && !store_batch(stored, recorded, buffer.get(), failure))
            return false;
        if (recorded.extent == list.extents().end())
            break;
    }
    if (!good)
        failure = stream_failure(*io_);
    return good;
}

/// Records extents from @p place on until the batch is full or the list has ended.
bool Listed_Blocks_Writer::record_batch(const Extent_List& list, Place& place)
{
    const std::uint64_t block = data_block_size();
    while (state() == records_due && place.extent != list.extents().end()) {
        const Extent& extent = *place.extent;
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

bool Listed_Blocks_Writer::store_batch(Place& place, const Place& end, char* buffer,
                                       Failure& failure)
{
    for (; place.extent != end.extent; place = {place.extent + 1, 0})
        if (!store(place.extent->offset + place.done, place.extent->length - place.done, buffer,
                   failure))
            return false;
    const bool good = end.done == place.done || store(place.extent->offset + place.done,
                                                      end.done - place.done, buffer, failure);
    place = end;
    return good;
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
