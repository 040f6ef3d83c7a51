#pragma once

#include "platform/http/http_session.h"
#include "platform/json/json_value.h"

#include <cstdint>
#include <functional>

/// Answers that are JSON texts (RFC 8259), read as they arrive: of a long array only the element
/// that is due is in memory.
///
/// One object serves one thread.
class JSON_HTTP_Session
{
public:
    /// @param max_depth      how deep the text may nest
    /// @param max_mebibytes  how long it may be
    JSON_HTTP_Session(HTTP_Session& session, unsigned max_depth, unsigned max_mebibytes)
        : session_(session), max_depth_(max_depth),
          max_bytes_(std::uint64_t{max_mebibytes} * 1048576)
    {}

    /// What the answer turned out to be.
    enum class Kind
    {
        array,
        other, ///< a JSON text of another kind, or bytes of which the server knows no kind
    };

    /// Sends a GET and reads the answer.
    /// @param take_element  called with each element of an array, which it may take apart
    /// @param response      the answer's head, as soon as it was read
    /// @return false when there was no answer, its status is not 200 or its body is no such text
    bool get(const HTTP_Request& request,
             const std::function<void(json_spirit::Value& element)>& take_element, Kind& kind,
             HTTP_Response& response);

    /// Whether the failure was one of the connection, so that another try may help.
    bool connection_failed() const { return connection_failed_; }

private:
    HTTP_Session& session_;
    unsigned max_depth_;
    std::uint64_t max_bytes_;
    bool connection_failed_ = false;
};
