#include "cli/ext_file_system.h"

#include <algorithm>
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

/// Whether the first sector may hold a partition table. The super block behind it can then be what
/// an earlier use of the disk has left. Boot code may look like one as well.
bool has_partitions(Image_Source& source)
{
    constexpr std::size_t sector_size = 512;
    constexpr std::size_t first_entry = 446;
    constexpr std::size_t entry_size = 16;
    constexpr std::size_t type = 4; // in an entry; 0 = unused
    std::array<char, sector_size> sector{};
    Failure ignored; // whoever reads the source next meets it again
    if (!source.read(sector.data(), sector.size(), 0, ignored) || sector[510] != '\x55' ||
        sector[511] != '\xAA')
        return false;
    for (std::size_t entry = first_entry; entry < 510; entry += entry_size)
        if (sector[entry + type] != 0)
            return true;
    return false;
}

/// Why a file system that can be read does not tell what it uses; empty when it does.
std::string obstacle(const struct_ext2_filsys& file_system, std::uint64_t source_size)
{
    const ext2_super_block& super = *file_system.super;
    if (super.s_block_group_nr != 0)
        return "its super block is a copy of another one";
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

/// Compares the free blocks of each group with the count that its descriptor has. They differ when
/// a bitmap or a descriptor is damaged, and blocks in use may be missing then.
class Free_Counts
{
public:
    explicit Free_Counts(ext2_filsys file_system) : file_system_(file_system) {}

    /// Free blocks, in ascending order.
    void add(blk64_t first, blk64_t end)
    {
        while (first < end) {
            const dgrp_t group = ext2fs_group_of_blk2(file_system_, first);
            go_to(group);
            const blk64_t part = std::min(end, ext2fs_group_last_block2(file_system_, group) + 1);
            free_ += EXT2FS_NUM_B2C(file_system_, part - first);
            first = part;
        }
    }

    /// @return whether all groups agree
    bool finish()
    {
        go_to(file_system_->group_desc_count);
        return agree_;
    }

private:
    void go_to(dgrp_t group)
    {
        for (; group_ < group; ++group_, free_ = 0)
            agree_ = agree_ && free_ == ext2fs_bg_free_blocks_count(file_system_, group_) &&
                     ext2fs_group_desc_csum_verify(file_system_, group_) != 0;
    }

    ext2_filsys file_system_;
    dgrp_t group_ = 0;
    blk64_t free_ = 0; // clusters of the group so far
    bool agree_ = true;
};

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

std::string add_used_blocks(Image_Source& source, Extent_List& list, std::uint64_t& size)
{
    std::string why;
    if (has_partitions(source))
        return "there may be a partition table before it";
    const File_System file_system = open(source, why);
    if (file_system != nullptr)
        why = obstacle(*file_system, source.size());
    if (!why.empty())
        return why;
    if (const errcode_t error = ext2fs_check_desc(file_system.get()))
        return text_of(error);
    if (const errcode_t error = ext2fs_read_block_bitmap(file_system.get()))
        return text_of(error);

    const std::uint64_t block = file_system->blocksize;
    const blk64_t blocks = ext2fs_blocks_count(file_system->super);
    blk64_t at = file_system->super->s_first_data_block;
    size = blocks * block;
    Free_Counts free_counts(file_system.get());
    if (at > 0)
        list.add(0, at * block);
    while (at < blocks) {
        blk64_t first = blocks;
        blk64_t end = blocks;
        errcode_t error =
            ext2fs_find_first_set_block_bitmap2(file_system->block_map, at, blocks - 1, &first);
        if (error == 0)
            error = ext2fs_find_first_zero_block_bitmap2(file_system->block_map, first, blocks - 1,
                                                         &end);
        if (error != 0 && error != ENOENT) // the latter: none up to the last block
            return text_of(error);
        free_counts.add(at, first);
        if (first < end)
            list.add(first * block, (end - first) * block);
        at = end;
    }
    if (!free_counts.finish())
        return "its bitmaps and its counts of free blocks do not agree";
    list.finish();
    return {};
}

} // namespace cio::ext_file_system
