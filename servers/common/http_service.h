#pragma once

#include "servers/common/http_exchange.h"

#include <boost/asio/awaitable.hpp>
#include <string>

/// What a server serves.
class HTTP_Service
{
public:
    virtual ~HTTP_Service() = default;
    /// Answers a request; runs on the connection's thread, so what blocks has to go elsewhere.
    virtual boost::asio::awaitable<void> serve(HTTP_Exchange& exchange) = 0;
    /// Its own part of the metrics, in the text format of Prometheus.
    virtual std::string metrics() const = 0;
};
