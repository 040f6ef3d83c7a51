#pragma once

#include "cli/extent_list.h"
#include "cli/image_source.h"

#include <cstdint>
#include <string>

/// ext2, ext3 and ext4 file systems, of which only the blocks in use have to be stored.
namespace cio::ext_file_system
{

/// Whether a super block of such a file system stands in the source. Never on Windows.
[[nodiscard]] bool is_in(Image_Source& source);

/// Adds the blocks that the file system uses, and what stands before its first block.
/// @param size  receives its bytes
/// @return empty, or why its own word cannot be taken for what is in use
[[nodiscard]] std::string add_used_blocks(Image_Source& source, Extent_List& list,
                                          std::uint64_t& size);

} // namespace cio::ext_file_system
