#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

/// What one peer may cost the server. Counts of 0 mean no limit.
struct Server_Limits
{
    std::size_t head_bytes = 65536;
    std::size_t head_fields = 256;
    std::size_t connections = 10000;
    std::size_t connections_per_address = 0;
    /// From the connection (or a request's first byte) to the end of the request's head.
    std::chrono::seconds head_time{20};
    /// How long a body, or an answer, may fall short of the least rate.
    std::chrono::seconds body_time{30};
    std::uint64_t least_rate = 1024; ///< bytes per second
    /// How long a connection is kept between two requests.
    std::chrono::seconds idle_time{75};
    /// How long what is under way may go on once the server is asked to stop.
    std::chrono::seconds stop_time{30};
};
