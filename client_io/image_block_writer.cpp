#include "client_io/image_block_writer.h"

#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <cerrno>
#include <limits>
#include <new>
#include <string>

namespace
{

std::string shown(std::uint64_t value)
{
    return "=" + std::to_string(value);
}

/// Options that were refused leave a writer without one.
bool has_block_size(const qovr::Image_Writer& writer)
{
    if (writer.data_block_size() != 0)
        return true;
    log_unexpected("Unexpected error in %N:%l, data_block_size() != 0 is false:\n%?\n");
    return false;
}

} // namespace

Image_Block_Writer::Image_Block_Writer(Client_IO* io) : Image_Client_IO_Writer(io) {}

Image_Block_Writer::~Image_Block_Writer() = default;

void Image_Block_Writer::add_block(std::uint64_t offset, std::uint64_t length)
try {
    blocks_.push_back({offset, length});
} catch (const std::exception&) { // no memory, or more than a vector takes
    errno = ENOMEM;
    incomplete_ = true;
}

void Image_Block_Writer::reserve(std::uint64_t count)
try {
    blocks_.reserve(count);
} catch (const std::exception&) {
    errno = ENOMEM; // add_block() finds out whether they fit nevertheless
}

void Image_Block_Writer::reset()
{
    blocks_.clear();
    block_start_ = block_end_ = start_ = end_ = 0;
    incomplete_ = false;
}

bool Image_Block_Writer::write_blocks(const Progress& progress, const Reader& reader)
try {
    if (blocks_.empty() && !incomplete_) {
        log_unexpected("Unexpected error in %N:%l, blocks_ is empty:\n%?\n");
        return false;
    }
    if (!has_block_size(*this))
        return false;
    if (incomplete_) {
        errno = ENOMEM;
        return false;
    }
    block_start_ = block_end_ = start_ = end_ = 0;
    announce();
    if (write_all(progress, reader))
        return true;
    // What is recorded of the failed list must not become a part of the next one.
    give_up();
    return false;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    give_up();
    return false;
} catch (...) { // a callback's: it is told like its "stop"
    give_up();
    return false;
}

/// Says how many data blocks the image will have, so that a reader notices one that is cut off.
void Image_Block_Writer::announce()
{
    if (state() != header_due)
        return;
    std::uint64_t count = 0;
    for (const Block& block : blocks_) {
        const std::uint64_t blocks = block.length / data_block_size();
        if (blocks > std::numeric_limits<std::uint64_t>::max() - 1 - count)
            return; // no source is so large: its records will be refused
        count += blocks;
    }
    if (count != 0)
        announce_data_blocks(count);
}

bool Image_Block_Writer::write_all(const Progress& progress, const Reader& reader)
{
    for (;;) {
        switch (state()) {
        case header_due:
            if (!write_descriptor_header(0, "SDD1")) {
                ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to write image descriptor header.\n")));
                return false;
            }
            [[fallthrough]];
        case records_due:
            if (!write_records())
                return false;
            [[fallthrough]];
        case data_due: {
            const int result = write_blocks_i(progress, reader);
            if (result != 1)
                return result == 0;
            break; // from the switch
        }
        default:
            ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected image writer state %d.\n"), state()));
            return false;
        }
    }
}

