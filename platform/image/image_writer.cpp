#include "platform/image/image_writer.h"

#include "platform/image/image_format.h"
#include "platform/runtime/clock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <openssl/rand.h>

namespace qovr
{
Image_Writer::Image_Writer() = default;

Image_Writer::~Image_Writer() = default;

bool Image_Writer::set_options(const Image_Options& options)
try {
    if (state_ != header_due)
        return false;
    superblock_.data_blk_size = 0;
    if (!is_image_block_size(options.data_block_size) ||
        !is_image_block_size(options.descriptor_block_size) ||
        options.source_size > largest_image_source ||
        options.extra.size() > largest_image_extra(options.descriptor_block_size))
        return false;
    extra_ = options.extra;
    superblock_.extra_size = static_cast<std::uint32_t>(extra_.size());
    superblock_.id = options.id;
    superblock_.source_size = options.source_size;
    superblock_.creation_time = options.creation_time;
    superblock_.desc_blk_size = options.descriptor_block_size;
    superblock_.data_blk_size = options.data_block_size;
    return true;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

void Image_Writer::announce_data_blocks(std::uint64_t count)
{
    if (state_ == header_due)
        announced_ = count;
}

std::uint32_t Image_Writer::data_block_size() const
{
    return static_cast<std::uint32_t>(superblock_.data_blk_size);
}

bool Image_Writer::write_descriptor_header(std::uint16_t version, const char* magic)
try {
    // What no reader would take is not written.
    if (state_ != header_due || superblock_.data_blk_size == 0 ||
        version != image_descriptor_version || magic == nullptr ||
        std::strcmp(magic, image_descriptor_magic) != 0)
        return false;
    block_.resize(superblock_.desc_blk_size);
    records_.reserve(image_record_capacity(block_.size()));
    if (superblock_.id == Image_Id{} &&
        RAND_bytes(superblock_.id.data(), static_cast<int>(superblock_.id.size())) != 1)
        return false;
    if (superblock_.creation_time == 0)
        superblock_.creation_time = std::chrono::duration_cast<std::chrono::seconds>(
                                        Clock::current().now().time_since_epoch())
                                        .count();
    superblock_.data_blocks = announced_;
    superblock_.extra_checksum =
        image_checksum({reinterpret_cast<const unsigned char*>(extra_.data()), extra_.size()});
    std::array<unsigned char, image_superblock_size> bytes{};
    encode(superblock_, bytes);
    if (!emit(bytes.data(), bytes.size()))
        return false;
    state_ = records_due;
    return true;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

std::int64_t Image_Writer::write_descriptor_record(std::uint64_t block_offset,
                                                   std::uint64_t block_count)
{
    if (state_ != records_due)
        return -1;
    if (block_offset == 0 && block_count == 0) {
        // The last descriptor block would say otherwise, or the super block.
        const bool more_promised = records_.empty() && continuation_ == Image_Continuation::more;
        if (more_promised || (announced_ != unknown_block_count && recorded_ != announced_))
            return -1;
        close_batch(Image_Continuation::last);
        return 0;
    }
    const std::uint64_t end_of_source = source_blocks(superblock_);
    if (block_count == 0 || block_offset >= end_of_source ||
        block_count > end_of_source - block_offset || block_count > announced_ - recorded_)
        return -1;

    const std::uint64_t n = std::min(block_count, most_blocks_of_descriptor - batch_blocks_);
    records_.push_back({block_offset, n}); // never beyond what was reserved
    batch_blocks_ += n;
    recorded_ += n;
    // The first descriptor block shares its place with the extra area.
    const std::size_t room = sequence_ == 0 ? block_.size() - extra_.size() : block_.size();
    if (records_.size() == image_record_capacity(room) ||
        batch_blocks_ == most_blocks_of_descriptor)
        close_batch(Image_Continuation::may_stop);
    return static_cast<std::int64_t>(n);
}

bool Image_Writer::end_batch()
{
    if (state_ != records_due || records_.empty() || recorded_ == announced_)
        return false;
    close_batch(Image_Continuation::more);
    return true;
}

std::int64_t Image_Writer::write_data(const void* data, std::uint64_t size)
{
    if (state_ != data_due || size > batch_bytes_due())
        return -1;
    const auto* from = static_cast<const unsigned char*>(data);
    std::uint64_t left = size;
    while (left != 0) {
        if (bytes_due_ == 0 && !write_descriptor_block())
            return -1;
        const std::uint64_t n = std::min(left, bytes_due_);
        if (!emit(from, n))
            return -1;
        from += n;
        left -= n;
        bytes_due_ -= n;
    }
    if (batch_bytes_due() == 0) {
        state_ = continuation_ == Image_Continuation::last ? finished : records_due;
        records_.clear();
        batch_blocks_ = described_blocks_ = 0;
        described_ = 0;
    }
    return static_cast<std::int64_t>(size);
}

std::uint64_t Image_Writer::batch_bytes_due() const
{
    return (batch_blocks_ - described_blocks_) * superblock_.data_blk_size + bytes_due_;
}

void Image_Writer::close_batch(Image_Continuation continuation)
{
    continuation_ = continuation;
    state_ = data_due;
}

/// The records up to the first that does not lie behind the one before it: a reader joins the
/// records of a descriptor block on that condition.
bool Image_Writer::write_descriptor_block()
{
    const auto first = records_.begin() + static_cast<std::ptrdiff_t>(described_);
    auto last = first;
    std::uint64_t blocks = 0;
    do {
        blocks += last->count;
        ++last;
    } while (last != records_.end() && last->offset >= (last - 1)->offset + (last - 1)->count);

    const std::size_t extra_size = sequence_ == 0 ? extra_.size() : 0;
    std::copy_n(extra_.begin(), extra_size, block_.begin());
    Image_Descriptor_Header header;
    header.data_blocks = static_cast<std::uint32_t>(blocks);
    header.records = static_cast<std::uint32_t>(last - first);
    header.sequence = sequence_;
    header.continuation = last == records_.end() ? continuation_ : Image_Continuation::more;
    header.id = superblock_.id;
    encode(header, {first, last}, std::span(block_).subspan(extra_size));
    if (!emit(block_.data(), block_.size()))
        return false;
    ++sequence_;
    described_ += header.records;
    described_blocks_ += blocks;
    bytes_due_ = blocks * superblock_.data_blk_size;
    return true;
}

bool Image_Writer::emit(const void* data, std::uint64_t size)
{
    if (overflow(data, size))
        return true;
    state_ = failed;
    return false;
}

} // namespace qovr
