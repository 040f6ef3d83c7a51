#pragma once

#include "servers/common/server_limits.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

class HTTP_Service;

/// Serves HTTP/1.1 on one address.
///
/// Each of its threads has a loop of its own, to which connections are handed in turn; a few more
/// threads do what blocks.
///
/// `/.cio/health` answers without authentication, `/.cio/metrics` with; the service never sees the
/// name `.cio` at the root.
class HTTP_Server
{
public:
    struct Options
    {
        std::string address = "127.0.0.1"; ///< IPv4 or IPv6, as numbers
        std::uint16_t port = 8080;         ///< 0 = any that is free
        std::string certificate_file;      ///< "" = without TLS
        std::string key_file;
        std::string users_file;       ///< "" = everybody may do everything
        bool allow_anonymous = false; ///< also from other machines
        std::string access_log;       ///< "" = none
        unsigned threads = 0;         ///< 0 = one for each processor
        Server_Limits limits;
    };

    /// @param warn  takes what the operator should know, a line each; called on the thread of run()
    HTTP_Server(Options options, HTTP_Service& service,
                std::function<void(const std::string&)> warn);
    ~HTTP_Server();
    HTTP_Server(const HTTP_Server&) = delete;
    HTTP_Server& operator=(const HTTP_Server&) = delete;

    /// Reads the files that the options name, and listens.
    /// @return false when that fails, or the options would let in everybody (@p error)
    [[nodiscard]] bool start(std::string& error);
    /// Where it listens, such as "http://127.0.0.1:8080".
    std::string url() const;
    /// Serves until SIGTERM or SIGINT; then what is under way has its time to end, and none after a
    /// second signal. SIGHUP opens the log and reads users and certificate anew.
    void run();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};
