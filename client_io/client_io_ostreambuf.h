#pragma once

#include "client_io/client_io.h"

#include <cstdint>
#include <memory>
#include <streambuf>

/// Lets a standard stream write to the open file of a Client_IO.
///
/// Bytes are kept until the buffer is full or the stream is flushed, and then written in one call.
/// A failed write is logged ("Failed to write to client io, %s"), makes the stream fail and leaves
/// the bytes in the buffer: the next flush writes them again. That is safe for a caller who knows
/// that nothing of them has arrived; a retry is otherwise the affair of the connection's options.
///
/// Flush the stream before this object goes, and close the file behind it: what is in the buffer is
/// lost with it, and what was written is stored when close() says so.
///
/// One object serves one thread.
class CLIENT_IO_EXPORT Client_IO_ostreambuf : public std::streambuf
{
public:
    /// @param io    open for writing; not owned, and used as long as this object is
    /// @param size  of the buffer, in bytes. Of 0, or more than there is memory for (errno ENOMEM),
    ///              is logged at emergency priority, and nothing can be written.
    Client_IO_ostreambuf(Client_IO& io, std::uint64_t size);
    /// Writes nothing.
    ~Client_IO_ostreambuf() override;

protected:
    /// @return 0, or -1 when the write failed
    int sync() override;
    /// Makes room and puts @p c there. End-of-file in place of a character makes room too, and
    /// always answers end-of-file.
    int_type overflow(int_type c) override;

private:
    Client_IO* io_;
    std::uint64_t size_;
    std::unique_ptr<char[]> buf_; ///< NULL: unusable
};
