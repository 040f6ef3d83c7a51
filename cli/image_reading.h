#pragma once

#include "cli/listing.h"
#include "client_io/image_block_reader.h"

namespace cio
{

/// Reads the arguments URI PATH of a command that reads an image.
[[nodiscard]] Place read_image_place(const Invocation& invocation);

/// Opens the image. @return NULL on failure, which was reported
[[nodiscard]] Client_IO* open_image(Connection& connection, const Place& place, Reporter& report);

/// Tells how many bytes the image announces, as far as it does.
void report_image_found(Reporter& report, const qovr::Image_Superblock& super);

/// How the data of an image are read.
enum class Image_Data
{
    pieces, ///< as they come, without copying
    blocks, ///< in whole blocks, as disks want them
    none,   ///< they are passed over by seeking
};

/// Whether the data of an image can be passed over.
[[nodiscard]] bool can_pass_over_data(const Client_IO& io, const Place& place);

/// Reads the open image from its start to its end, and closes it.
/// @return false when the image is not whole or cannot be read (@p failure), and when the callback
///         said stop or the program was asked to end; the failure has no text then
[[nodiscard]] bool read_image(Client_IO& io, Image_Block_Reader::Callback& callback,
                              Image_Data data, Failure& failure);

} // namespace cio
