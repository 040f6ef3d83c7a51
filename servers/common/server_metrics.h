#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

/// Counts what the server does. One object serves any number of threads.
class Server_Metrics
{
public:
    std::atomic<std::uint64_t> connections_open{0};
    std::atomic<std::uint64_t> connections_accepted{0};
    std::atomic<std::uint64_t> connections_refused{0}; ///< over a limit
    std::atomic<std::uint64_t> timeouts{0};
    std::atomic<std::uint64_t> authentications_failed{0};
    std::atomic<std::uint64_t> bytes_received{0}; ///< of bodies
    std::atomic<std::uint64_t> bytes_sent{0};     ///< of bodies

    /// @param method  one of those that the server knows, or any other
    void count_request(std::string_view method, unsigned status, std::chrono::nanoseconds duration);

    /// The text format of Prometheus.
    std::string text() const;
    /// One value in that format. @param type  gauge or counter
    static std::string metric(const std::string& name, const std::string& type,
                              const std::string& help, std::uint64_t value);

private:
    mutable std::mutex mutex_;
    std::map<std::pair<std::string, unsigned>, std::uint64_t> requests_; ///< by method and status
    std::uint64_t nanoseconds_ = 0;                                      ///< that all requests took
};
