#include "client_io/image_block_reader.h"

#include "platform/runtime/format.h"
#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace
{

constexpr std::uint64_t least_buffer = 65536; // bytes

std::string shown(std::uint64_t value)
{
    return "=" + std::to_string(value);
}

/// The end of the input: the image has to end there as well.
bool finish(const qovr::Image_Parser& parser)
{
    if (parser.complete())
        return true;
    parser.dump(LM_ERROR, "Unexpected image parser state after handling data");
    return false;
}

/// Runs a read whose callbacks may throw.
template <class Read>
bool guarded(const Read& read)
try {
    return read();
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
} catch (...) {
    return false;
}

} // namespace

Image_Block_Reader::Callback::Callback(Image_Block_Reader* reader, const Handler* handler)
    : reader_(reader), handler_(handler)
{}

Image_Block_Reader::Callback::~Callback() = default;

bool Image_Block_Reader::Callback::handle_superblock(const qovr::Image_Parser::Superblock& super)
{
    if (super.data_blk_size == 0) {
        log_unexpected_values("Unexpected error in %N:%l, super.data_blk_size%s <= 0%s:\n%?\n",
                              "=0", "");
        return false;
    }
    if (super.desc_blk_size == 0) {
        log_unexpected_values("Unexpected error in %N:%l, super.desc_blk_size%s <= 0%s:\n%?\n",
                              "=0", "");
        return false;
    }
    data_block_bytes_ = super.data_blk_size;
    desc_block_bytes_ = super.desc_blk_size;
    return reader_->handle_superblock(super);
}

bool Image_Block_Reader::Callback::handle_superblock_extra(const void* data, std::uint64_t size)
{
    return reader_->handle_superblock_extra(data, size);
}

bool Image_Block_Reader::Callback::handle_descriptor_header(
    const qovr::Image_Parser::Descriptor_Header& header)
{
    if (!blocks_.empty()) {
        log_unexpected("Unexpected error in %N:%l, blocks_.empty() is false:\n%?\n");
        return false;
    }
    data_blocks_ = header.data_blocks;
    return reader_->handle_descriptor_header(header);
}

bool Image_Block_Reader::Callback::handle_descriptor_record(std::uint64_t block_offset,
                                                            std::uint64_t block_count)
{
    if (data_block_bytes_ == 0) {
        log_unexpected_values("Unexpected error in %N:%l, data_block_bytes_%s <= 0%s:\n%?\n", "=0",
                              "");
        return false;
    }
    const std::uint64_t offset = block_offset * data_block_bytes_;
    const std::uint64_t length = block_count * data_block_bytes_;
    if (!blocks_.empty()) {
        Image_Block_Writer::Block& back = blocks_.back();
        if (offset <= back.offset + back.length) {
            // The parser has seen that records ascend; what starts inside is absorbed.
            if (offset + length > back.offset + back.length)
                back.length = offset + length - back.offset;
            return true;
        }
    }
    blocks_.push_back({offset, length});
    return true;
}

bool Image_Block_Reader::Callback::handle_data(const void* data, std::uint64_t size)
{
    if (data_block_bytes_ == 0) {
        log_unexpected_values("Unexpected error in %N:%l, data_block_bytes_%s <= 0%s:\n%?\n", "=0",
                              "");
        return false;
    }
    if (blocks_.empty()) {
        log_unexpected("Unexpected error in %N:%l, blocks_ is empty:\n%?\n");
        return false;
    }
    const char* const from = static_cast<const char*>(data);
    std::uint64_t pos = 0;
    while (pos != size) {
        Image_Block_Writer::Block& front = blocks_.front();
        const std::uint64_t n = std::min(size - pos, front.length);
        if (!(*handler_)(from + pos, n, static_cast<std::int64_t>(front.offset)))
            return false;
        pos += n;
        front.offset += n;
        front.length -= n;
        if (front.length == 0)
            blocks_.pop_front();
        if (blocks_.empty() && pos != size) {
            ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse image, data block records run out.\n")));
            return false;
        }
    }
    return true;
}

Image_Block_Reader::Image_Block_Reader() = default;

Image_Block_Reader::~Image_Block_Reader() = default;

bool Image_Block_Reader::handle_superblock(const qovr::Image_Parser::Superblock&)
{
    return true;
}

bool Image_Block_Reader::handle_superblock_extra(const void*, std::uint64_t)
{
    return true;
}

bool Image_Block_Reader::handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header&)
{
    return true;
}

bool Image_Block_Reader::read_blocks(Client_IO& io, const Handler& fn)
{
    return guarded([&] { return read_zero_copy(io, fn); });
}

bool Image_Block_Reader::read_blocks(Client_IO& io, const Handler& fn, std::uint64_t buffer_size)
{
    return guarded([&] { return read_buffered(io, fn, std::max(buffer_size, least_buffer)); });
}

bool Image_Block_Reader::read_blocks_align(Client_IO& io, const Handler& fn,
                                           std::uint64_t buffer_size)
{
    return guarded([&] { return read_aligned(io, fn, std::max(buffer_size, least_buffer)); });
}

bool Image_Block_Reader::read_zero_copy(Client_IO& io, const Handler& fn)
{
    Callback callback(this, &fn);
    qovr::Image_Parser parser(&callback, false, 0);
    const void* data = nullptr;
    std::uint64_t size = 1;
    for (;;) {
        const bool ok = io.read(data, size);
        // A failure behind the last byte is one too: a codec or cipher may find the end wrong.
        if (size == 0 && (ok || !parser.complete()))
            return finish(parser);
        if (!ok) {
            ACE_ERROR(
                (LM_ERROR, ACE_TEXT("Failed to read from Client_IO, %s.\n"), io.error().c_str()));
            return false;
        }
        std::uint64_t parsed = 0;
        if (!parser.parse(data, size, parsed) || parsed != size) {
            parser.dump(LM_ERROR,
                        format_text("Failed to parse image, n_read=%" PRIu64 ", n_parsed=%" PRIu64,
                                    size, parsed)
                            .c_str());
            return false;
        }
    }
}

