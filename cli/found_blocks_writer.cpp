#include "cli/found_blocks_writer.h"

#include "cli/interrupt.h"

#include <algorithm>
#include <cstring>

namespace cio
{
namespace
{

constexpr std::uint64_t window_size = 1U << 20U;
static_assert(window_size >= largest_stored_block);

bool is_zero(const char* block, std::uint64_t size)
{
    return *block == 0 && std::memcmp(block, block + 1, size - 1) == 0;
}

} // namespace

Found_Blocks_Writer::Found_Blocks_Writer(Client_IO* io, Image_Source& source, Reporter& report)
    : Image_Client_IO_Writer(io), source_(source), report_(report)
{}

Found_Blocks_Writer::~Found_Blocks_Writer() = default;

bool Found_Blocks_Writer::write_image(const qovr::Image_Options& options, Failure& failure)
{
    // One record less than fits, lest a batch be full; the first shares its place with the extra
    // area. The largest extra area leaves room for one record.
    most_records_ =
        (qovr::largest_image_extra(options.descriptor_block_size) - options.extra.size()) /
        sizeof(qovr::Image_Record);
    Window window{std::make_unique<char[]>(window_size), {}};
    Window next{std::make_unique<char[]>(window_size), {}};
    bool good = set_options(options);
    if (good && !fill(window, failure))
        return false;
    if (good && window.runs.empty()) {
        // Nothing but zeros; an image holds one block at least.
        std::memset(window.data.get(), 0, data_block_size());
        window.runs.push_back({window.data.get(), 0, 1});
    }
    good = good &&
           write_descriptor_header(qovr::image_descriptor_version, qovr::image_descriptor_magic);
    while (good && !window.runs.empty()) {
        if (!fill(next, failure))
            return false;
        good = write_window(window, next.runs.empty());
        std::swap(window, next);
    }
    if (!good)
        failure = stream_failure(*io_);
    return good;
}

/// Reads on until the window is full or the source has ended.
bool Found_Blocks_Writer::fill(Window& window, Failure& failure)
{
    window.runs.clear();
    std::uint64_t used = 0;
    while (used < window_size && next_range()) {
        if (interrupt::requested())
            return false;
        char* const data = window.data.get() + used;
        const std::uint64_t n = std::min(window_size - used, range_end_ - position_);
        if (!source_.read(data, n, position_, failure))
            return false;
        find_runs(window, data, n);
        position_ += n;
        used = window.runs.empty() ? 0 : used + n; // zeros alone give their place back
    }
    return true;
}

/// Goes to the next data of the source. @return false when there are none
bool Found_Blocks_Writer::next_range()
{
    if (position_ < range_end_)
        return true;
    const std::uint64_t mask = data_block_size() - 1; // of a power of two
    const std::uint64_t end = (source_.size() + mask) & ~mask;
    const std::optional<Extent> range = source_.next_data(position_);
    const std::uint64_t start = range ? std::max(position_, range->offset & ~mask) : end;
    report_.already_there(start - position_);
    position_ = start;
    range_end_ = range ? (range->end() + mask) & ~mask : end;
    return position_ < range_end_;
}

void Found_Blocks_Writer::find_runs(Window& window, const char* data, std::uint64_t size)
{
    const std::uint64_t block = data_block_size();
    std::uint64_t zeros = 0;
    for (std::uint64_t at = 0; at < size; at += block) {
        if (is_zero(data + at, block)) {
            zeros += block;
            continue;
        }
        const Run run{data + at, (position_ + at) / block, 1};
        Run* const last = window.runs.empty() ? nullptr : &window.runs.back();
        if (last != nullptr && last->offset + last->count == run.offset &&
            last->data + last->count * block == run.data)
            ++last->count;
        else
            window.runs.push_back(run);
    }
    report_.already_there(zeros);
}

bool Found_Blocks_Writer::write_window(const Window& window, bool is_last)
{
    const Run* run = window.runs.data();
    const Run* const end = run + window.runs.size();
    while (run != end) {
        const Run* const batch_end =
            run + std::min<std::ptrdiff_t>(end - run, static_cast<std::ptrdiff_t>(most_records_));
        if (!write_batch(run, batch_end, is_last && batch_end == end))
            return false;
        run = batch_end;
    }
    return true;
}

bool Found_Blocks_Writer::write_batch(const Run* first, const Run* last, bool is_last)
{
    for (const Run* run = first; run != last; ++run)
        if (write_descriptor_record(run->offset, run->count) < 1)
            return false;
    if (is_last ? write_descriptor_record(0, 0) != 0 : !end_batch())
        return false;
    for (const Run* run = first; run != last; ++run) {
        const std::uint64_t size = run->count * data_block_size();
        if (write_data(run->data, size) < 0)
            return false;
        report_.bytes_moved(size);
    }
    return true;
}

} // namespace cio
