#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

/// Why a connection failed.
struct Transport_Error
{
    int code = 0;     ///< the system's error number; 0 = none
    std::string text; ///< beside what the number says: why a name was not found, a certificate not
                      ///< accepted; mostly empty
};

/// The point in time up to which something may take.
class Deadline
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Deadline(std::chrono::milliseconds timeout) : end_(Clock::now() + timeout) {}

    /// What is left, 0 when it has passed.
    std::chrono::milliseconds left() const;

private:
    Clock::time_point end_;
};

/// A TCP connection that is used by one thread, which each operation blocks for a limited time.
class TCP_Socket
{
public:
    /// Connects to the first address of @p host that answers; each gets its share of the time that
    /// is left. The name itself is looked up by the system, within the system's own limits.
    /// @param source_address  local name or address to connect from; empty: the system chooses
    /// @return NULL on failure (@p error)
    static std::unique_ptr<TCP_Socket> connect(const std::string& host, unsigned short port,
                                               const std::string& source_address,
                                               std::chrono::milliseconds timeout,
                                               Transport_Error& error);
    ~TCP_Socket();

    /// Receives what is there, at least one byte.
    /// @return bytes, 0 when the peer has ended the stream, -1 on failure (@p error)
    std::int64_t receive(void* buffer, std::size_t size, const Deadline& deadline,
                         Transport_Error& error);

    /// A piece of what is sent.
    struct Piece
    {
        const void* data;
        std::size_t size;
    };
    /// Sends the pieces one behind the other. The timeout is for the peer to take any of it; it
    /// begins again whenever it has taken some.
    /// @param sent  bytes that were handed to the system, on failure too
    bool send(const Piece* pieces, std::size_t count, std::chrono::milliseconds timeout,
              std::uint64_t& sent, Transport_Error& error);

    /// Whether something can be received at once: bytes, the end of the stream, or a failure.
    bool is_readable() const;
    /// Whether bytes of the peer are waiting, not just the end of the stream.
    bool has_bytes();

private:
    struct Connected;

    explicit TCP_Socket(std::unique_ptr<Connected> connected);
    bool wait(bool to_read, std::chrono::milliseconds timeout, Transport_Error& error) const;

    std::unique_ptr<Connected> connected_;
};
