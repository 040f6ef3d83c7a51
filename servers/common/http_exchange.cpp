#include "servers/common/http_exchange.h"

#include "platform/http/http_date.h"
#include "platform/json/json_spirit.h"
#include "platform/json/json_value.h"

#include <algorithm>
#include <array>
#include <boost/beast/http/status.hpp>
#include <charconv>
#include <cstring>
#include <ctime>

namespace asio = boost::asio;

namespace
{

constexpr std::size_t buffer_size = 256U << 10U;

Peer_Deadline::Time now()
{
    return std::chrono::steady_clock::now();
}

std::string_view reason_phrase(unsigned status)
{
    const auto text =
        boost::beast::http::obsolete_reason(boost::beast::http::int_to_status(status));
    return {text.data(), text.size()};
}

std::string hexadecimal(std::size_t number)
{
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    return {digits.data(), end};
}

std::string error_body(const std::string& text, unsigned status)
{
    json_spirit::Object object;
    object["error"] = text;
    object["status"] = static_cast<std::int64_t>(status);
    return JSON_Dump(json_spirit::Value(object), false) + "\n";
}

} // namespace

HTTP_Exchange::HTTP_Exchange(Peer_Stream& stream, Peer_Deadline& deadline,
                             const Server_Limits& limits, std::string& rest)
    : stream_(stream), deadline_(deadline), limits_(limits), rest_(rest)
{}

asio::awaitable<bool> HTTP_Exchange::accept_body(std::string_view file_id)
{
    if (!head.expects_continue || continued_)
        co_return true;
    continued_ = true;
    deadline_.set_rate(now(), limits_.body_time, limits_.least_rate);
    std::string text = "HTTP/1.1 100 Continue\r\n";
    text.append(HTTP_Headers::name(HTTP_Headers::file_id)).append(": ").append(file_id);
    text += "\r\n\r\n";
    co_return co_await stream_.write(text);
}

asio::awaitable<HTTP_Exchange::Body> HTTP_Exchange::read_body(std::string_view& data)
{
    if (!has_body() || body_done_)
        co_return end_body();
    if (!body_begun_) {
        body_begun_ = true;
        left_ = head.content_length;
        buffer_ = std::make_unique_for_overwrite<char[]>(std::max(buffer_size, rest_.size()));
        std::memcpy(buffer_.get(), rest_.data(), rest_.size());
        input_ = {buffer_.get(), rest_.size()};
        rest_.clear();
        deadline_.set_rate(now(), limits_.body_time, limits_.least_rate);
    }
    while (true) {
        if (head.framing == Body_Framing::length && left_ == 0)
            co_return end_body();
        if (input_.empty()) {
            const bool filled = co_await fill();
            if (!filled)
                break;
        }
        if (head.framing == Body_Framing::length) {
            data = input_.substr(0, std::min<std::uint64_t>(left_, input_.size()));
            input_.remove_prefix(data.size());
            left_ -= data.size();
        } else if (!chunks_.next(input_, data)) {
            co_return Body::malformed;
        }
        received_ += data.size();
        if (!data.empty())
            co_return Body::data;
        if (head.framing == Body_Framing::chunked && chunks_.done())
            co_return end_body();
    }
    deadline_.clear();
    co_return stream_.is_interrupted() ? Body::too_slow : Body::gone;
}

asio::awaitable<bool> HTTP_Exchange::fill()
{
    // Not beyond the body, whose rest is another request's.
    const std::size_t size = head.framing == Body_Framing::length
                                 ? std::min<std::uint64_t>(left_, buffer_size)
                                 : buffer_size;
    const std::int64_t n = co_await stream_.read({buffer_.get(), size});
    if (n <= 0)
        co_return false;
    input_ = {buffer_.get(), static_cast<std::size_t>(n)};
    co_return true;
}

