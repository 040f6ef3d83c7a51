#include "cli/image.h"

#include <array>

namespace cio
{
namespace
{

constexpr std::array image_commands = {
    &image_save_command,
    &image_restore_command,
    &image_info_command,
    &image_verify_command,
};

} // namespace

const Command image_command = {
    "image",
    "COMMAND [OPTION...] ARGUMENT...",
    "Store disks, partitions and image files as block images, and bring them back",
    "cio image save /dev/vg0/home file:///mnt/backup home.img\n"
    "  cio image restore --overwrite file:///mnt/backup home.img /dev/vg0/home",
    0,
    0,
    0,
    nullptr,
    image_commands,
};

} // namespace cio
