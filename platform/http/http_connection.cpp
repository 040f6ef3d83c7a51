#include "platform/http/http_connection.h"

#include "platform/runtime/format.h"

#include <algorithm>
#include <boost/asio/error.hpp>
#include <cinttypes>
#include <cstring>
#include <utility>

namespace
{

namespace asio_error = boost::asio::error;

constexpr HTTP_Head_Limits head_limits;
/// Interim answers that may come before the final one.
constexpr int max_interim = 16;
/// Up to here a chunk is joined with its frame before it is sent; above, that costs more than
/// sending the three of them.
constexpr std::uint64_t small_chunk = 4096;
constexpr std::size_t receive_size = 16384;

} // namespace

HTTP_Connection::HTTP_Connection() = default;

HTTP_Connection::~HTTP_Connection() = default;

HTTP_Connection::Ptr HTTP_Connection::connect(const std::string& host, unsigned short port,
                                              const std::string& source_address,
                                              const TLS_Context* tls,
                                              std::chrono::milliseconds timeout,
                                              Transport_Error& error)
{
    Ptr connection(new HTTP_Connection);
    connection->socket_ = TCP_Socket::connect(host, port, source_address, timeout, error);
    if (!connection->socket_)
        return {};
    if (tls != nullptr) {
        connection->tls_ = TLS_Stream::connect(*connection->socket_, *tls, host, timeout, error);
        if (!connection->tls_)
            return {};
    }
    return connection;
}

bool HTTP_Connection::start(const HTTP_Request& request, const std::string& host)
{
    const HTTP_Headers& headers = request.headers();
    std::string head = HTTP_Request::method_name(request.method());
    head.append(" ").append(request.uri()).append(" HTTP/1.1\r\n");
    if (headers.get(HTTP_Headers::host) == nullptr)
        head.append("Host: ").append(host).append("\r\n");
    for (const auto& [name, value] : headers)
        head.append(name).append(": ").append(value).append("\r\n");
    head += "\r\n";

    error_ = {};
    answered_ = false;
    head_read_ = false;
    file_id_.clear();
    to_head_ = request.method() == HTTP_Request::HEAD;
    const std::string* length = headers.get(HTTP_Headers::content_length);
    const bool chunked = headers.get(HTTP_Headers::transfer_encoding) != nullptr;
    left_ = length != nullptr ? std::strtoull(length->c_str(), nullptr, 10) : 0;
    body_sent_ = !chunked && left_ == 0;
    state_ = chunked ? chunked_begun : left_ != 0 ? length_body : awaiting;

    const TCP_Socket::Piece piece = {head.data(), head.size()};
    std::uint64_t sent = 0;
    return send(&piece, 1, sent) || has_answer();
}

bool HTTP_Connection::await_continue(std::chrono::milliseconds timeout)
{
    const Deadline deadline(std::min(timeout, receive_timeout_));
    const State sending = state_;
    if (!read_head(deadline)) {
        if (error_.code == static_cast<int>(asio_error::timed_out)) {
            error_ = {};
            state_ = sending;
        }
        return false;
    }
    note_interim();
    head_read_ = head_.status >= 200;
    return head_.status == 100;
}

std::uint64_t HTTP_Connection::write(const void* data, std::uint64_t size)
{
    if (head_read_ || (state_ != chunked_begun && state_ != chunked_body && state_ != length_body))
        return 0;
    // Before all of a long body was sent to a server that takes no more.
    if (used_ < received_.size() || socket_->is_readable())
        await_continue(std::chrono::milliseconds(0));
    if (head_read_ || state_ == closed)
        return 0;
    std::uint64_t sent = 0;
    bool done = false;
    if (state_ == length_body) {
        const TCP_Socket::Piece piece = {data, static_cast<std::size_t>(size)};
        done = size <= left_ && send(&piece, 1, sent);
        left_ -= std::min(left_, sent);
        if (left_ == 0)
            state_ = awaiting;
    } else if (size == 0) {
        const TCP_Socket::Piece last = {"0\r\n\r\n", 5};
        done = send(&last, 1, sent);
        if (done)
            state_ = awaiting;
    } else {
        const std::string size_line = format_text("%" PRIx64 "\r\n", size);
        const TCP_Socket::Piece pieces[] = {{size_line.data(), size_line.size()},
                                            {data, static_cast<std::size_t>(size)},
                                            {"\r\n", 2}};
        if (size <= small_chunk) {
            std::string frame = size_line;
            frame.append(static_cast<const char*>(data), static_cast<std::size_t>(size));
            frame += "\r\n";
            const TCP_Socket::Piece piece = {frame.data(), frame.size()};
            done = send(&piece, 1, sent);
        } else {
            done = send(pieces, 3, sent);
        }
        state_ = done ? chunked_body : state_;
    }
    if (done) {
        body_sent_ = state_ == awaiting;
        return size;
    }
    has_answer();
    return 0;
}

