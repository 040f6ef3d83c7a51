#include "cli/image_extra.h"
#include "cli/image_reading.h"
#include "cli/image_target.h"
#include "cli/interrupt.h"
#include "platform/runtime/file_system.h"

#include <algorithm>

namespace cio
{
namespace
{

/// Writes an image to a target, which is opened when the first of the image's data are announced:
/// an image of which only the super block is there costs nothing.
class Restore : public Image_Block_Reader
{
public:
    Restore(Image_Target& target, bool zero, Reporter& report)
        : target_(target), zero_(zero), report_(report)
    {}

    bool handle_superblock(const qovr::Image_Superblock& super) override;
    bool handle_superblock_extra(const void* data, std::uint64_t size) override;
    bool handle_descriptor_header(const qovr::Image_Descriptor_Header& header) override;
    bool store(const void* data, std::uint64_t size, std::uint64_t offset);
    bool finish() { return target_.complete(end_, failure_); }

    /// Why the target could not be written; no text when that was not so.
    const Failure& failure() const { return failure_; }

private:
    Image_Target& target_;
    const bool zero_;
    Reporter& report_;
    bool size_known_ = false;
    std::uint64_t end_ = 0; // of the source; the end of the last extent where it is not known
    Failure failure_;
};

bool Restore::handle_superblock(const qovr::Image_Superblock& super)
{
    report_image_found(report_, super);
    size_known_ = super.source_size != 0;
    end_ = super.source_size;
    return true;
}

bool Restore::handle_descriptor_header(const qovr::Image_Descriptor_Header& header)
{
    return header.sequence != 0 || target_.open(end_, zero_, failure_);
}

bool Restore::handle_superblock_extra(const void* data, std::uint64_t size)
{
    if (target_.existed() && !zero_ &&
        decode_image_extra(data, size).rest == Image_Extra::Rest::zero)
        report_.note(target_.path(),
                     "keeps what it has where the source was zero (--zero makes that zero)");
    return true;
}

bool Restore::store(const void* data, std::uint64_t size, std::uint64_t offset)
{
    // What fills the last block up is not the source's.
    if (size_known_)
        size = std::min(size, end_ - std::min(end_, offset));
    else
        end_ = std::max(end_, offset + size);
    if (size == 0)
        return true;
    if (interrupt::requested() || !target_.write(data, size, offset, failure_))
        return false;
    report_.bytes_moved(size);
    return true;
}

/// Tells why an image was not restored, and what became of what was written.
void report_failure(Reporter& report, const std::string& path, Failure failure,
                    Image_Target& target)
{
    using Change = Image_Target::Change;
    const bool written = target.written() > 0;
    const std::string bytes = std::to_string(target.written()) + " bytes";
    const auto add = [&failure](const std::string& text) { failure.text += " (" + text + ")"; };
    if (!target.discard())
        add(bytes + " of it stay in " + target.path());
    else if (target.change() == Change::none && written)
        add("the " + bytes + " before that were removed");
    else if (written)
        add(bytes + " were written to " + target.path() + " before that");
    else if (target.change() == Change::emptied)
        add(target.path() + " was emptied before that");
    else if (target.change() == Change::longer)
        add(target.path() + " was made longer before that");
    else if (target.change() == Change::written)
        add(target.path() + " may have been changed before that");
    report.error(path, failure);
}

void run_restore(Invocation& invocation)
{
    const Place place = read_image_place(invocation);
    Reporter& report = invocation.report;
    Image_Target target(invocation.arguments[2]);
    Failure failure;
    if (!target.examine(invocation.overwrite || invocation.options.overwrite, failure))
        return report.error(target.path(), failure);
    const std::optional<std::string> image = place.target.local_path(place.path);
    if (image && file_system::is_same_file(image->c_str(), target.path().c_str()))
        return report.error(target.path(),
                            {exit_failed, "Source and destination are the same file"});
    Connection connection(place.target);
    Client_IO* io = open_image(connection, place, report);
    if (io == nullptr)
        return;
    Restore restore(target, invocation.image.zero, report);
    const Image_Block_Reader::Handler handler = [&restore](const void* data, std::uint64_t size,
                                                           std::int64_t offset) {
        return restore.store(data, size, static_cast<std::uint64_t>(offset));
    };
    Image_Block_Reader::Callback callback(&restore, &handler);
    // In whole blocks: a disk would have to read what a write begins or ends within, and a file's
    // pages cost far more when they are written in parts than gathering the blocks does.
    if (read_image(*io, callback, Image_Data::blocks, failure) && restore.finish())
        report.item_done(true);
    else if (!restore.failure().text.empty())
        report_failure(report, target.path(), restore.failure(), target);
    else if (!failure.text.empty())
        report_failure(report, place.path, failure, target);
    else if (!target.discard() || target.change() != Image_Target::Change::none)
        report.partial(target.path(), target.written(), false);
}

} // namespace

const Command image_restore_command = {
    "image restore",
    "URI PATH TARGET",
    "Write a block image back to a device or a (sparse) file",
    "cio image restore file:///mnt/backup home.img home.raw\n"
    "  cio image restore --overwrite --zero file:///mnt/backup home.img /dev/vg0/home",
    takes_overwrite | takes_zero | shows_transfer | takes_transforms,
    3,
    3,
    run_restore,
};

} // namespace cio
