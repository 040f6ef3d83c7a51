#pragma once

#include "platform/runtime/export.h"

/// How file contents are compressed on the target. The numbers are part of the interface.
enum Compression_Method : int
{
    COMPRESSION_NONE = 0,
    COMPRESSION_AUTO = 1, ///< chosen for each opened file from the suffix of its name
    COMPRESSION_LZOP = 2,
    COMPRESSION_ZSTD = 3,
};

/// "" and "none" are 0, "auto" 1, "lzop" 2, "zstd" 3; letter case does not matter.
/// @return @p default_value for other names and for NULL
CLIENT_IO_EXPORT int compression_name_to_value(const char* name, int default_value);

/// @return "none", "auto", "lzop" or "zstd" (static text), NULL for other values
CLIENT_IO_EXPORT const char* compression_value_to_name(Compression_Method method);

/// ".lzo" is lzop, ".zst" and ".zstd" are zstd; letter case does not matter.
/// @param suffix  with its dot
/// @return @p default_value for other suffixes and for NULL
CLIENT_IO_EXPORT int compression_suffix_to_value(const char* suffix, int default_value);
