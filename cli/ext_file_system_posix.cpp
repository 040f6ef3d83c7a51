#include "cli/ext_file_system.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include <ext2fs/ext2fs.h>

namespace cio::ext_file_system
{
namespace
{

constexpr std::uint64_t magic_at = 1024 + 56; // in the source; two bytes, little-endian

struct Free
{
    void operator()(ext2_filsys file_system) const { ext2fs_free(file_system); }
};
using File_System = std::unique_ptr<struct_ext2_filsys, Free>;

std::string text_of(errcode_t error)
{
    initialize_ext2_error_table();
    return std::string("it cannot be read (") + error_message(error) + ")";
}

/// Opens the file system by the handle of the source, so that it is the same whatever the path
/// leads to by now.
File_System open(const Image_Source& source, std::string& why)
{
    const int handle = ::fcntl(source.handle(), F_DUPFD_CLOEXEC, 0);
    ext2_filsys opened = nullptr;
    const errcode_t error = handle < 0
                                ? errno
                                : ext2fs_open(std::to_string(handle).c_str(), EXT2_FLAG_64BITS, 0,
                                              0, unixfd_io_manager, &opened);
    if (error != 0)
        why = text_of(error);
    return File_System(error == 0 ? opened : nullptr);
}

/// Why a file system that can be read does not tell what it uses; empty when it does.
std::string obstacle(const struct_ext2_filsys& file_system, std::uint64_t source_size)
{
    const ext2_super_block& super = *file_system.super;
    if (ext2fs_has_feature_journal_needs_recovery(file_system.super) != 0)
        return "its journal has to be recovered first";
    if ((super.s_state & EXT2_ERROR_FS) != 0)
        return "it is marked as damaged";
    if ((super.s_state & EXT2_VALID_FS) == 0)
        return "it was not unmounted";
    if (ext2fs_blocks_count(file_system.super) > source_size / file_system.blocksize)
        return "it is larger than the source";
    return {};
}

} // namespace

bool is_in(Image_Source& source)
{
    std::array<char, 2> magic{};
    Failure ignored; // whoever reads the source next meets it again
    return source.size() >= magic_at + magic.size() &&
           source.read(magic.data(), magic.size(), magic_at, ignored) &&
           static_cast<unsigned char>(magic[0]) == (EXT2_SUPER_MAGIC & 0xFFU) &&
           static_cast<unsigned char>(magic[1]) == EXT2_SUPER_MAGIC >> 8U;
}

std::string add_used_blocks(const Image_Source& source, Extent_List& list, std::uint64_t& size)
{
    std::string why;
    const File_System file_system = open(source, why);
    if (file_system != nullptr)
        why = obstacle(*file_system, source.size());
    if (!why.empty())
        return why;
    if (const errcode_t error = ext2fs_read_block_bitmap(file_system.get()))
        return text_of(error);

    const std::uint64_t block = file_system->blocksize;
    const blk64_t blocks = ext2fs_blocks_count(file_system->super);
    blk64_t at = file_system->super->s_first_data_block;
    size = blocks * block;
    if (at > 0)
        list.add(0, at * block);
    while (at < blocks) {
        blk64_t first = 0;
        blk64_t end = 0;
        errcode_t error =
            ext2fs_find_first_set_block_bitmap2(file_system->block_map, at, blocks - 1, &first);
        if (error == ENOENT)
            break;
        if (error == 0)
            error = ext2fs_find_first_zero_block_bitmap2(file_system->block_map, first, blocks - 1,
                                                         &end);
        if (error == ENOENT)
            end = blocks;
        else if (error != 0)
            return text_of(error);
        list.add(first * block, (end - first) * block);
        at = end;
    }
    list.finish();
    return {};
}

} // namespace cio::ext_file_system
