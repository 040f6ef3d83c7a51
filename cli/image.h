#pragma once

#include "cli/command.h"

#include <cstdint>

/// What the commands of `cio image` share.
namespace cio
{

extern const Command image_save_command;
extern const Command image_restore_command;
extern const Command image_info_command;
extern const Command image_verify_command;

/// Blocks of images that are stored are no larger, so that the memory for them is bounded.
constexpr std::uint64_t largest_stored_block = 1U << 20U;

/// An extent of a source, in bytes.
struct Extent
{
    std::uint64_t offset = 0;
    std::uint64_t length = 0;

    std::uint64_t end() const { return offset + length; }
};

} // namespace cio
