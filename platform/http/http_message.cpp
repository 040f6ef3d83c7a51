#include "platform/http/http_request.h"
#include "platform/http/http_response.h"

#include <algorithm>
#include <array>

const char* HTTP_Request::method_name(Method method)
{
    switch (method) {
    case COPY:
        return "COPY";
    case DELETE_:
        return "DELETE";
    case GET:
        return "GET";
    case HEAD:
        return "HEAD";
    case MKCOL:
        return "MKCOL";
    case MOVE:
        return "MOVE";
    case POST:
        return "POST";
    case PUT:
        return "PUT";
    }
    return "";
}

bool CGI_Response::retriable(unsigned status)
{
    constexpr std::array<unsigned, 7> statuses = {408, 425, 429, 500, 502, 503, 504};
    return std::find(statuses.begin(), statuses.end(), status) != statuses.end();
}
