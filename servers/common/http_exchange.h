#pragma once

#include "platform/http/chunked_decoder.h"
#include "platform/http/http_head.h"
#include "servers/common/peer_stream.h"
#include "servers/common/server_limits.h"
#include "servers/common/users_file.h"

#include <boost/asio/awaitable.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// One request and its answer, as a service sees it. Used on its connection's thread only.
class HTTP_Exchange
{
public:
    /// @param rest  what was read behind the request's head; afterwards what was read behind its
    /// body
    HTTP_Exchange(Peer_Stream& stream, Peer_Deadline& deadline, const Server_Limits& limits,
                  std::string& rest);
    HTTP_Exchange(const HTTP_Exchange&) = delete;
    HTTP_Exchange& operator=(const HTTP_Exchange&) = delete;

    HTTP_Request_Head head;
    std::string path; ///< decoded, see parse_request_target()
    /// Who asks; NULL when everybody may.
    std::shared_ptr<const Account> account;
    bool is_http_1_0 = false;

    bool is_head_request() const { return head.method == "HEAD"; }
    bool has_body() const { return head.framing != Body_Framing::none; }

    /// Tells a peer that waits for it to send the body.
    /// @param file_id  names the file that it goes into
    /// @return false when the peer is gone
    boost::asio::awaitable<bool> accept_body(std::string_view file_id);
    /// Whether the client has closed its side. One that waits for an answer does not.
    bool is_client_gone() const { return stream_.is_peer_gone(); }
    enum class Body
    {
        data,
        end,
        malformed,
        too_slow,
        gone, ///< the connection ended before the body
    };
    /// @param data  a stretch of the body, valid until the next call
    boost::asio::awaitable<Body> read_body(std::string_view& data);

    /// Answers with a body of known contents. Content-Length is added, and what every answer has.
    /// @param body  left out of an answer to HEAD, whose Content-Length may be in @p headers
    boost::asio::awaitable<void> answer(unsigned status, HTTP_Headers headers = {},
                                        std::string body = {});
    /// Answers with {"error":TEXT,"status":N}.
    boost::asio::awaitable<void> answer_error(unsigned status, std::string text,
                                              HTTP_Headers headers = {});
    /// Begins an answer whose body follows with write() and ends with end().
    /// @param length  of the body; none: it is not known
    boost::asio::awaitable<bool> begin_answer(unsigned status, HTTP_Headers headers,
                                              std::optional<std::uint64_t> length);
    boost::asio::awaitable<bool> write(std::string_view data);
    boost::asio::awaitable<bool> end();
    /// In place of write() for all of a body, from a file; not with TLS.
    boost::asio::awaitable<bool> send_file(int file, std::uint64_t offset, std::uint64_t size);
    bool can_send_files() const { return !stream_.is_encrypted(); }
    /// The body cannot be told to its end, so the connection has to break.
    void fail_answer();

    /// Whether the connection serves another request after this one.
    bool keeps_connection() const { return !close_ && !has_unread_body(); }
    bool has_unread_body() const { return has_body() && !body_done_; }
    void close_connection() { close_ = true; }
    /// Whether the answer broke off, so that the peer must not take it for whole.
    bool failed() const { return failed_; }

    unsigned status() const { return status_; } ///< 0 = not answered
    std::uint64_t received() const { return received_; }
    std::uint64_t sent() const { return sent_; }

private:
    boost::asio::awaitable<bool> fill();
    Body end_body();
    std::string answer_head(unsigned status, const HTTP_Headers& headers);

    Peer_Stream& stream_;
    Peer_Deadline& deadline_;
    const Server_Limits& limits_;
    std::string& rest_;

    std::unique_ptr<char[]> buffer_; ///< of the body, from its first byte on
    std::string_view input_;         ///< what of the buffer is not yet handed out
    Chunked_Decoder chunks_;
    std::uint64_t left_ = 0; ///< bytes of a body of known length
    bool continued_ = false;
    bool body_begun_ = false;
    bool body_done_ = false;
    std::uint64_t received_ = 0;

    bool chunked_answer_ = false;
    unsigned status_ = 0;
    std::uint64_t sent_ = 0;
    bool close_ = false;
    bool failed_ = false;
};