bool Image_Block_Reader::read_buffered(Client_IO& io, const Handler& fn, std::uint64_t buffer_size)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(buffer_size);
    Callback callback(this, &fn);
    qovr::Image_Parser parser(&callback, false, 0);
    for (;;) {
        const std::int64_t n = io.read(buffer.get(), buffer_size);
        if (n == 0)
            return finish(parser);
        if (n < 0) {
            ACE_ERROR(
                (LM_ERROR, ACE_TEXT("Failed to read from Client_IO, %s.\n"), io.error().c_str()));
            return false;
        }
        std::uint64_t parsed = 0;
        if (!parser.parse(buffer.get(), static_cast<std::uint64_t>(n), parsed) ||
            std::cmp_not_equal(parsed, n))
        {
            parser.dump(LM_ERROR,
                        format_text("Failed to parse image, n_read=%" PRId64 ", n_parsed=%" PRIu64,
                                    n, parsed)
                            .c_str());
            return false;
        }
    }
}

bool Image_Block_Reader::read_exact(Client_IO& io, void* buffer, std::uint64_t size)
{
    const std::int64_t n = io.read(buffer, size);
    if (n < 0) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read from Client_IO, %s\n"), io.error().c_str()));
        return false;
    }
    if (std::cmp_not_equal(n, size)) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read from Client_IO, expect %B bytes, got %b.\n"),
                   static_cast<std::size_t>(size), static_cast<ssize_t>(n)));
        return false;
    }
    return true;
}

bool Image_Block_Reader::read_aligned(Client_IO& io, const Handler& fn, std::uint64_t buffer_size)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(buffer_size);
    Callback cb(this, &fn);
    qovr::Image_Parser parser(&cb, false, 0);
    // Parses the buffer's first bytes; what was read of them is told by a failure.
    const auto parse = [&](std::uint64_t size, std::int64_t n_read, const char* what) {
        std::uint64_t parsed = 0;
        if (parser.parse(buffer.get(), size, parsed) && parsed == size)
            return true;
        parser.dump(LM_ERROR,
                    format_text("Failed to parse image %s, n_read=%" PRId64 ", n_parsed=%" PRIu64,
                                what, n_read, parsed)
                        .c_str());
        return false;
    };

    constexpr std::uint64_t superblock_size = qovr::image_superblock_size;
    if (!read_exact(io, buffer.get(), superblock_size) ||
        !parse(superblock_size, superblock_size, "super block"))
        return false;
    if (buffer_size < cb.desc_block_bytes()) {
        log_unexpected_values(
            "Unexpected error in %N:%l, buffer_size%s < cb.desc_block_bytes()%s:\n%?\n",
            shown(buffer_size).c_str(), shown(cb.desc_block_bytes()).c_str());
        return false;
    }
    if (buffer_size < cb.data_block_bytes()) {
        log_unexpected_values(
            "Unexpected error in %N:%l, buffer_size%s < cb.data_block_bytes()%s:\n%?\n",
            shown(buffer_size).c_str(), shown(cb.data_block_bytes()).c_str());
        return false;
    }
    if (const std::uint64_t rest = buffer_size % cb.data_block_bytes(); rest != 0) {
        log_unexpected_values(
            "Unexpected error in %N:%l, buffer_size % cb.data_block_bytes()%s != 0%s:\n%?\n",
            shown(rest).c_str(), "");
        return false;
    }
    // A descriptor block that is cut off is parsed with what the buffer holds behind it.
    std::fill(buffer.get() + superblock_size,
              buffer.get() + std::max<std::uint64_t>(cb.desc_block_bytes(), superblock_size), '\0');

    for (;;) {
        if (parser.state() == qovr::Image_Parser::descriptor_due) {
            const std::int64_t n = io.read(buffer.get(), cb.desc_block_bytes());
            if (n == 0)
                return finish(parser);
            if (n < 0) {
                ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to read from Client_IO, %s\n"),
                           io.error().c_str()));
                return false;
            }
            // The whole block even when less was read: its checksum and the data, which are not
            // there then, tell.
            if (!parse(cb.desc_block_bytes(), n, "descriptor block"))
                return false;
            if (parser.state() != qovr::Image_Parser::data_due &&
                parser.state() != qovr::Image_Parser::in_descriptor)
            {
                parser.dump(LM_ERROR,
                            "Unexpected image parse state after parsing descriptor block");
                return false;
            }
        } else if (parser.state() != qovr::Image_Parser::data_due) {
            parser.dump(LM_ERROR, "Unexpected image parser state");
            return false;
        }

        std::uint64_t remaining = cb.data_blocks() * cb.data_block_bytes();
        while (remaining != 0) {
            const std::uint64_t n = std::min(buffer_size, remaining);
            if (!read_exact(io, buffer.get(), n) ||
                !parse(n, static_cast<std::int64_t>(n), "data blocks"))
                return false;
            remaining -= n;
        }
        if (parser.state() != qovr::Image_Parser::descriptor_due) {
            parser.dump(LM_ERROR, "Unexpected image parse state after parsing descriptor block");
            return false;
        }
    }
}
