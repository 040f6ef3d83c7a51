#include "cli/ext_file_system.h"

namespace cio::ext_file_system
{

bool is_in(Image_Source& /*source*/)
{
    return false;
}

std::string add_used_blocks(Image_Source& /*source*/, Extent_List& /*list*/,
                            std::uint64_t& /*size*/)
{
    return "ext file systems are not read on this system";
}

} // namespace cio::ext_file_system