HTTP_Exchange::Body HTTP_Exchange::end_body()
{
    if (body_begun_ && !body_done_)
        rest_ = input_;
    body_done_ = true;
    buffer_.reset();
    deadline_.clear();
    return Body::end;
}

asio::awaitable<void> HTTP_Exchange::answer(unsigned status, HTTP_Headers headers, std::string body)
{
    // A peer that was too slow with its body shall still learn of it.
    stream_.resume();
    // An answer to HEAD tells the length that the same GET would have had.
    const std::string* const told = headers.get(HTTP_Headers::content_length);
    if (told == nullptr && status != 304)
        headers.put(HTTP_Headers::content_length, std::to_string(body.size()));
    if (is_head_request())
        body.clear();
    std::string text = answer_head(status, headers);
    const std::size_t size = body.size();
    text += body;
    deadline_.set_rate(now(), limits_.body_time, limits_.least_rate);
    const bool written = co_await stream_.write(text);
    deadline_.clear();
    if (written)
        sent_ += size;
    else
        fail_answer();
}

asio::awaitable<void> HTTP_Exchange::answer_error(unsigned status, std::string text,
                                                  HTTP_Headers headers)
{
    headers.put(HTTP_Headers::content_type, "application/json");
    if (status == 503)
        headers.put(HTTP_Headers::retry_after, "1");
    co_await answer(status, std::move(headers), error_body(text, status));
}

asio::awaitable<bool> HTTP_Exchange::begin_answer(unsigned status, HTTP_Headers headers,
                                                  std::optional<std::uint64_t> length)
{
    if (length.has_value())
        headers.put(HTTP_Headers::content_length, std::to_string(*length));
    else if (is_http_1_0)
        close_ = true; // the end of the connection is the end of the body
    else
        headers.put(HTTP_Headers::transfer_encoding, "chunked");
    chunked_answer_ = !length.has_value() && !is_http_1_0;
    const std::string text = answer_head(status, headers);
    deadline_.set_rate(now(), limits_.body_time, limits_.least_rate);
    const bool written = co_await stream_.write(text, true);
    if (!written)
        fail_answer();
    co_return written;
}

asio::awaitable<bool> HTTP_Exchange::write(std::string_view data)
{
    if (data.empty())
        co_return true; // an empty chunk would be the last one
    bool written = true;
    if (chunked_answer_) {
        const std::string size = hexadecimal(data.size()) + "\r\n";
        written = co_await stream_.write(size, true);
    }
    written = written && co_await stream_.write(data, chunked_answer_);
    if (chunked_answer_)
        written = written && co_await stream_.write("\r\n");
    if (written)
        sent_ += data.size();
    else
        fail_answer();
    co_return written;
}

asio::awaitable<bool> HTTP_Exchange::send_file(int file, std::uint64_t offset, std::uint64_t size)
{
    const bool sent = co_await stream_.send_file(file, offset, size);
    if (sent)
        sent_ += size;
    else
        fail_answer();
    co_return sent;
}

asio::awaitable<bool> HTTP_Exchange::end()
{
    bool written = true;
    if (chunked_answer_)
        written = co_await stream_.write("0\r\n\r\n");
    deadline_.clear();
    if (!written)
        fail_answer();
    co_return written;
}

void HTTP_Exchange::fail_answer()
{
    close_ = true;
    failed_ = true;
    deadline_.clear();
}

std::string HTTP_Exchange::answer_head(unsigned status, const HTTP_Headers& headers)
{
    status_ = status;
    std::string text = "HTTP/1.1 " + std::to_string(status) + ' ';
    text += reason_phrase(status);
    text += "\r\nDate: " + http_date(std::time(nullptr)) + "\r\n";
    for (const auto& [name, value] : headers)
        text.append(name).append(": ").append(value).append("\r\n");
    if (!keeps_connection())
        text += "Connection: close\r\n";
    else if (is_http_1_0)
        text += "Connection: keep-alive\r\n";
    text += "\r\n";
    return text;
}
