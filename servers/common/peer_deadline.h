#pragma once

#include <chrono>
#include <cstdint>

/// Tells when a peer has taken too long: for a step that has to end in time, or for a flow of bytes
/// that has to keep a least rate.
class Peer_Deadline
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// Nothing is expected of the peer.
    void clear() { kind_ = Kind::none; }
    /// The step has to end within @p time.
    void set(Time now, std::chrono::seconds time);
    /// From now on in every stretch of @p time so many bytes per second have to pass on average.
    void set_rate(Time now, std::chrono::seconds time, std::uint64_t bytes_per_second);
    /// Bytes that have passed.
    void moved(std::uint64_t bytes) { moved_ += bytes; }

    /// Asked from time to time: whether it is too late.
    [[nodiscard]] bool passed(Time now);

private:
    enum class Kind
    {
        none,
        step,
        flow,
    };

    Kind kind_ = Kind::none;
    Time end_;
    std::chrono::seconds stretch_{};
    std::uint64_t needed_ = 0; ///< bytes in a stretch
    std::uint64_t moved_ = 0;  ///< bytes in the present stretch
};