bool Image_Block_Writer::write_records()
{
    if (!has_block_size(*this))
        return false;
    const std::uint64_t dbs = data_block_size();
    while (block_end_ < blocks_.size() && state() != data_due) {
        const Block& blk = blocks_[block_end_];
        if (const std::uint64_t rest = (blk.offset + end_) % dbs; rest != 0) {
            log_unexpected_values("Unexpected error in %N:%l, ((blk.offset + end_) % "
                                  "data_block_size())%s != 0%s:\n%?\n",
                                  shown(rest).c_str(), "");
            return false;
        }
        if (const std::uint64_t rest = (blk.length - end_) % dbs; rest != 0) {
            log_unexpected_values("Unexpected error in %N:%l, ((blk.length - end_) % "
                                  "data_block_size())%s != 0%s:\n%?\n",
                                  shown(rest).c_str(), "");
            return false;
        }
        const std::int64_t n =
            write_descriptor_record((blk.offset + end_) / dbs, (blk.length - end_) / dbs);
        if (n < 1) {
            ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to write image descriptor records.\n")));
            return false;
        }
        end_ += static_cast<std::uint64_t>(n) * dbs;
        if (end_ == blk.length) {
            end_ = 0;
            ++block_end_;
        }
    }
    if (state() == data_due)
        return true;
    if (write_descriptor_record(0, 0) < 0 || state() != data_due) {
        ACE_ERROR((LM_ERROR, ACE_TEXT("Unexpected image writer state %d after writing records.\n"),
                   state()));
        return false;
    }
    return true;
}

int Image_Block_Writer::write_blocks_i(const Progress& progress, const Reader& reader)
{
    if (block_end_ < block_start_) {
        log_unexpected_values("Unexpected error in %N:%l, block_end_%s < block_start_%s:\n%?\n",
                              shown(block_end_).c_str(), shown(block_start_).c_str());
        return -1;
    }
    if (block_start_ >= blocks_.size()) {
        log_unexpected_values(
            "Unexpected error in %N:%l, block_start_%s >= blocks_.size()%s:\n%?\n",
            shown(block_start_).c_str(), shown(blocks_.size()).c_str());
        return -1;
    }
    if (block_end_ > blocks_.size()) {
        log_unexpected_values("Unexpected error in %N:%l, block_end_%s > blocks_.size()%s:\n%?\n",
                              shown(block_end_).c_str(), shown(blocks_.size()).c_str());
        return -1;
    }
    if (block_end_ == block_start_ && end_ <= start_) {
        log_unexpected_values("Unexpected error in %N:%l, end_%s <= start_%s:\n%?\n",
                              shown(end_).c_str(), shown(start_).c_str());
        return -1;
    }
    // The extents from first to last; the last may be covered in part, to last_end.
    const std::uint64_t last = end_ == 0 ? block_end_ - 1 : block_end_;
    const std::uint64_t last_end = end_ == 0 ? blocks_[last].length : end_;
    std::uint64_t done = start_;
    for (std::uint64_t i = block_start_; i <= last; ++i, done = 0) {
        const Block& blk = blocks_[i];
        const std::uint64_t length = i == last ? last_end : blk.length;
        const int result = write_range(blk.offset + done, length - done, progress, reader);
        if (result <= 0)
            return result;
    }
    start_ = end_;
    block_start_ = block_end_;
    return block_start_ < blocks_.size() ? 1 : 0;
}

int Image_Block_Writer::write_range(std::uint64_t offset, std::uint64_t length,
                                    const Progress& progress, const Reader& reader)
{
    std::uint64_t pos = 0;
    const void* data = nullptr;
    while (pos < length) {
        const std::int64_t n = reader(data, length - pos, static_cast<std::int64_t>(offset + pos));
        if (n < 1)
            return -1;
        if (static_cast<std::uint64_t>(n) > length - pos) {
            // What it gave beyond the range would stand where other bytes belong.
            log_unexpected_values("Unexpected error in %N:%l, n%s > length - pos%s:\n%?\n",
                                  shown(static_cast<std::uint64_t>(n)).c_str(),
                                  shown(length - pos).c_str());
            return -1;
        }
        if (write_data(data, static_cast<std::uint64_t>(n)) != n) {
            ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to write to backup storage, %s.\n"),
                       io_ != nullptr ? io_->error().c_str() : ""));
            return -1;
        }
        if (!progress(static_cast<std::uint64_t>(n)))
            return -1;
        pos += static_cast<std::uint64_t>(n);
    }
    return 1;
}
