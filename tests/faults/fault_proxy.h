#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <random>
#include <span>

/// What a Fault_Proxy does to a connection.
enum class Proxy_Fault_Kind : unsigned
{
    none,
    refuse,     ///< reset before a byte was forwarded; the server is not asked
    cut,        ///< closed on both sides
    reset,      ///< the same without the farewells, so that what was on its way may be lost
    half_close, ///< the receiver of a direction is told that nothing more comes; the other goes on
    stall,      ///< nothing more is forwarded in a direction, until the client or the test ends it
    /// The client is reset. The server gets what came from it later, when another connection has
    /// been answered, as if that part had still been on its way. To the server only.
    late,
    drip,   ///< everything is forwarded in pieces of a few bytes
    repeat, ///< what came together and reaches the place (such as a short answer) is sent twice
};
constexpr std::size_t proxy_fault_kinds = 9;
const char* name_of(Proxy_Fault_Kind kind);

enum class Proxy_Direction
{
    to_server,
    to_client,
};

/// A fault of one connection. It happens when the direction has forwarded so many bytes, however
/// they were cut into pieces on their way; one that the connection never reaches does not happen.
struct Proxy_Fault
{
    Proxy_Fault_Kind kind = Proxy_Fault_Kind::none;
    Proxy_Direction direction = Proxy_Direction::to_server;
    std::uint64_t after = 0;                 ///< bytes; of a drip the size of its pieces
    std::function<void()> when_it_happens{}; ///< called on the proxy's thread
};
std::ostream& operator<<(std::ostream& out, const Proxy_Fault& fault);

/// A fault of one of these kinds, with its place in the first @p span bytes; places where heads of
/// messages are come up as often as all others together. Repetitions hit answers only.
Proxy_Fault random_proxy_fault(std::mt19937_64& random, std::span<const Proxy_Fault_Kind> kinds,
                               std::uint64_t span);

/// Asked for the fault of each connection, which are counted from 0.
using Proxy_Plan = std::function<Proxy_Fault(std::uint64_t connection)>;

/// A TCP proxy on a loopback port that lets connections go wrong as planned: faults stand at counts
/// of bytes, not at times, so that a plan does the same every time. A connection whose server is
/// not there is reset.
class Fault_Proxy
{
public:
    /// What happened, not what was planned.
    struct Counts
    {
        std::uint64_t connections = 0;
        std::uint64_t bytes_to_server = 0;
        std::uint64_t bytes_to_client = 0;
        std::array<std::uint64_t, proxy_fault_kinds> faults{};

        std::uint64_t of(Proxy_Fault_Kind kind) const
        {
            return faults.at(static_cast<std::size_t>(kind));
        }
        Counts& operator+=(const Counts& other);
    };

    /// @param server  port of 127.0.0.1 to which connections are forwarded
    /// @param plan    empty: nothing goes wrong
    explicit Fault_Proxy(unsigned short server, Proxy_Plan plan = {});
    /// Cuts the connections that are left.
    ~Fault_Proxy();
    Fault_Proxy(const Fault_Proxy&) = delete;
    Fault_Proxy& operator=(const Fault_Proxy&) = delete;

    unsigned short port() const;

    /// The following connections go there, under this plan; their count begins at 0 again.
    void set_plan(Proxy_Plan plan);
    void set_server(unsigned short port);
    /// Whether somebody listens on the port; while nobody does, the system refuses connections.
    void set_listening(bool listening);
    /// Lets stalled connections go on, those to come too.
    void release();
    Counts counts() const;
    /// How many connections to the server are open.
    std::size_t open_connections() const;

private:
    struct State;

    std::unique_ptr<State> state_;
};
