#include "tests/faults/fault_proxy.h"

#include <algorithm>
#include <boost/asio.hpp>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

constexpr auto awaited = asio::as_tuple(asio::use_awaitable);

constexpr std::array<const char*, proxy_fault_kinds> kind_names = {
    "none", "refuse", "cut", "reset", "half-close", "stall", "late", "drip", "repeat"};

tcp::endpoint loopback(unsigned short port)
{
    return {asio::ip::address_v4::loopback(), port};
}

void close(tcp::socket& socket, bool reset)
{
    error_code ignored;
    if (reset)
        socket.set_option(asio::socket_base::linger(true, 0), ignored);
    socket.close(ignored);
}

void say_end(tcp::socket& socket)
{
    error_code ignored;
    socket.shutdown(tcp::socket::shutdown_send, ignored);
}

} // namespace

/// Used on the proxy's thread alone.
struct Fault_Proxy::State
{
    class Connection;

    explicit State(unsigned short server_port) : server(server_port) {}

    void accept_next();
    template <class Function>
    auto on_thread(Function function)
    {
        return asio::dispatch(context, asio::use_future(std::move(function))).get();
    }

    asio::io_context context;
    asio::executor_work_guard<asio::io_context::executor_type> busy = make_work_guard(context);
    tcp::acceptor acceptor{context, loopback(0)};
    const unsigned short port = acceptor.local_endpoint().port();
    unsigned short server;
    Proxy_Plan plan;
    std::uint64_t next_connection = 0; ///< of the present plan
    Counts counts;
    bool released = false;
    std::set<std::shared_ptr<Connection>> connections;
    std::thread thread;
};

/// A client, a server, and what goes between them.
class Fault_Proxy::State::Connection : public std::enable_shared_from_this<Connection>
{
public:
    Connection(State& proxy, tcp::socket client, Proxy_Fault fault)
        : proxy_(proxy), client_(std::move(client)), fault_(std::move(fault))
    {}

    void start()
    {
        if (fault_.kind == Proxy_Fault_Kind::refuse) {
            happens();
            end(true);
            return;
        }
        server_.async_connect(
            loopback(proxy_.server), [this, self = shared_from_this()](const error_code& e) {
                if (e) {
                    end(true);
                    return;
                }
                error_code ignored;
                client_.set_option(tcp::no_delay(true), ignored);
                server_.set_option(tcp::no_delay(true), ignored);
                const auto until_its_end = [self](const std::exception_ptr&) {};
                asio::co_spawn(proxy_.context, to_server_.forward(), until_its_end);
                asio::co_spawn(proxy_.context, to_client_.forward(), until_its_end);
            });
    }

    void release()
    {
        to_server_.release();
        to_client_.release();
    }

    /// To be called when another connection has been answered.
    void deliver_late() { late_.cancel(); }

    void end(bool reset)
    {
        close(client_, reset);
        close(server_, reset);
        late_.cancel();
        proxy_.connections.erase(shared_from_this());
    }

private:
    /// One direction. It receives even what it does not forward, to see when the sender ends.
    struct Relay
    {
        asio::awaitable<void> forward()
        {
            std::array<char, 16384> block;
            std::string data; // received and not forwarded yet
            for (;;) {
                if (is_at_fault(!data.empty())) {
                    co_await strike();
                    if (!from.is_open() && !to.is_open())
                        co_return;
                }
                if (discarding)
                    data.clear();
                if (!data.empty() && !holding) {
                    const std::string piece = take_piece(data);
                    const auto [e, size] =
                        co_await asio::async_write(to, asio::buffer(piece), awaited);
                    bytes += size;
                    if (e && !discarding) {
                        connection.end(true);
                        co_return;
                    }
                    if (direction == Proxy_Direction::to_client)
                        connection.answered();
                    continue;
                }
                const auto [e, size] = co_await from.async_read_some(asio::buffer(block), awaited);
                data.append(block.data(), size);
                if (e == asio::error::operation_aborted && from.is_open())
                    continue; // by release()
                if (e) {
                    // One that was reset for being late has ended in order for the receiver.
                    sender_ended(e == asio::error::eof || !from.is_open());
                    co_return;
                }
            }
        }

