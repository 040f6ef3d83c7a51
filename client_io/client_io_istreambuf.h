#pragma once

#include "client_io/client_io.h"

#include <cstdint>
#include <memory>
#include <streambuf>

/// Lets a standard stream read the open file of a Client_IO.
///
/// Reads a buffer at a time. The stream can tell how far it has come (tellg) and skip forwards
/// (seekg with std::ios::cur); what it would have to seek otherwise fails.
///
/// A read that fails looks like the end of the file here. Whoever must tell them apart reads once
/// more through the Client_IO: 0 is the end.
///
/// One object serves one thread.
class CLIENT_IO_EXPORT Client_IO_istreambuf : public std::streambuf
{
public:
    /// @param io    open for reading; not owned, and used as long as this object is
    /// @param size  of the buffer, in bytes. Of 0, or more than there is memory for (errno ENOMEM),
    ///              is logged at emergency priority, and every read comes to an end at once.
    Client_IO_istreambuf(Client_IO& io, std::uint64_t size);
    ~Client_IO_istreambuf() override;

    /// Skips @p off bytes, by reading them.
    /// @return bytes consumed since construction; -1 when @p off is negative (nothing is done) or
    ///         the file ends before (it is read to its end then)
    std::int64_t set_cur_position(std::int64_t off);

protected:
    /// set_cur_position() where @p dir is the current position and @p mode includes input, else -1.
    pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                     std::ios_base::openmode mode) override;
    int_type underflow() override;

private:
    bool fill();

    Client_IO* io_;
    std::uint64_t size_;
    std::unique_ptr<char[]> buf_; ///< NULL: unusable
    std::int64_t pos_ = 0;        ///< bytes read from io_ since construction
};
