#pragma once

#include "platform/http/http_headers.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// How the end of a message's body is told (RFC 9112, 6.3).
enum class Body_Framing
{
    none,        ///< there is no body
    length,      ///< by Content-Length
    chunked,     ///< by the last chunk
    until_close, ///< by the end of the connection; answers only
};

struct HTTP_Response_Head
{
    unsigned status = 0;
    HTTP_Headers headers;
    Body_Framing framing = Body_Framing::none;
    std::uint64_t content_length = 0; ///< of framing length, and what an answer to HEAD announces
    bool keep_alive = false;          ///< whether the connection serves another request after it
};

struct HTTP_Request_Head
{
    std::string method;
    std::string target; ///< as it was sent
    HTTP_Headers headers;
    Body_Framing framing = Body_Framing::none;
    std::uint64_t content_length = 0; ///< of framing length
    bool keep_alive = false;
    bool expects_continue = false; ///< whether the peer waits for "100 Continue" with its body
};

/// The most that the head of a message may have.
struct HTTP_Head_Limits
{
    std::size_t bytes = 65536;
    std::size_t fields = 256;
};

enum class HTTP_Parse_Result
{
    incomplete, ///< more bytes are needed
    complete,
    bad,       ///< not HTTP/1.x, or what two readers could take for different messages
    too_large, ///< beyond the limits
};

/// Reads the head of an answer from the start of @p bytes.
///
/// Refused, beside what the grammar of RFC 9112 does not allow: folded lines, a bare CR or LF as
/// the end of a line, blanks before a colon, a Content-Length that stands twice, beside a
/// Transfer-Encoding or is no number below 2^63, and transfer codings other than chunked.
/// @param to_head  whether it answers a HEAD, and so has no body
/// @param used     on success the bytes that the head takes up, its empty line included
/// @param reason   why a head is refused; words for a message
[[nodiscard]] HTTP_Parse_Result parse_response_head(std::string_view bytes, bool to_head,
                                                    const HTTP_Head_Limits& limits,
                                                    HTTP_Response_Head& head, std::size_t& used,
                                                    std::string& reason);

/// Reads the head of a request; the same is refused, and an HTTP/1.1 request without exactly one
/// Host.
[[nodiscard]] HTTP_Parse_Result parse_request_head(std::string_view bytes,
                                                   const HTTP_Head_Limits& limits,
                                                   HTTP_Request_Head& head, std::size_t& used,
                                                   std::string& reason);
