#include "platform/runtime/compression_method.h"

#include "platform/runtime/name_table.h"

namespace
{

struct Name
{
    const char* text;
    Compression_Method method;
};

constexpr Name names[] = {
    {"none", COMPRESSION_NONE},
    {"auto", COMPRESSION_AUTO},
    {"lzop", COMPRESSION_LZOP},
    {"zstd", COMPRESSION_ZSTD},
};

constexpr Name suffixes[] = {
    {".lzo", COMPRESSION_LZOP},
    {".zst", COMPRESSION_ZSTD},
    {".zstd", COMPRESSION_ZSTD},
};

} // namespace

int compression_name_to_value(const char* name, int default_value)
{
    if (name == nullptr)
        return default_value;
    if (*name == '\0')
        return COMPRESSION_NONE;
    for (const Name& known : names)
        if (equal_names(known.text, name))
            return known.method;
    return default_value;
}

const char* compression_value_to_name(Compression_Method method)
{
    for (const Name& known : names)
        if (known.method == method)
            return known.text;
    return nullptr;
}

int compression_suffix_to_value(const char* suffix, int default_value)
{
    if (suffix == nullptr)
        return default_value;
    for (const Name& known : suffixes)
        if (equal_names(known.text, suffix))
            return known.method;
    return default_value;
}
