#pragma once

#include "platform/runtime/export.h"

#include <cstdint>

/// A stream of bytes: the three operations that everything readable or writable shares.
///
/// The virtual operations stand in a fixed order (destructor, read, write, size); classes
/// derived from this one add theirs behind them, and callers built earlier rely on the order.
class CLIENT_IO_EXPORT IO_Base
{
public:
    IO_Base() = default;
    IO_Base(const IO_Base&) = delete;
    IO_Base& operator=(const IO_Base&) = delete;
    virtual ~IO_Base();

    /// Reads up to @p size bytes into @p buf.
    /// @return bytes read, 0 at the end of the stream, -1 on failure
    virtual std::int64_t read(void* buf, std::uint64_t size) = 0;

    /// Writes @p size bytes.
    /// @return true when all of them were accepted
    virtual bool write(const void* buf, std::uint64_t size) = 0;

    /// @return size of the open stream in bytes, all ones (-1) when it is unknown
    virtual std::uint64_t size() const = 0;

    /// Words an open mode for messages: "read", "write", "append", "random write" for the low
    /// bytes 1 to 4, "unknown" for others. Flag bits above the low byte are not worded.
    /// @return a static text, never NULL
    static const char* mode_value_to_name(unsigned mode) noexcept;
};
