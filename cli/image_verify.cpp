#include "cli/image_extra.h"
#include "cli/image_reading.h"
#include "cli/image_source.h"
#include "cli/interrupt.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace cio
{
namespace
{

constexpr std::uint64_t buffer_size = 1U << 18U;

/// Compares an image with a source, up to the first difference.
class Verify : public Image_Block_Reader
{
public:
    /// @param source  NULL: the image alone is read
    Verify(Image_Source* source, Reporter& report, const std::string& path)
        : source_(source), report_(report), path_(path)
    {}

    bool handle_superblock(const qovr::Image_Superblock& super) override;
    bool handle_superblock_extra(const void* data, std::uint64_t size) override
    {
        rest_ = decode_image_extra(data, size).rest;
        return true;
    }
    bool compare(const char* data, std::uint64_t size, std::uint64_t offset);
    /// Compares what stands behind the last extent. @return whether all is the same
    bool finish();

    /// Why the comparison could not go on; no text when that was not so.
    const Failure& failure() const { return failure_; }

private:
    bool check_rest(std::uint64_t end);
    bool tell_difference(std::uint64_t at);
    bool compare_with_source(const char* data, std::uint64_t size, std::uint64_t offset);
    bool tell_size(const std::string& of_image)
    {
        report_.difference(path_, "size",
                           "size differs: " + std::to_string(source_->size()) + " here, " +
                               of_image + " in the image");
        return false;
    }

    Image_Source* source_;
    Reporter& report_;
    const std::string& path_;
    bool size_known_ = false;
    Image_Extra::Rest rest_ = Image_Extra::Rest::other;
    std::uint64_t end_ = 0;      // of what is compared
    std::uint64_t position_ = 0; // behind the last extent
    // The first byte that differs. One that is not zero where no extent has come so far is told
    // when all have: only then it is sure that the image is a good one, whose extents ascend.
    std::optional<std::uint64_t> differs_at_;
    std::unique_ptr<char[]> buffer_ = std::make_unique_for_overwrite<char[]>(buffer_size);
    std::vector<char> zeros_; // once it is needed
    Failure failure_;
};

bool Verify::handle_superblock(const qovr::Image_Superblock& super)
{
    report_image_found(report_, super);
    size_known_ = super.source_size != 0;
    if (source_ == nullptr)
        return true;
    end_ = size_known_ ? super.source_size : source_->size();
    // An image is at home on a larger disk too.
    return end_ == source_->size() || (source_->is_device() && end_ < source_->size()) ||
           tell_size(std::to_string(super.source_size));
}

bool Verify::compare(const char* data, std::uint64_t size, std::uint64_t offset)
{
    if (source_ != nullptr) {
        if (offset < position_ && rest_ == Image_Extra::Rest::zero) {
            // It cannot be told what is between them, and cio stores no such image.
            report_.error(path_, {exit_failed, "Bad image: extents that do not ascend"});
            return false;
        }
        if (!check_rest(offset))
            return false;
        position_ = offset + size;
        if (!size_known_ && position_ > source_->size())
            return tell_size("at least " + std::to_string(position_));
        if (!differs_at_) {
            // What fills the last block up is not the source's.
            const std::uint64_t there = std::min(size, end_ - std::min(end_, offset));
            if (!compare_with_source(data, there, offset))
                return false;
            if (differs_at_)
                return tell_difference(*differs_at_);
        }
    }
    report_.bytes_moved(size);
    return true;
}

bool Verify::finish()
{
    if (source_ == nullptr)
        return true;
    return check_rest(end_) && (!differs_at_ || tell_difference(*differs_at_));
}

/// Compares the source with zeros from where the last extent ended to @p end, if it has to be zero.
/// @return false when it cannot be read
bool Verify::check_rest(std::uint64_t end)
{
    if (rest_ != Image_Extra::Rest::zero)
        return true;
    while (position_ < end && !differs_at_) {
        const std::optional<Extent> range = source_->next_data(position_);
        if (!range || range->offset >= end)
            return true;
        position_ = range->offset;
        const std::uint64_t range_end = std::min(range->end(), end);
        zeros_.resize(buffer_size);
        while (position_ < range_end && !differs_at_) {
            const std::uint64_t n = std::min(buffer_size, range_end - position_);
            if (!compare_with_source(zeros_.data(), n, position_))
                return false;
            position_ += n;
        }
    }
    return true;
}

/// Compares up to the first byte that differs. @return false when the source cannot be read
bool Verify::compare_with_source(const char* data, std::uint64_t size, std::uint64_t offset)
{
    for (std::uint64_t done = 0; done < size && !differs_at_;) {
        const std::uint64_t n = std::min(buffer_size, size - done);
        if (interrupt::requested() || !source_->read(buffer_.get(), n, offset + done, failure_))
            return false;
        if (std::memcmp(buffer_.get(), data + done, n) != 0) {
            const auto at =
                std::mismatch(buffer_.get(), buffer_.get() + n, data + done).first - buffer_.get();
            differs_at_ = offset + done + static_cast<std::uint64_t>(at);
        }
        done += n;
    }
    return true;
}

bool Verify::tell_difference(std::uint64_t at)
{
    report_.difference(path_, "content", "content differs at byte " + std::to_string(at),
                       static_cast<std::int64_t>(at));
    return false;
}

void run_verify(Invocation& invocation)
{
    const Place place = read_image_place(invocation);
    Reporter& report = invocation.report;
    const bool compares = invocation.arguments.size() > 2;
    const std::string local = compares ? invocation.arguments[2] : "";
    Image_Source source;
    Failure failure;
    if (compares && !source.open(local, failure))
        return report.error(local, failure);
    Connection connection(place.target);
    Client_IO* io = open_image(connection, place, report);
    if (io == nullptr)
        return;
    Verify verify(compares ? &source : nullptr, report, place.path);
    const Image_Block_Reader::Handler handler = [&verify](const void* data, std::uint64_t size,
                                                          std::int64_t offset) {
        return verify.compare(static_cast<const char*>(data), size,
                              static_cast<std::uint64_t>(offset));
    };
    Image_Block_Reader::Callback callback(&verify, &handler);
    const bool same = read_image(*io, callback, Image_Data::pieces, failure) && verify.finish();
    if (!verify.failure().text.empty())
        report.error(local, verify.failure());
    else if (!failure.text.empty())
        report.error(place.path, failure);
    else if (same)
        report.item_done(true);
}

} // namespace

const Command image_verify_command = {
    "image verify",
    "URI PATH [SOURCE]",
    "Read a block image to its end and compare it with SOURCE; tell the first difference",
    "cio image verify file:///mnt/backup home.img /dev/vg0/home",
    shows_transfer | takes_transforms,
    2,
    3,
    run_verify,
};

} // namespace cio
