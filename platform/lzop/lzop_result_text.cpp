#include "platform/lzop/lzop.h"

const char* lzop_result_text(int result) noexcept
{
    switch (result) {
    case LZOP_OK:
        return "no error";
    case LZOP_E_UNAVAILABLE:
        return "lzop is not available: the library was built without liblzo2, or with another one";
    case LZOP_E_NO_MEMORY:
        return "out of memory";
    case LZOP_E_STATE:
        return "the lzop stream is not ready for this operation";
    case LZOP_E_LEVEL:
        return "the lzop compression level is not in the range 1 to 9";
    case LZOP_E_COMPRESS:
        return "liblzo2 failed to compress";
    case LZOP_E_MAGIC:
        return "not lzop data";
    case LZOP_E_HEADER:
        return "the lzop header is damaged";
    case LZOP_E_UNSUPPORTED:
        return "the lzop data uses a version, method, flag or filter that is not supported";
    case LZOP_E_BLOCK_SIZE:
        return "an lzop block has an impossible size";
    case LZOP_E_BLOCK_CHECKSUM:
        return "an lzop block does not match its checksum";
    case LZOP_E_BLOCK_DATA:
        return "the compressed data of an lzop block is damaged";
    case LZOP_E_TRUNCATED:
        return "the lzop data ends too early";
    case LZOP_END:
        return "end of the lzop stream";
    default:
        return "unknown lzop result";
    }
}
