#pragma once

#include <chrono>
#include <string>
#include <string_view>

/// A client that sends what it is told, byte by byte if need be, and waits for answers only when it
/// is asked to. One that waits too long fails the test.
class Raw_Peer
{
public:
    /// @param receive_buffer  bytes that the system may take in before the peer reads; 0 = its
    /// usual
    explicit Raw_Peer(unsigned short port, int receive_buffer = 0);
    ~Raw_Peer();
    Raw_Peer(const Raw_Peer&) = delete;
    Raw_Peer& operator=(const Raw_Peer&) = delete;

    /// @return false when the server took no more
    bool send(std::string_view bytes) const;
    /// Says that nothing more comes.
    void end() const;
    /// Ends the connection with a reset.
    void reset();
    /// Reads up to the end of the next @p text. @return what was read, also when the end came first
    std::string read_to(std::string_view text);
    /// Reads up to the end of the connection.
    std::string read_all();
    /// Whether the server ends the connection within the time, whatever it sends before.
    bool ends_within(std::chrono::milliseconds time) const;

private:
    int socket_ = -1;
};

/// Sends a request and takes all that comes until the server closes; "Connection: close" is the
/// caller's business.
std::string ask(unsigned short port, std::string_view request);

/// The status of the first answer in @p text, 0 when there is none.
int status_of(std::string_view text);
