#include "servers/common/connection_count.h"

#include <algorithm>

namespace
{

/// So many connections beyond a limit are told why they are closed.
constexpr std::size_t most_refusals = 64;

/// How many more than @p limit @p count is.
std::size_t beyond(std::size_t count, std::size_t limit)
{
    return limit == 0 || count <= limit ? 0 : count - limit;
}

} // namespace

Connection_Count::Verdict Connection_Count::enter(const std::string& address)
{
    const std::lock_guard lock(mutex_);
    std::size_t& here = by_address_[address];
    const std::size_t excess = std::max(beyond(all_ + 1, limits_.connections),
                                        beyond(here + 1, limits_.connections_per_address));
    if (excess > most_refusals)
        return Verdict::ignored;
    ++all_;
    ++here;
    return excess == 0 ? Verdict::welcome : Verdict::refused;
}

void Connection_Count::leave(const std::string& address)
{
    const std::lock_guard lock(mutex_);
    --all_;
    const auto found = by_address_.find(address);
    if (--found->second == 0)
        by_address_.erase(found);
}

bool Connection_Count::is_empty()
{
    const std::lock_guard lock(mutex_);
    return all_ == 0;
}
