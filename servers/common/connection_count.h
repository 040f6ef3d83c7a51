#pragma once

#include "servers/common/server_limits.h"

#include <cstddef>
#include <map>
#include <mutex>
#include <string>

/// Counts open connections, in all and by address. One object serves any number of threads.
class Connection_Count
{
public:
    explicit Connection_Count(const Server_Limits& limits) : limits_(limits) {}

    enum class Verdict
    {
        welcome,
        refused, ///< over a limit, to be told so
        ignored, ///< so far over it that telling would cost too much; not counted
    };
    [[nodiscard]] Verdict enter(const std::string& address);
    void leave(const std::string& address);
    bool is_empty();

private:
    const Server_Limits& limits_;
    std::mutex mutex_;
    std::size_t all_ = 0;
    std::map<std::string, std::size_t> by_address_;
};
