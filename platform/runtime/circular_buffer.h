#pragma once

#include <cstdint>
#include <memory>

/// The most recent bytes of a stream, addressed by their offset in it.
///
/// Memory is taken once, at construction (std::bad_alloc when there is none).
class Circular_Buffer
{
public:
    /// @param capacity  bytes kept at most; 0 keeps none but still counts
    /// @param start     offset in the stream of the first byte that will be written
    Circular_Buffer(std::uint64_t capacity, std::uint64_t start);

    /// Empties the buffer; @p position becomes the offset of the next byte written.
    void reset(std::uint64_t position);

    /// Appends @p n bytes at the end of the stream; the oldest make room for them. @p data must not
    /// lie in this buffer.
    void write(const void* data, std::uint64_t n);

    /// Offset of the oldest byte that is kept; end() when there is none.
    std::uint64_t start() const { return end_ - held_; }
    /// Offset behind the newest byte.
    std::uint64_t end() const { return end_; }

    /// Looks the stream up at @p position.
    /// @param ptr  the bytes there, valid until the next write() or reset(); NULL when @p len < 1
    /// @param len  how many of them follow one another in memory, at least 1 before the end; from
    ///             the end on, end() - @p position (0 or negative, not below -(2^63 - 1))
    /// @return false (@p len 0) when @p position lies before start()
    [[nodiscard]] bool read(const void*& ptr, std::int64_t& len, std::uint64_t position) const;

private:
    std::uint64_t capacity_;
    std::unique_ptr<char[]> data_; ///< the byte at offset p stands at p % capacity_
    std::uint64_t end_;
    std::uint64_t held_ = 0;
};
