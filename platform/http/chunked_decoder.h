#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Finds the data in a chunked body (RFC 9112, 7.1) without copying it.
///
/// Chunk extensions and trailer fields are passed over; their bytes are limited. Strict: lines end
/// with CR LF, sizes are hexadecimal digits and fit 64 bits.
class Chunked_Decoder
{
public:
    /// Bytes of one chunk's size line, and of all trailer fields together.
    static constexpr std::size_t max_line = 4096;
    static constexpr std::size_t max_trailer = 16384;

    /// Takes bytes from the front of @p input, up to the next stretch of data.
    /// @param data  a stretch of data inside the bytes taken; empty when there is none in them
    /// @return false when the body is malformed; error() says how
    [[nodiscard]] bool next(std::string_view& input, std::string_view& data);
    /// Whether the last chunk and the trailer have been read; what is left of the input is the
    /// next message's.
    bool done() const { return state_ == State::done; }
    /// How many bytes of data of the present chunk are still to come. They may be read past the
    /// decoder, into their place, and then be told to it with skip().
    std::uint64_t chunk_left() const { return state_ == State::data ? left_ : 0; }
    /// @param n  at most chunk_left()
    void skip(std::uint64_t n);

    const char* error() const { return error_; }

private:
    enum class State
    {
        size,
        size_line, ///< behind the size: extensions up to the end of the line
        data,
        data_end, ///< the CR LF behind a chunk's data
        trailer,
        done,
        bad,
    };

    bool refuse(const char* why);
    bool take(char c);

    State state_ = State::size;
    std::uint64_t left_ = 0;
    std::size_t digits_ = 0;
    std::size_t line_ = 0; ///< bytes of the present line so far
    std::size_t trailer_ = 0;
    bool after_cr_ = false;
    const char* error_ = "";
};
