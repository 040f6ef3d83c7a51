#pragma once

#include <cstdint>
#include <string>

namespace cio
{

/// What cio notes in the extra area of an image, a small JSON object. What was read may be
/// anybody's: the texts are of any characters, at most 1024 bytes each.
struct Image_Extra
{
    /// What was in the ranges of the source that the image does not hold.
    enum class Rest
    {
        other, ///< not known
        zero,
        unused, ///< by the file system
    };

    std::string program{}; ///< "cio VERSION"
    std::string source{};  ///< name of what was stored
    Rest rest = Rest::other;
};

/// "zero", "unused" or "other"
[[nodiscard]] const char* name_of(Image_Extra::Rest rest);

/// @param most  bytes: the name of the source is left out where the object would be larger
[[nodiscard]] std::string encode(const Image_Extra& extra, std::uint64_t most);

/// An area that is none of cio's says nothing.
[[nodiscard]] Image_Extra decode_image_extra(const void* data, std::uint64_t size);

} // namespace cio
