#include "platform/http/http_head.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <exception>
#include <limits>
#include <optional>

namespace
{

namespace http = boost::beast::http;

constexpr std::string_view end_of_head = "\r\n\r\n";
constexpr std::uint64_t max_length = std::numeric_limits<std::int64_t>::max();

/// Looks at the form of the lines, which the parser takes more generously.
/// @return why they are refused, empty when they are not
std::string_view check_lines(std::string_view bytes)
{
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const char c = bytes[at];
        if (c == '\n' && (at == 0 || bytes[at - 1] != '\r'))
            return "a line ends without CR";
        if (c == '\r' && at + 1 < bytes.size() && bytes[at + 1] != '\n')
            return "a CR inside a line";
        if ((c == ' ' || c == '\t') && at > 0 && bytes[at - 1] == '\n')
            return "a folded line";
    }
    return {};
}

/// Finds the head and its lines, before anything of it is parsed.
/// @param text  the head with its empty line
HTTP_Parse_Result find_head(std::string_view bytes, const HTTP_Head_Limits& limits,
                            std::string_view& text, std::string& reason)
{
    const std::size_t end = bytes.find(end_of_head);
    const bool whole = end != std::string_view::npos;
    text = whole ? bytes.substr(0, end + end_of_head.size()) : bytes;
    if (text.size() > limits.bytes || (!whole && text.size() == limits.bytes)) {
        reason = "the head has more than " + std::to_string(limits.bytes) + " bytes";
        return HTTP_Parse_Result::too_large;
    }
    if (const std::string_view why = check_lines(text); !why.empty()) {
        reason = why;
        return HTTP_Parse_Result::bad;
    }
    return whole ? HTTP_Parse_Result::complete : HTTP_Parse_Result::incomplete;
}

HTTP_Parse_Result refuse(std::string& reason, std::string_view why)
{
    reason = why;
    return HTTP_Parse_Result::bad;
}

/// Takes over the fields and what they say about the body.
/// @param framing  that of a message without either of its fields
template <bool is_request, class Head>
HTTP_Parse_Result take_fields(const http::parser<is_request, http::empty_body>& parser,
                              const HTTP_Head_Limits& limits, Body_Framing framing, Head& head,
                              std::string& reason)
{
    head.headers.clear();
    for (const auto& field : parser.get()) {
        if (head.headers.size() == limits.fields) {
            reason = "the head has more than " + std::to_string(limits.fields) + " fields";
            return HTTP_Parse_Result::too_large;
        }
        head.headers.add(field.name_string(), std::string(field.value()));
    }
    const std::size_t lengths = head.headers.count("Content-Length");
    const std::size_t codings = head.headers.count("Transfer-Encoding");
    if (lengths + codings > 1)
        return refuse(reason, "more than one field tells the length of the body");
    if (codings != 0) {
        if (parser.get().version() < 11)
            return refuse(reason, "a transfer coding in HTTP/1.0");
        if (!equal_without_case(*head.headers.get("Transfer-Encoding"), "chunked"))
            return refuse(reason, "an unknown transfer coding");
        head.framing = Body_Framing::chunked;
    } else if (lengths != 0) {
        const std::string& text = *head.headers.get("Content-Length");
        head.content_length = 0;
        if (text.empty() || text.size() > 19)
            return refuse(reason, "an invalid Content-Length");
        for (const char c : text) {
            if (c < '0' || c > '9')
                return refuse(reason, "an invalid Content-Length");
            head.content_length = head.content_length * 10 + static_cast<std::uint64_t>(c - '0');
        }
        if (head.content_length > max_length)
            return refuse(reason, "an invalid Content-Length");
        head.framing = head.content_length == 0 ? Body_Framing::none : Body_Framing::length;
    } else {
        head.framing = framing;
    }
    head.keep_alive = parser.get().keep_alive() && head.framing != Body_Framing::until_close;
    return HTTP_Parse_Result::complete;
}

template <bool is_request>
using Parser = http::parser<is_request, http::empty_body>;

/// @param text  a whole head
template <bool is_request>
std::string parse(Parser<is_request>& parser, std::string_view text)
{
    boost::beast::error_code error;
    parser.header_limit(static_cast<std::uint32_t>(text.size() + 1));
    parser.body_limit(boost::none);
    parser.eager(false);
    parser.put(boost::asio::buffer(text.data(), text.size()), error);
    if (error)
        return error.message();
    return parser.is_header_done() ? std::string() : "the head is not complete";
}

} // namespace

HTTP_Parse_Result parse_response_head(std::string_view bytes, bool to_head,
                                      const HTTP_Head_Limits& limits, HTTP_Response_Head& head,
                                      std::size_t& used, std::string& reason)
try {
    constexpr std::string_view start = "HTTP/1.";
    if (bytes.substr(0, start.size()) != start.substr(0, bytes.size()))
        return refuse(reason, "it does not begin like an answer of HTTP/1");
    std::string_view text;
    HTTP_Parse_Result result = find_head(bytes, limits, text, reason);
    if (result != HTTP_Parse_Result::complete)
        return result;

    Parser<false> parser;
    parser.skip(to_head);
    if (reason = parse(parser, text); !reason.empty())
        return HTTP_Parse_Result::bad;
    head = {};
    head.status = parser.get().result_int();
    if (head.status < 100)
        return refuse(reason, "an invalid status");
    result = take_fields(parser, limits, Body_Framing::until_close, head, reason);
    if (result != HTTP_Parse_Result::complete)
        return result;
    // RFC 9112, 6.3: these never have one, whatever their fields say.
    if (to_head || head.status < 200 || head.status == 204 || head.status == 304) {
        head.framing = Body_Framing::none;
        head.keep_alive = parser.get().keep_alive();
    }
    used = text.size();
    return HTTP_Parse_Result::complete;
} catch (const std::exception& error) {
    return refuse(reason, error.what());
}

HTTP_Parse_Result parse_request_head(std::string_view bytes, const HTTP_Head_Limits& limits,
                                     HTTP_Request_Head& head, std::size_t& used,
                                     std::string& reason)
try {
    // RFC 9112, 2.2: an empty line before a request is passed over.
    std::size_t skipped = 0;
    while (bytes.substr(skipped, 2) == "\r\n" && skipped < 4)
        skipped += 2;
    std::string_view text;
    HTTP_Parse_Result result = find_head(bytes.substr(skipped), limits, text, reason);
    if (result != HTTP_Parse_Result::complete)
        return result;

    Parser<true> parser;
    if (reason = parse(parser, text); !reason.empty())
        return HTTP_Parse_Result::bad;
    head = {};
    head.method = std::string(parser.get().method_string());
    head.target = std::string(parser.get().target());
    result = take_fields(parser, limits, Body_Framing::none, head, reason);
    if (result != HTTP_Parse_Result::complete)
        return result;
    const std::size_t hosts = head.headers.count("Host");
    if (hosts > 1 || (hosts == 0 && parser.get().version() >= 11))
        return refuse(reason, "a request needs one Host");
    const std::string* expect = head.headers.get(HTTP_Headers::expect);
    head.expects_continue = expect != nullptr && equal_without_case(*expect, "100-continue") &&
                            parser.get().version() >= 11 && head.framing != Body_Framing::none;
    used = skipped + text.size();
    return HTTP_Parse_Result::complete;
} catch (const std::exception& error) {
    return refuse(reason, error.what());
}
