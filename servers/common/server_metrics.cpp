#include "servers/common/server_metrics.h"

#include <algorithm>
#include <array>

namespace
{

constexpr std::array<std::string_view, 8> methods = {"GET",    "HEAD",  "PUT",  "POST",
                                                     "DELETE", "MKCOL", "COPY", "MOVE"};

} // namespace

void Server_Metrics::count_request(std::string_view method, unsigned status,
                                   std::chrono::nanoseconds duration)
{
    // What peers make up must not become ever more names.
    const bool known = std::find(methods.begin(), methods.end(), method) != methods.end();
    const std::lock_guard lock(mutex_);
    ++requests_[{std::string(known ? method : "other"), status}];
    nanoseconds_ += static_cast<std::uint64_t>(duration.count());
}

std::string Server_Metrics::text() const
{
    std::string text =
        metric("connections", "gauge", "Connections that are open.", connections_open) +
        metric("connections_total", "counter", "Connections that were accepted.",
               connections_accepted) +
        metric("connections_refused_total", "counter", "Connections over a limit.",
               connections_refused) +
        metric("timeouts_total", "counter", "Connections whose peer was too slow.", timeouts) +
        metric("authentications_failed_total", "counter", "Requests with wrong credentials.",
               authentications_failed) +
        metric("received_bytes_total", "counter", "Bytes of requests' bodies.", bytes_received) +
        metric("sent_bytes_total", "counter", "Bytes of answers' bodies.", bytes_sent);
    text += "# HELP cio_requests_total Requests by method and status.\n"
            "# TYPE cio_requests_total counter\n";
    const std::lock_guard lock(mutex_);
    std::uint64_t count = 0;
    for (const auto& [key, number] : requests_) {
        text += "cio_requests_total{method=\"" + key.first + "\",status=\"" +
                std::to_string(key.second) + "\"} " + std::to_string(number) + '\n';
        count += number;
    }
    text += "# HELP cio_request_seconds Time that requests took.\n"
            "# TYPE cio_request_seconds summary\n"
            "cio_request_seconds_sum " +
            std::to_string(static_cast<double>(nanoseconds_) / 1e9) +
            "\ncio_request_seconds_count " + std::to_string(count) + '\n';
    return text;
}

std::string Server_Metrics::metric(const std::string& name, const std::string& type,
                                   const std::string& help, std::uint64_t value)
{
    return "# HELP cio_" + name + ' ' + help + "\n# TYPE cio_" + name + ' ' + type + "\ncio_" +
           name + ' ' + std::to_string(value) + '\n';
}
