#include "platform/lzop/lzop.h"

// Compiled in place of the codec when the build leaves liblzo2 out.

bool lzop_available() noexcept
{
    return false;
}

int lzop_compress_init(Lzop_Stream&, int, int) noexcept
{
    return LZOP_E_UNAVAILABLE;
}

int lzop_compress(Lzop_Stream&, bool) noexcept
{
    return LZOP_E_STATE;
}

int lzop_decompress_init(Lzop_Stream&) noexcept
{
    return LZOP_E_UNAVAILABLE;
}

int lzop_decompress(Lzop_Stream&, bool) noexcept
{
    return LZOP_E_STATE;
}

void lzop_end(Lzop_Stream&) noexcept {}
