#include "cli/image.h"
#include "cli/image_extra.h"
#include "cli/image_reading.h"
#include "platform/json/json_value.h"

#include <algorithm>

namespace cio
{
namespace
{

std::string hexadecimal(const qovr::Image_Id& id)
{
    std::string text;
    for (const unsigned char byte : id)
        for (const unsigned shift : {4U, 0U})
            text += "0123456789abcdef"[byte >> shift & 15U];
    return text;
}

/// A text that stays within its line, wherever the output goes.
std::string on_one_line(std::string text)
{
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
    return text;
}

/// Writes what an image tells of itself as it comes. Every line of the text that is no extent
/// begins with '#', so that it can be given to `--extents`.
class Info : public Image_Block_Reader::Callback
{
public:
    Info(Invocation& invocation, std::string path)
        : Callback(&hooks_, nullptr), out_(invocation.out), json_(invocation.report.json()),
          path_(std::move(path))
    {}

    bool handle_superblock(const qovr::Image_Superblock& super) override
    {
        super_ = super;
        return Callback::handle_superblock(super);
    }
    bool handle_superblock_extra(const void* data, std::uint64_t size) override
    {
        extra_ = decode_image_extra(data, size);
        return true;
    }
    bool handle_descriptor_header(const qovr::Image_Descriptor_Header& header) override
    {
        if (header.sequence == 0)
            json_ ? write_object() : write_head();
        return Callback::handle_descriptor_header(header) && !out_.failed();
    }
    bool handle_descriptor_record(std::uint64_t block_offset, std::uint64_t block_count) override;
    bool handle_data(const void* /*data*/, std::uint64_t /*size*/) override { return true; }

    /// Writes what is left when the image was read.
    void finish();

private:
    void write_head();
    void write_object();
    void write_extent();

    Image_Block_Reader hooks_;
    Output& out_;
    const bool json_;
    const std::string path_;
    qovr::Image_Superblock super_;
    Image_Extra extra_;
    Extent extent_; // not written yet, since the next may touch it; none = no length
    std::uint64_t extents_ = 0;
    std::uint64_t bytes_ = 0;
};

void Info::write_head()
{
    const auto line = [this](const char* name, const std::string& value) {
        std::string text = std::string("# ") + name;
        text.resize(std::max<std::size_t>(text.size() + 1, 24), ' ');
        out_.write(out_.printable(on_one_line(text + value)) + "\n");
    };
    const bool counted = super_.data_blocks != qovr::unknown_block_count;
    line("image:", path_);
    line("format version:", std::to_string(qovr::image_version));
    line("id:", hexadecimal(super_.id));
    line("created:", format_time(super_.creation_time));
    line("source size:", super_.source_size == 0 ? "unknown" : std::to_string(super_.source_size));
    line("data block size:", std::to_string(super_.data_blk_size));
    line("descriptor block size:", std::to_string(super_.desc_blk_size));
    line("data blocks:", counted ? std::to_string(super_.data_blocks) : "not announced");
    line("program:", extra_.program);
    line("source:", extra_.source);
    line("rest:", name_of(extra_.rest));
}

void Info::write_object()
{
    json_spirit::Object object{{"type", "image"},
                               {"format_version", qovr::image_version},
                               {"id", hexadecimal(super_.id)},
                               {"created", format_time(super_.creation_time)},
                               {"data_block_size", super_.data_blk_size},
                               {"descriptor_block_size", super_.desc_blk_size},
                               {"program", extra_.program},
                               {"source", extra_.source},
                               {"rest", name_of(extra_.rest)}};
    add_bytes(object, "path", path_);
    if (super_.source_size != 0)
        object["source_size"] = super_.source_size;
    if (super_.data_blocks != qovr::unknown_block_count)
        object["data_blocks"] = super_.data_blocks;
    out_.write_line(object);
}

bool Info::handle_descriptor_record(std::uint64_t block_offset, std::uint64_t block_count)
{
    const std::uint64_t offset = block_offset * super_.data_blk_size;
    std::uint64_t length = block_count * super_.data_blk_size;
    if (super_.source_size != 0)
        length = std::min(length, super_.source_size - offset);
    if (extent_.length != 0 && extent_.end() == offset) {
        extent_.length += length;
        return true;
    }
    write_extent();
    extent_ = {offset, length};
    return !out_.failed();
}

void Info::write_extent()
{
    if (extent_.length == 0)
        return;
    ++extents_;
    bytes_ += extent_.length;
    if (json_)
        out_.write_line(
            {{"type", "extent"}, {"offset", extent_.offset}, {"length", extent_.length}});
    else
        out_.write(std::to_string(extent_.offset) + " " + std::to_string(extent_.length) + "\n");
}

void Info::finish()
{
    write_extent();
    if (json_)
        out_.write_line({{"type", "total"}, {"extents", extents_}, {"bytes", bytes_}});
    else
        out_.write("# " + std::to_string(extents_) + " extents, " + std::to_string(bytes_) +
                   " bytes\n");
}

void run_info(Invocation& invocation)
{
    const Place place = read_image_place(invocation);
    Connection connection(place.target);
    Client_IO* io = open_image(connection, place, invocation.report);
    if (io == nullptr)
        return;
    Info info(invocation, place.path);
    Failure failure;
    const Image_Data data = can_pass_over_data(*io, place) ? Image_Data::none : Image_Data::pieces;
    if (read_image(*io, info, data, failure)) {
        info.finish();
        invocation.report.item_done(true);
    } else if (!failure.text.empty()) {
        invocation.report.error(place.path, failure);
    }
}

} // namespace

const Command image_info_command = {
    "image info",
    "URI PATH",
    "Show what a block image tells of itself, and its extents",
    "cio image info file:///mnt/backup home.img",
    takes_transforms,
    2,
    2,
    run_info,
};

} // namespace cio
