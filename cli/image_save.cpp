#include "cli/ext_file_system.h"
#include "cli/found_blocks_writer.h"
#include "cli/image_extra.h"
#include "cli/interrupt.h"
#include "cli/listed_blocks_writer.h"
#include "cli/local_path.h"
#include "cli/path_rules.h"
#include "cli/size_text.h"
#include "cli/transfer.h"

#include <array>

namespace cio
{
namespace
{

/// Reads a size of blocks. Throws Usage_Error when images that are stored have none such.
std::uint64_t block_size_option(const char* name, const std::optional<std::string>& text,
                                std::uint64_t fallback)
{
    const std::uint64_t size = text ? parse_size(*text) : fallback;
    if (!qovr::is_image_block_size(size) || size > largest_stored_block)
        throw Usage_Error(std::string(name) + ": '" + text.value_or("") +
                          "' is no power of two from 512 to 1M");
    return size;
}

/// One source on its way into an image.
class Save
{
public:
    explicit Save(Invocation& invocation);
    void run();

private:
    bool choose_extents(Failure& failure);
    qovr::Image_Options image_options() const;
    Client_IO* open(Connection& connection, Failure& failure);
    bool write(Client_IO& io, Failure& failure);
    void store(Client_IO& io);
    void abandon(Client_IO& io, Failure failure);
    void fail(const Failure& failure) { report_.error(local_, failure); }

    Reporter& report_;
    const Image_Flags& flags_;
    const std::string local_;
    const Target target_;
    const std::string path_;
    const bool overwrite_;
    Image_Source source_;
    bool replaces_ = false; ///< what was there before
    Extent_List list_;      ///< empty: the blocks are found while the source is read
    Image_Extra::Rest rest_ = Image_Extra::Rest::zero;
};

Save::Save(Invocation& invocation)
    : report_(invocation.report), flags_(invocation.image), local_(invocation.arguments[0]),
      target_(make_target(invocation.arguments[1], invocation.options, true)),
      path_(target_path(invocation.arguments[2])),
      overwrite_(invocation.overwrite || invocation.options.overwrite),
      list_(block_size_option("--block-size", flags_.block_size, qovr::default_image_block))
{
    (void)image_options(); // refused before anything happens
    if (path_.empty())
        throw Usage_Error("the target's root is a directory, not a file");
    if (flags_.raw && flags_.extents)
        throw Usage_Error("--raw and --extents contradict each other");
}

void Save::run()
{
    Failure failure;
    Connection connection(target_);
    if (!source_.open(local_, failure))
        return fail(failure);
    if (source_.size() == 0)
        return fail({exit_failed, "Is empty: an image holds one block at least"});
    Client_IO* const io =
        choose_extents(failure) && !interrupt::requested() ? open(connection, failure) : nullptr;
    if (io != nullptr)
        store(*io);
    else if (!failure.text.empty())
        fail(failure);
}

/// Fills the list, where it is known before the source is read what has to be stored.
bool Save::choose_extents(Failure& failure)
{
    // A source that cannot be read must not cost the image that stands there.
    std::array<char, 4096> first{};
    if (!source_.read(first.data(), first.size(), 0, failure))
        return false;
    if (flags_.extents) {
        rest_ = Image_Extra::Rest::other;
        return read_extents(*flags_.extents, source_.size(), list_);
    }
    if (flags_.raw || !ext_file_system::is_in(source_))
        return true;
    std::uint64_t size = 0;
    const std::string why = ext_file_system::add_used_blocks(source_, list_, size);
    if (!why.empty()) {
        report_.note(local_, "all blocks but zeros are stored, not only those that its ext file "
                             "system uses: " +
                                 why);
        list_.clear();
        return true;
    }
    rest_ = Image_Extra::Rest::unused;
    if (size < source_.size())
        report_.note(local_, "the " + std::to_string(source_.size() - size) +
                                 " bytes behind its ext file system are not stored");
    return true;
}

qovr::Image_Options Save::image_options() const
{
    // A window's batch has few records; a list's have as many as fit.
    constexpr std::uint64_t small_descriptor = 4096;
    qovr::Image_Options options;
    options.source_size = source_.size();
    options.data_block_size = list_.block_size();
    options.descriptor_block_size =
        block_size_option("--descriptor-size", flags_.descriptor_size,
                          list_.extents().empty() ? small_descriptor : qovr::default_image_block);
    // Room for another record, so that a batch need not be full to have one.
    options.extra = encode(
        Image_Extra{std::string("cio ") + CIO_VERSION, local_name(local_), rest_},
        qovr::largest_image_extra(options.descriptor_block_size) - sizeof(qovr::Image_Record));
    return options;
}

/// Opens the image. @return NULL on failure
Client_IO* Save::open(Connection& connection, Failure& failure)
{
    const std::optional<std::string> local = target_.local_path(path_);
    file_system::Status there;
    if (overwrite_ && local &&
        ((file_system::status(local->c_str(), true, there) &&
          source_.status().is_same_file(there)) ||
         image_disk::is_same_device(source_.handle(), local->c_str())))
    {
        failure = {exit_failed, "Source and target are the same file"};
        return nullptr;
    }
    Client_IO* io = connection.open(failure);
    replaces_ =
        overwrite_ && io != nullptr && io->size(path_.c_str()) != Client_IO_Base::size_unknown;
    const unsigned mode =
        Client_IO_Base::mode_write | (overwrite_ ? unsigned{Client_IO_Base::mode_overwrite} : 0U);
    return io != nullptr && open_for_writing(*io, path_, mode, 0, failure) ? io : nullptr;
}

void Save::store(Client_IO& io)
{
    Failure failure;
    if (!write(io, failure))
        return abandon(io, failure);
    const bool unchanged = source_.is_unchanged();
    if (!io.close())
        return abandon(io, stream_failure(io));
    if (!unchanged)
        return fail({exit_failed, changed_text(io.original_size())});
    report_.item_done(true);
}

bool Save::write(Client_IO& io, Failure& failure)
{
    const bool listed = !list_.extents().empty();
    const std::uint64_t mask = list_.block_size() - 1; // of a power of two
    report_.file_found(listed ? list_.bytes() : (source_.size() + mask) & ~mask);
    report_.all_found();
    return listed
               ? Listed_Blocks_Writer(&io, source_, list_, report_)
                     .write_image(image_options(), failure)
               : Found_Blocks_Writer(&io, source_, report_).write_image(image_options(), failure);
}

/// Ends an image that failed or was interrupted. It is of no use to anybody, so it is removed.
void Save::abandon(Client_IO& io, Failure failure)
{
    if (io.is_open())
        (void)io.close();
    const std::uint64_t stored = io.original_size();
    const bool removed = remove_unfinished(io, target_, path_, replaces_);
    if (removed && replaces_)
        report_.note(path_, "what was there before is gone");
    if (failure.text.empty())
        return removed ? void() : report_.partial(path_, stored, false);
    if (!removed)
        failure.text += kept_text(stored, target_, path_, replaces_);
    fail(failure);
}

void run_save(Invocation& invocation)
{
    Save(invocation).run();
}

} // namespace

const Command image_save_command = {
    "image save",
    "SOURCE URI PATH",
    "Store a disk, partition or image file: what holds data, or what an ext file system uses",
    "cio image save /dev/vg0/home file:///mnt/backup home.img\n"
    "  cio image save --compress zstd --overwrite disk.raw file:///mnt/backup disk.img.zst",
    takes_overwrite | takes_extents | shows_transfer | takes_transforms,
    3,
    3,
    run_save,
};

} // namespace cio
