#pragma once

#include "platform/http/chunked_decoder.h"
#include "platform/http/http_request.h"
#include "platform/http/http_response.h"
#include "platform/http/intrusive_count.h"
#include "platform/http/tls_stream.h"

#include <ace/Intrusive_Auto_Ptr.h>
#include <ace/Message_Block.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

/// One connection to an HTTP/1.1 server, and the exchange that is under way on it.
///
/// Operations block the caller's thread, each for a limited time. One object serves one thread.
class HTTP_Connection : public Intrusive_Count<HTTP_Connection>
{
public:
    /// How far the exchange is.
    enum State : unsigned
    {
        closed = 0,        ///< it failed; no more can be done with it
        idle = 1,          ///< connected, and nothing asked yet
        chunked_begun = 5, ///< the head was sent, and a chunked body is to follow
        chunked_body = 6,  ///< some of it was sent
        length_body = 7,   ///< a body of known length is being sent
        awaiting = 8,      ///< all was sent, the answer is to come
        receiving = 10,    ///< the head of the answer was read, its body is to come
        complete = 12,     ///< nothing is left of the exchange
    };

    using Ptr = ACE_Intrusive_Auto_Ptr<HTTP_Connection>;

    /// @param tls      NULL: without TLS
    /// @param timeout  for the connecting, and for the TLS handshake
    /// @return null on failure (@p error)
    static Ptr connect(const std::string& host, unsigned short port,
                       const std::string& source_address, const TLS_Context* tls,
                       std::chrono::milliseconds timeout, Transport_Error& error);
    ~HTTP_Connection();

    /// Seconds that the peer may take to accept anything of what is sent, and to send anything of
    /// what is due; for the head of an answer they are the limit of the whole.
    void send_timeout(unsigned seconds) { send_timeout_ = std::chrono::seconds(seconds); }
    void receive_timeout(unsigned seconds) { receive_timeout_ = std::chrono::seconds(seconds); }

    State state() const { return state_; }
    /// The error of the exchange: what the system said, 0 = none.
    int last_error() const { return error_.code; }
    const std::string& error_text() const { return error_.text; }

    /// Sends the head of a request and begins an exchange. A body follows when the head says so, by
    /// Transfer-Encoding or a Content-Length above 0.
    /// @param host  value of the Host field, unless the request has one
    bool start(const HTTP_Request& request, const std::string& host);
    /// Waits for the server's word that it wants the body that a request with "Expect:
    /// 100-continue" announced. Servers may leave it out, so a silent one is waited for no longer
    /// than @p timeout.
    /// @return whether the server said so. When it gave its final answer instead, no body is sent
    ///         any more; read_response_header() has the answer.
    bool await_continue(std::chrono::milliseconds timeout);

    /// Sends a piece of the request's body; a chunked one is ended by a piece of 0 bytes.
    /// @return bytes sent; fewer than @p size on failure. last_error() then is 0 when the server
    ///         has answered already, which ends the sending.
    std::uint64_t write(const void* data, std::uint64_t size);
    /// Whether the server does not know "Expect: 100-continue" (417), which await_continue() heard.
    bool refused_to_say() const { return head_read_ && head_.status == 417; }
    /// The file that a server named with its "100 Continue"; empty when it has not.
    const std::string& file_id() const { return file_id_; }
    /// Whether nothing of the request is left to send.
    bool body_sent() const { return body_sent_; }

    /// Reads the head of the final answer.
    bool read_response_header(HTTP_Response& response);

    /// Reads some of the answer's body into the free space of @p block, by one receive where the
    /// system has as much.
    /// @return bytes, 0 at the end of the body, -1 on failure, which an end before its time is
    std::int64_t read_body(ACE_Message_Block& block);
    /// Reads what is left of the body and forgets it, up to @p limit bytes, and no longer than a
    /// receive may take.
    /// @return whether the end was reached
    bool skip_body(std::uint64_t limit);

    /// Whether another exchange can follow. Of an idle connection it is known for sure only when
    /// the server has not closed it in the meantime.
    bool reusable();
    /// Whether a byte of an answer came since the exchange began.
    bool answered() const { return answered_; }

private:
    HTTP_Connection();

    bool fail(const Transport_Error& error);
    bool fail(int code, const std::string& text = {});
    bool send(const TCP_Socket::Piece* pieces, std::size_t count, std::uint64_t& sent);
    std::int64_t receive(void* buffer, std::size_t size, const Deadline& deadline);
    bool receive_more(std::size_t most, const Deadline& deadline);
    bool read_head(const Deadline& deadline);
    bool has_answer();
    void note_interim();
    std::int64_t take_received(ACE_Message_Block& block, std::uint64_t most);
    std::int64_t read_chunked(ACE_Message_Block& block);
    std::int64_t cut_short();

    std::unique_ptr<TCP_Socket> socket_;
    std::unique_ptr<TLS_Stream> tls_;
    std::chrono::milliseconds send_timeout_{120000};
    std::chrono::milliseconds receive_timeout_{120000};
    State state_ = idle;
    Transport_Error error_;
    std::string received_; ///< what was received and not used yet begins at used_
    std::size_t used_ = 0;
    std::string file_id_;
    HTTP_Response_Head head_;
    bool head_read_ = false; ///< head_ is the final answer's
    bool to_head_ = false;   ///< the request is a HEAD
    bool body_sent_ = true;
    bool answered_ = false;
    std::uint64_t left_ = 0; ///< bytes of a body of known length that are still to come
    Chunked_Decoder chunks_;
};