        void release()
        {
            if (!std::exchange(holding, false))
                return;
            error_code ignored;
            from.cancel(ignored);
        }

        /// Whether the place of a fault is here that stands at a count of bytes.
        bool is_at_fault(bool more_came) const
        {
            const Proxy_Fault& fault = connection.fault_;
            return !connection.happened_ && fault.direction == direction &&
                   fault.kind >= Proxy_Fault_Kind::cut && fault.kind <= Proxy_Fault_Kind::late &&
                   forwarded == fault.after && (more_came || fault.kind != Proxy_Fault_Kind::late);
        }

        asio::awaitable<void> strike()
        {
            connection.happens();
            switch (connection.fault_.kind) {
            case Proxy_Fault_Kind::cut:
            case Proxy_Fault_Kind::reset:
                connection.end(connection.fault_.kind == Proxy_Fault_Kind::reset);
                break;
            case Proxy_Fault_Kind::half_close:
                say_end(to);
                discarding = true;
                break;
            case Proxy_Fault_Kind::stall:
                holding = !connection.proxy_.released;
                break;
            case Proxy_Fault_Kind::late:
                connection.to_client_.discarding = true;
                close(from, true);
                connection.late_.expires_at(asio::steady_timer::time_point::max());
                co_await connection.late_.async_wait(awaited);
                break;
            default:
                break;
            }
        }

        /// What is forwarded next, taken from the front of @p data.
        std::string take_piece(std::string& data)
        {
            const Proxy_Fault& fault = connection.fault_;
            const bool faulty = fault.direction == direction;
            std::size_t size = data.size();
            if (faulty && fault.kind == Proxy_Fault_Kind::drip) {
                size = std::clamp<std::size_t>(fault.after, 1, size);
                if (!connection.happened_)
                    connection.happens();
            } else if (faulty && fault.kind != Proxy_Fault_Kind::repeat && forwarded < fault.after)
            {
                size = std::min<std::size_t>(size, fault.after - forwarded);
            }
            std::string piece = data.substr(0, size);
            data.erase(0, size);
            forwarded += size;
            if (faulty && fault.kind == Proxy_Fault_Kind::repeat && !connection.happened_ &&
                forwarded >= fault.after)
            {
                connection.happens();
                piece += piece;
            }
            return piece;
        }

        void sender_ended(bool orderly)
        {
            ended = true;
            if (!orderly || holding || connection.other(*this).ended)
                connection.end(!orderly);
            else
                say_end(to);
        }

        Connection& connection;
        const Proxy_Direction direction;
        tcp::socket& from;
        tcp::socket& to;
        std::uint64_t& bytes;        ///< of all connections
        std::uint64_t forwarded = 0; ///< without repetitions
        bool holding = false;
        bool discarding = false;
        bool ended = false;
    };

    Relay& other(const Relay& relay) { return &relay == &to_server_ ? to_client_ : to_server_; }

    void happens()
    {
        happened_ = true;
        ++proxy_.counts.faults.at(static_cast<std::size_t>(fault_.kind));
        if (fault_.when_it_happens)
            fault_.when_it_happens();
    }

    void answered()
    {
        if (std::exchange(answered_, true))
            return;
        for (const auto& connection : proxy_.connections)
            if (connection.get() != this)
                connection->deliver_late();
    }

    State& proxy_;
    tcp::socket client_;
    tcp::socket server_{proxy_.context};
    asio::steady_timer late_{proxy_.context};
    const Proxy_Fault fault_;
    bool happened_ = false;
    bool answered_ = false;
    Relay to_server_{*this, Proxy_Direction::to_server, client_, server_,
                     proxy_.counts.bytes_to_server};
    Relay to_client_{*this, Proxy_Direction::to_client, server_, client_,
                     proxy_.counts.bytes_to_client};
};

void Fault_Proxy::State::accept_next()
{
    acceptor.async_accept([this](const error_code& e, tcp::socket client) {
        if (e)
            return;
        ++counts.connections;
        const auto connection = std::make_shared<Connection>(
            *this, std::move(client), plan ? plan(next_connection) : Proxy_Fault());
        ++next_connection;
        connections.insert(connection);
        connection->start();
        accept_next();
    });
}

