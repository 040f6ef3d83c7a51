#pragma once

#include <cstddef>
#include <cstdint>

/// Streaming encoder and decoder of the lzop file format, on liblzo2.
///
/// The format: a magic of 9 bytes, a header (versions, method, level, flags, file attributes, name,
/// checksum), then blocks of (uncompressed size, compressed size, checksums, data), big-endian, up
/// to a block of size 0. Several such members, one behind the other, are one stream.
///
/// The caller gives input and room for output as it likes, down to one byte at a time; the codec
/// keeps what it could not finish. Input and room must not overlap. Memory is bounded: a few blocks
/// of 256 KiB when compressing; when decompressing, no more than lzop_max_block_size and its
/// compressed form, and only as far as that much input really came.
///
/// Built without liblzo2 (CMake option CLIENT_IO_LZOP=OFF) both init functions return
/// LZOP_E_UNAVAILABLE.
///
/// No operation throws. One stream serves one thread; streams are independent.

/// Results of the operations. Everything but LZOP_OK and LZOP_END is an error, after which the
/// stream must be ended with lzop_end().
enum Lzop_Result : int
{
    LZOP_OK = 0,             ///< progress, or nothing to do without more input or room
    LZOP_E_UNAVAILABLE = -1, ///< built without liblzo2, or liblzo2 does not suit this program
    LZOP_E_NO_MEMORY = -2,
    LZOP_E_STATE = -3,       ///< not initialized for this direction, or called after an error
    LZOP_E_LEVEL = -4,       ///< compression level out of range
    LZOP_E_COMPRESS = -5,    ///< liblzo2 refused to compress
    LZOP_E_MAGIC = -6,       ///< no lzop data
    LZOP_E_HEADER = -7,      ///< the header contradicts itself or its checksum
    LZOP_E_UNSUPPORTED = -8, ///< a newer version, an unknown method, flag or filter, a split file
    LZOP_E_BLOCK_SIZE = -9,  ///< a block larger than the format allows, or with impossible sizes
    LZOP_E_BLOCK_CHECKSUM = -10,
    LZOP_E_BLOCK_DATA = -11, ///< the compressed data of a block is damaged
    LZOP_E_TRUNCATED = -12,  ///< the input ended inside a member, or before the first one
    LZOP_END = -100          ///< end of the stream: everything was handed out
};

/// Uncompressed bytes of the blocks that are written (as the lzop tool does it).
inline constexpr std::size_t lzop_block_size = 262144;
/// Largest block that is read (the format's limit).
inline constexpr std::size_t lzop_max_block_size = 67108864;

struct Lzop_State;

/// A stream. Ready for an init function as constructed.
struct Lzop_Stream
{
    const unsigned char* next_in = nullptr; ///< input not used yet
    std::size_t avail_in = 0;               ///< bytes of it
    unsigned char* next_out = nullptr;      ///< where output goes
    std::size_t avail_out = 0;              ///< bytes of room there
    Lzop_State* state = nullptr;            ///< the codec's own
};

/// Whether the codec was built in.
[[nodiscard]] bool lzop_available() noexcept;

/// Prepares @p stream for compression; whatever it was used for before is ended.
/// @param level  1 to 9, with the methods that the lzop tool gives them
/// @param flags  reserved, 0
/// @return LZOP_OK, LZOP_E_UNAVAILABLE, LZOP_E_LEVEL, LZOP_E_UNSUPPORTED or LZOP_E_NO_MEMORY
[[nodiscard]] int lzop_compress_init(Lzop_Stream& stream, int level, int flags) noexcept;

/// Compresses input into output, as far as both go.
///
/// @param finish  ends the member once all input is used: call again with more room until LZOP_END.
///     More input afterwards begins a new member. Finishing again with nothing written in between
///     adds nothing; a stream into which nothing was ever written becomes one empty member.
/// @return LZOP_OK (with all input used, or no room left), LZOP_END (finished, everything handed
///         out), or an error
[[nodiscard]] int lzop_compress(Lzop_Stream& stream, bool finish) noexcept;

/// Prepares @p stream for decompression; whatever it was used for before is ended.
[[nodiscard]] int lzop_decompress_init(Lzop_Stream& stream) noexcept;

/// Decompresses input into output, as far as both go. Checksums are verified before the bytes they
/// protect are handed out; room that was not handed out may hold bytes of a block that failed.
/// Bytes behind a member that do not begin another one are LZOP_E_MAGIC.
///
/// @param end  the input given now is the last
/// @return LZOP_OK (all input used, or no room left), LZOP_END (only with @p end: the input ended
///         behind a complete member and everything was handed out), or an error
[[nodiscard]] int lzop_decompress(Lzop_Stream& stream, bool end) noexcept;

/// Releases what the stream holds. May be called at any time, and again.
void lzop_end(Lzop_Stream& stream) noexcept;

/// What a result means, for people and logs; never NULL, static.
[[nodiscard]] const char* lzop_result_text(int result) noexcept;
