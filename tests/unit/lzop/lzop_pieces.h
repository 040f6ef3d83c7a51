#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// Sizes of the pieces in which data is given or taken, one a call.
using Lzop_Pieces = std::function<std::size_t()>;

constexpr std::size_t lzop_all = SIZE_MAX;

/// Pieces of one size; lzop_all = everything at once.
Lzop_Pieces lzop_pieces_of(std::size_t size);

struct Lzop_Outcome
{
    int result = 0;     ///< LZOP_END, or the error
    std::string data{}; ///< what was handed out
};

/// Compresses @p data whole. Every piece lies in memory of its own, so that the sanitizers see a
/// step across its borders.
Lzop_Outcome lzop_compress_whole(const std::string& data, int level,
                                 const Lzop_Pieces& in = lzop_pieces_of(lzop_all),
                                 const Lzop_Pieces& out = lzop_pieces_of(lzop_all));

/// Decompresses @p data whole, as lzop_compress_whole() does it.
/// @param end_behind  tells the end in a call of its own, not with the last piece
Lzop_Outcome lzop_decompress_whole(const std::string& data,
                                   const Lzop_Pieces& in = lzop_pieces_of(lzop_all),
                                   const Lzop_Pieces& out = lzop_pieces_of(lzop_all),
                                   bool end_behind = true);

/// Random numbers that can be repeated: prints the seed, and takes it from CLIENT_IO_SEED.
class Lzop_Random
{
public:
    Lzop_Random();

    std::uint32_t seed() const { return seed_; }
    std::size_t below(std::size_t bound);
    /// Data with runs, repetitions and noise, in random order.
    std::string data(std::size_t size);

private:
    std::uint32_t seed_;
    std::uint64_t state_;
};

/// Text that compresses, the same at every call.
std::string lzop_text(std::size_t size);
