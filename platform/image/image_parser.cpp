#include "platform/image/image_parser.h"

#include "platform/image/image_format.h"

#include <ace/Log_Msg.h>
#include <algorithm>
#include <cerrno>
#include <new>

namespace qovr
{
Image_Parser::Callback::~Callback() = default;

Image_Parser::Image_Parser(Callback* callback, bool without_data, std::uint64_t largest_block)
    : callback_(callback), without_data_(without_data),
      largest_block_(largest_block == 0 ? largest_image_block : largest_block)
{}

bool Image_Parser::parse(const void* data, std::uint64_t size, std::uint64_t& parsed)
{
    const auto* from = static_cast<const unsigned char*>(data);
    parsed = 0;
    while (parsed < size) {
        const std::uint64_t taken = take(from + parsed, size - parsed);
        if (state_ == failed)
            return false;
        parsed += taken;
        offset_ += taken;
    }
    return state_ != failed;
}

bool Image_Parser::complete() const
{
    if (state_ != descriptor_due || sequence_ == 0)
        return false;
    return superblock_.data_blocks == unknown_block_count
               ? continuation_ != Image_Continuation::more
               : data_blocks_ == superblock_.data_blocks;
}

void Image_Parser::dump(ACE_Log_Priority priority, const char* message) const
{
    const bool known = *error_ != '\0';
    ACE_Log_Msg::instance()->log(priority, "%s, state=0x%x, offset=%Q%s%s\n", message,
                                 static_cast<unsigned>(state_), offset_, known ? ": " : "", error_);
}

/// Takes what belongs to the present state.
/// @return bytes taken; state_ is failed when they were not right
std::uint64_t Image_Parser::take(const unsigned char* data, std::uint64_t size)
{
    if (state_ == failed)
        return 0;
    if (state_ == data_due) {
        const std::uint64_t n = std::min(size, bytes_due_);
        bytes_due_ -= n;
        if (bytes_due_ == 0)
            state_ = descriptor_due;
        if (!callback_->handle_data(data, n))
            fail("");
        return n;
    }
    if (state_ == descriptor_due &&
        (continuation_ == Image_Continuation::last || data_blocks_ == superblock_.data_blocks))
    {
        fail("data behind the end of the image");
        return 0;
    }
    std::uint64_t taken = 0;
    if (state_ == superblock_due) {
        if (const auto* bytes = gather(data, size, image_superblock_size, taken))
            parse_superblock(bytes);
        return taken;
    }
    state_ = in_descriptor;
    if (const auto* bytes = gather(data, size, superblock_.desc_blk_size, taken))
        parse_descriptor(bytes);
    return taken;
}

/// Collects a block that comes in pieces.
/// @return the block once it is whole, in place when it came in one piece; NULL before
const unsigned char* Image_Parser::gather(const unsigned char* data, std::uint64_t size,
                                          std::uint64_t whole, std::uint64_t& taken)
try {
    taken = std::min(size, whole - block_.size());
    if (taken == whole)
        return data;
    block_.reserve(whole);
    block_.insert(block_.end(), data, data + taken);
    return block_.size() == whole ? block_.data() : nullptr;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    fail("out of memory");
    return nullptr;
}

bool Image_Parser::parse_superblock(const unsigned char* bytes)
{
    const char* wrong =
        decode(std::span<const unsigned char, image_superblock_size>(bytes, image_superblock_size),
               superblock_);
    if (wrong != nullptr)
        return fail(wrong);
    if (superblock_.desc_blk_size > largest_block_ || superblock_.data_blk_size > largest_block_)
        return fail("blocks that are larger than the reader allows");
    if (superblock_.source_size > largest_image_source || superblock_.data_blocks == 0)
        return fail("a size in the super block that no image has");
    block_.clear();
    state_ = descriptor_due;
    return callback_->handle_superblock(superblock_) || fail("");
}

bool Image_Parser::parse_descriptor(const unsigned char* bytes)
{
    std::span<const unsigned char> block(bytes, superblock_.desc_blk_size);
    if (sequence_ == 0 && superblock_.extra_size != 0) {
        const auto extra = block.first(superblock_.extra_size);
        if (image_checksum(extra) != superblock_.extra_checksum)
            return fail("wrong checksum of the extra area");
        block = block.subspan(superblock_.extra_size);
    }
    Descriptor_Header header;
    if (const char* wrong = decode(block, header))
        return fail(wrong);
    if (!check_descriptor(block, header))
        return false;
    if (sequence_ == 0 && superblock_.extra_size != 0 &&
        !callback_->handle_superblock_extra(bytes, superblock_.extra_size))
        return fail("");

    ++sequence_;
    data_blocks_ += header.data_blocks;
    continuation_ = header.continuation;
    if (!callback_->handle_descriptor_header(header))
        return fail("");
    for (std::size_t i = 0; i < header.records; ++i) {
        const Image_Record record = decode_record(block, i);
        if (!callback_->handle_descriptor_record(record.offset, record.count))
            return fail("");
    }
    block_.clear();
    bytes_due_ = without_data_ ? 0 : header.data_blocks * superblock_.data_blk_size;
    state_ = without_data_ ? descriptor_due : data_due;
    return true;
}

/// What the block tells against the image so far, and its records against each other.
bool Image_Parser::check_descriptor(std::span<const unsigned char> block,
                                    const Descriptor_Header& header)
{
    if (header.id != superblock_.id)
        return fail("a descriptor block of another image");
    if (header.sequence != sequence_)
        return fail("a descriptor block out of its turn");
    if (header.data_blocks > superblock_.data_blocks - data_blocks_)
        return fail("more data blocks than the super block announces");
    const std::uint64_t end_of_source = source_blocks(superblock_);
    std::uint64_t end = 0;
    std::uint64_t blocks = 0;
    for (std::size_t i = 0; i < header.records; ++i) {
        const Image_Record record = decode_record(block, i);
        if (record.count == 0 || record.offset < end || record.offset >= end_of_source ||
            record.count > end_of_source - record.offset)
            return fail(
                "a record that does not lie behind the one before it, or within the source");
        end = record.offset + record.count;
        blocks += record.count;
    }
    if (blocks != header.data_blocks)
        return fail("records that do not agree with the count of data blocks");
    const bool all = data_blocks_ + blocks == superblock_.data_blocks;
    if (superblock_.data_blocks != unknown_block_count &&
        (all ? header.continuation == Image_Continuation::more
             : header.continuation == Image_Continuation::last))
        return fail("an end of the image that the super block does not announce");
    return true;
}

bool Image_Parser::fail(const char* reason)
{
    state_ = failed;
    error_ = reason;
    return false;
}

} // namespace qovr