bool HTTP_Connection::read_response_header(HTTP_Response& response)
{
    const Deadline deadline(receive_timeout_);
    for (int interim = 0; !head_read_; ++interim) {
        if (!read_head(deadline))
            return false;
        if (head_.status == 101 || interim == max_interim)
            return fail(asio_error::connection_aborted, "an answer that nobody asked for");
        note_interim();
        head_read_ = head_.status >= 200;
    }
    response = {};
    response.status(head_.status);
    if (head_.framing == Body_Framing::length || head_.headers.get("Content-Length") != nullptr)
        response.content_length(head_.content_length);
    response.headers() = head_.headers;
    left_ = head_.framing == Body_Framing::length ? head_.content_length : 0;
    chunks_ = {};
    state_ = head_.framing == Body_Framing::none ? complete : receiving;
    return true;
}

std::int64_t HTTP_Connection::read_body(ACE_Message_Block& block)
{
    if (state_ != receiving || block.space() == 0)
        return 0;
    if (head_.framing == Body_Framing::chunked)
        return read_chunked(block);

    const bool known = head_.framing == Body_Framing::length;
    const std::uint64_t most =
        known ? std::min<std::uint64_t>(left_, block.space()) : block.space();
    std::int64_t n = take_received(block, most);
    if (n == 0) {
        n = receive(block.wr_ptr(), static_cast<std::size_t>(most), Deadline(receive_timeout_));
        if (n < 0)
            return -1;
        if (n == 0 && known)
            return cut_short();
        block.wr_ptr(static_cast<std::size_t>(n));
    }
    if (known)
        left_ -= static_cast<std::uint64_t>(n);
    if (known ? left_ == 0 : n == 0)
        state_ = complete;
    return n;
}

bool HTTP_Connection::skip_body(std::uint64_t limit)
{
    ACE_Message_Block block(receive_size);
    const Deadline deadline(receive_timeout_);
    std::uint64_t skipped = 0;
    while (state_ == receiving && skipped <= limit && deadline.left().count() > 0) {
        block.reset();
        const std::int64_t n = read_body(block);
        if (n < 0)
            return false;
        skipped += static_cast<std::uint64_t>(n);
    }
    return state_ == complete;
}

bool HTTP_Connection::reusable()
{
    if (state_ != idle && (state_ != complete || !head_.keep_alive || !body_sent_))
        return false;
    // Whatever comes unasked is no answer to what is asked next.
    if (used_ != received_.size())
        return false;
    if (!socket_->is_readable() && (!tls_ || !tls_->has_bytes()))
        return true;
    if (!tls_)
        return false;
    // But for TLS's own messages (session tickets), behind which there is nothing for us.
    const State state = state_;
    if (receive_more(receive_size, Deadline(std::chrono::milliseconds(0))) ||
        error_.code != static_cast<int>(asio_error::timed_out))
        return false;
    error_ = {};
    state_ = state;
    return true;
}

bool HTTP_Connection::fail(const Transport_Error& error)
{
    error_ = error;
    state_ = closed;
    return false;
}

bool HTTP_Connection::fail(int code, const std::string& text)
{
    return fail(Transport_Error{code, text});
}

bool HTTP_Connection::send(const TCP_Socket::Piece* pieces, std::size_t count, std::uint64_t& sent)
{
    Transport_Error error;
    if (!tls_)
        return socket_->send(pieces, count, send_timeout_, sent, error) || fail(error);
    sent = 0;
    for (std::size_t index = 0; index < count; ++index) {
        std::uint64_t n = 0;
        const bool done =
            tls_->send(pieces[index].data, pieces[index].size, send_timeout_, n, error);
        sent += n;
        if (!done)
            return fail(error);
    }
    return true;
}

