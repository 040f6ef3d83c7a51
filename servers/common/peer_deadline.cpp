#include "servers/common/peer_deadline.h"

#include <algorithm>

void Peer_Deadline::set(Time now, std::chrono::seconds time)
{
    kind_ = Kind::step;
    end_ = now + time;
}

void Peer_Deadline::set_rate(Time now, std::chrono::seconds time, std::uint64_t bytes_per_second)
{
    kind_ = Kind::flow;
    stretch_ = time;
    end_ = now + time;
    // Without a rate one byte shows that the peer is there.
    needed_ =
        std::max<std::uint64_t>(bytes_per_second * static_cast<std::uint64_t>(time.count()), 1);
    moved_ = 0;
}

bool Peer_Deadline::passed(Time now)
{
    if (kind_ == Kind::none || now < end_)
        return false;
    if (kind_ == Kind::step || moved_ < needed_)
        return true;
    moved_ = 0;
    end_ = now + stretch_;
    return false;
}
