#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// lzop files made by hand, field by field, with checksums computed the slow way.

std::uint32_t slow_adler32(const std::string& data);
std::uint32_t slow_crc32(const std::string& data);
/// @p value big-endian
std::string big_endian(std::uint32_t value, int bytes);

struct Lzop_File_Header
{
    unsigned version = 0x1040;
    unsigned library = 0x20a0;
    std::optional<unsigned> needed = 0x940;
    unsigned method = 1;
    std::optional<unsigned> level = 5;
    std::uint32_t flags = 0x3000001;
    std::optional<std::uint32_t> filter{};
    std::uint32_t mode = 0;
    std::uint32_t time = 0;
    std::optional<std::uint32_t> time_upper = 0;
    std::string name{};
    std::optional<std::string> extra{};

    /// Magic, header, extra field.
    std::string bytes() const;
};

/// A block. @p compressed is what the file holds of @p plain; none = stored.
std::string lzop_file_block(const Lzop_File_Header& header, const std::string& plain,
                            const std::optional<std::string>& compressed = {});

extern const std::string lzop_file_end;

/// A member of one stored block.
std::string lzop_file_member(const Lzop_File_Header& header, const std::string& plain);