const char* name_of(Proxy_Fault_Kind kind)
{
    return kind_names.at(static_cast<std::size_t>(kind));
}

std::ostream& operator<<(std::ostream& out, const Proxy_Fault& fault)
{
    return out << name_of(fault.kind)
               << (fault.direction == Proxy_Direction::to_server ? " to server" : " to client")
               << " at " << fault.after;
}

Proxy_Fault random_proxy_fault(std::mt19937_64& random, std::span<const Proxy_Fault_Kind> kinds,
                               std::uint64_t span)
{
    constexpr std::uint64_t shortest_head = 100;
    constexpr std::uint64_t longest_head = 500;
    Proxy_Fault fault;
    fault.kind = kinds[random() % kinds.size()];
    // Small places are where heads are.
    fault.after = random() % ((random() % 2 == 0 ? std::min(span, longest_head) : span) + 1);
    if (fault.kind == Proxy_Fault_Kind::drip)
        fault.after = 1 + random() % 50 + span / 2000;
    if (fault.kind == Proxy_Fault_Kind::repeat)
        fault.after = random() % shortest_head;
    const bool one_way =
        fault.kind == Proxy_Fault_Kind::late || fault.kind == Proxy_Fault_Kind::repeat;
    if (fault.kind == Proxy_Fault_Kind::repeat || (!one_way && random() % 2 == 0))
        fault.direction = Proxy_Direction::to_client;
    return fault;
}

Fault_Proxy::Counts& Fault_Proxy::Counts::operator+=(const Counts& other)
{
    connections += other.connections;
    bytes_to_server += other.bytes_to_server;
    bytes_to_client += other.bytes_to_client;
    for (std::size_t kind = 0; kind < faults.size(); ++kind)
        faults.at(kind) += other.faults.at(kind);
    return *this;
}

Fault_Proxy::Fault_Proxy(unsigned short server, Proxy_Plan plan)
    : state_(std::make_unique<State>(server))
{
    state_->plan = std::move(plan);
    state_->accept_next();
    state_->thread = std::thread([this] { state_->context.run(); });
}

Fault_Proxy::~Fault_Proxy()
{
    state_->on_thread([this] {
        state_->acceptor.close();
        for (const auto& connection : std::set(state_->connections))
            connection->end(false);
    });
    state_->busy.reset();
    state_->thread.join();
}

unsigned short Fault_Proxy::port() const
{
    return state_->port;
}

void Fault_Proxy::set_plan(Proxy_Plan plan)
{
    state_->on_thread([this, &plan] {
        state_->plan = std::move(plan);
        state_->next_connection = 0;
    });
}

void Fault_Proxy::set_server(unsigned short port)
{
    state_->on_thread([this, port] { state_->server = port; });
}

void Fault_Proxy::set_listening(bool listening)
{
    tcp::acceptor& acceptor = state_->acceptor;
    if (listening) {
        state_->on_thread([this, &acceptor] {
            acceptor.listen();
            state_->accept_next();
        });
        return;
    }
    // The port stays ours: a socket that is bound and does not listen refuses. Windows lets go of
    // the port when the accept that is under way has been told of its end, on the proxy's thread.
    state_->on_thread([&acceptor] {
        acceptor.close();
        acceptor.open(tcp::v4());
        acceptor.set_option(asio::socket_base::reuse_address(true));
    });
    const auto bind = [this, &acceptor] {
        error_code error;
        acceptor.bind(loopback(state_->port), error);
        return error == asio::error::access_denied;
    };
    while (state_->on_thread(bind))
        std::this_thread::yield();
}

void Fault_Proxy::release()
{
    state_->on_thread([this] {
        state_->released = true;
        for (const auto& connection : state_->connections)
            connection->release();
    });
}

Fault_Proxy::Counts Fault_Proxy::counts() const
{
    return state_->on_thread([this] { return state_->counts; });
}

std::size_t Fault_Proxy::open_connections() const
{
    return state_->on_thread([this] { return state_->connections.size(); });
}