std::int64_t HTTP_Connection::receive(void* buffer, std::size_t size, const Deadline& deadline)
{
    Transport_Error error;
    const std::int64_t n = tls_ ? tls_->receive(buffer, size, deadline, error)
                                : socket_->receive(buffer, size, deadline, error);
    if (n < 0)
        fail(error);
    answered_ = answered_ || n > 0;
    return n;
}

/// Receives once behind what was received before.
bool HTTP_Connection::receive_more(std::size_t most, const Deadline& deadline)
{
    if (used_ == received_.size()) {
        received_.clear();
        used_ = 0;
    }
    const std::size_t size = received_.size();
    received_.resize(size + most);
    const std::int64_t n = receive(received_.data() + size, most, deadline);
    received_.resize(size + static_cast<std::size_t>(std::max<std::int64_t>(n, 0)));
    if (n == 0)
        return fail(asio_error::connection_reset);
    return n > 0;
}

/// Reads the head of the next answer, interim ones included, into head_.
bool HTTP_Connection::read_head(const Deadline& deadline)
{
    for (;;) {
        std::size_t size = 0;
        std::string reason;
        const auto bytes = std::string_view(received_).substr(used_);
        switch (parse_response_head(bytes, to_head_, head_limits, head_, size, reason)) {
        case HTTP_Parse_Result::complete:
            used_ += size;
            return true;
        case HTTP_Parse_Result::incomplete:
            break;
        default:
            return fail(asio_error::connection_aborted, "invalid answer: " + reason);
        }
        if (!receive_more(receive_size, deadline))
            return false;
    }
}

/// Takes what an interim answer has to say.
void HTTP_Connection::note_interim()
{
    const std::string* const id = head_.headers.get(HTTP_Headers::file_id);
    if (head_.status == 100 && id != nullptr)
        file_id_ = *id;
}

/// After a failure to send: whether the server has answered, which is why it takes no more. Then
/// it is no failure.
bool HTTP_Connection::has_answer()
{
    const Transport_Error failure = error_;
    const bool waiting = used_ < received_.size() || (tls_ ? true : socket_->has_bytes());
    if (!waiting || (tls_ && !receive_more(receive_size, Deadline(std::chrono::milliseconds(0))))) {
        fail(failure);
        return false;
    }
    error_ = {};
    state_ = awaiting;
    return true;
}

/// Takes up to @p most bytes that were received before into the block.
std::int64_t HTTP_Connection::take_received(ACE_Message_Block& block, std::uint64_t most)
{
    const auto n = static_cast<std::size_t>(
        std::min<std::uint64_t>({most, block.space(), received_.size() - used_}));
    std::memcpy(block.wr_ptr(), received_.data() + used_, n);
    block.wr_ptr(n);
    used_ += n;
    return static_cast<std::int64_t>(n);
}

std::int64_t HTTP_Connection::read_chunked(ACE_Message_Block& block)
{
    const std::size_t before = block.length();
    while (block.length() == before) {
        if (used_ == received_.size() && chunks_.chunk_left() != 0) {
            // A chunk's data need not go through the buffer in which its frame is looked for.
            const auto most = static_cast<std::size_t>(
                std::min<std::uint64_t>(chunks_.chunk_left(), block.space()));
            const std::int64_t n = receive(block.wr_ptr(), most, Deadline(receive_timeout_));
            if (n < 0)
                return -1;
            if (n == 0)
                return cut_short();
            block.wr_ptr(static_cast<std::size_t>(n));
            chunks_.skip(static_cast<std::uint64_t>(n));
            return n;
        }
        if (used_ == received_.size() && !receive_more(receive_size, Deadline(receive_timeout_)))
            return -1;
        // No more than there is room for may be taken from the decoder.
        std::string_view input = std::string_view(received_).substr(used_, block.space());
        const std::size_t offered = input.size();
        std::string_view data;
        if (!chunks_.next(input, data)) {
            fail(asio_error::connection_aborted, std::string("invalid answer: ") + chunks_.error());
            return -1;
        }
        used_ += offered - input.size();
        data.copy(block.wr_ptr(), data.size());
        block.wr_ptr(data.size());
        if (chunks_.done()) {
            state_ = complete;
            break;
        }
    }
    return static_cast<std::int64_t>(block.length() - before);
}

std::int64_t HTTP_Connection::cut_short()
{
    fail(asio_error::connection_reset);
    return -1;
}
