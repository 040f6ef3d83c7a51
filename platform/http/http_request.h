#pragma once

#include "platform/http/http_headers.h"

#include <string>
#include <utility>

/// What is asked of a server.
class HTTP_Request
{
public:
    enum Method : unsigned
    {
        COPY = 1,
        DELETE_ = 2, ///< DELETE is a macro of Windows
        GET = 3,
        HEAD = 4,
        MKCOL = 5,
        MOVE = 6,
        POST = 8,
        PUT = 9,
    };

    explicit HTTP_Request(Method method = GET, std::string uri = {})
        : method_(method), uri_(std::move(uri))
    {}

    Method method() const { return method_; }
    void method(Method value) { method_ = value; }
    /// As it is sent.
    static const char* method_name(Method method);

    /// The path on the server, percent-encoded.
    const std::string& uri() const { return uri_; }
    void uri(std::string value) { uri_ = std::move(value); }

    HTTP_Headers& headers() { return headers_; }
    const HTTP_Headers& headers() const { return headers_; }

private:
    Method method_;
    std::string uri_;
    HTTP_Headers headers_;
};
