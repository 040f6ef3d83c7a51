#pragma once

#include "platform/http/http_head.h"

#include <cstdint>
#include <optional>
#include <string>

/// What both directions of an exchange have: header fields.
class CGI_Base
{
public:
    HTTP_Headers& headers() { return headers_; }
    const HTTP_Headers& headers() const { return headers_; }

private:
    HTTP_Headers headers_;
};

/// The status and header fields of an answer.
class CGI_Response : public CGI_Base
{
public:
    unsigned status() const { return status_; }
    void status(unsigned value) { status_ = value; }

    /// Whether a request that was answered so may succeed when it is repeated: 408 (timeout), 425
    /// (too early), 429 (too many requests), 500, 502, 503 and 504 (the server or a server behind
    /// it is in trouble).
    static bool retriable(unsigned status);

private:
    unsigned status_ = 0;
};

/// A message with the fields of HTTP by their meaning.
template <class Message>
class HTTP_Base : public Message
{
public:
    /// The bytes of the body, or those that the answer to a HEAD announces; nothing when the
    /// message does not tell.
    std::optional<std::uint64_t> content_length() const { return content_length_; }
    void content_length(std::uint64_t value) { content_length_ = value; }
    std::string content_type() const { return text(HTTP_Headers::content_type); }
    std::string entity_tag() const { return text(HTTP_Headers::entity_tag); }
    std::string last_modified() const { return text(HTTP_Headers::last_modified); }
    std::string content_range() const { return text(HTTP_Headers::content_range); }

    /// Says whether the connection shall serve another exchange.
    void keep_alive(bool value)
    {
        this->headers().put(HTTP_Headers::connection, value ? "Keep-Alive" : "close");
    }

private:
    std::string text(HTTP_Headers::Id id) const
    {
        const std::string* value = this->headers().get(id);
        return value != nullptr ? *value : std::string();
    }

    std::optional<std::uint64_t> content_length_;
};

using HTTP_Response = HTTP_Base<CGI_Response>;
