#pragma once

#include <cstddef>
#include <memory>

#include "platform/lzop/lzop.h"

/// What stands behind a stream: one of the two directions, each of which refuses the other's
/// operation. Private to the codec.
struct Lzop_State
{
    virtual ~Lzop_State() = default;

    [[nodiscard]] virtual int compress(Lzop_Stream&, bool /*finish*/) noexcept
    {
        return LZOP_E_STATE;
    }
    [[nodiscard]] virtual int decompress(Lzop_Stream&, bool /*end*/) noexcept
    {
        return LZOP_E_STATE;
    }

    bool failed = false; ///< an operation returned an error
};

/// A block of memory that is reused; its contents count for nothing between two uses.
class Lzop_Buffer
{
public:
    /// Makes room for @p size bytes, keeping the first @p kept ones.
    /// @return false when there is no memory; with bytes to keep, the buffer is then as it was
    [[nodiscard]] bool reserve(std::size_t size, std::size_t kept = 0) noexcept;

    [[nodiscard]] unsigned char* data() noexcept { return bytes_.get(); }
    [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }

private:
    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t capacity_ = 0;
};

/// Bytes that wait for room in the caller's output. They stay where they are until taken.
class Lzop_Pending
{
public:
    void set(const unsigned char* data, std::size_t size) noexcept;
    /// Copies as much as fits into the stream's output.
    /// @return whether nothing is left
    [[nodiscard]] bool drain(Lzop_Stream& stream) noexcept;

private:
    const unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

/// Copies input of the stream to the end of @p have bytes at @p to, up to @p need bytes.
/// @return whether they are all there
[[nodiscard]] bool lzop_gather(Lzop_Stream& stream, unsigned char* to, std::size_t& have,
                               std::size_t need) noexcept;

/// @return NULL when there is no memory
[[nodiscard]] std::unique_ptr<Lzop_State> make_lzop_compressor(int level) noexcept;
[[nodiscard]] std::unique_ptr<Lzop_State> make_lzop_decompressor() noexcept;
