#include "tests/support/scripted_server.h"

#include "tests/support/test_certificate.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <boost/asio.hpp>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <thread>
#include <utility>

namespace
{

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::chrono::seconds patience{30};
constexpr std::string_view line_end = "\r\n";

/// Thrown through a script to end it.
struct Script_Ended
{};

template <auto release>
struct Release
{
    template <class T>
    void operator()(T* object) const
    {
        release(object);
    }
};
using Tls_Context = std::unique_ptr<SSL_CTX, Release<SSL_CTX_free>>;
using Tls_Session = std::unique_ptr<SSL, Release<SSL_free>>;

Tls_Context tls_context(const Test_Certificate& certificate)
{
    using Memory = std::unique_ptr<BIO, Release<BIO_free_all>>;
    const Memory pem(BIO_new_mem_buf(certificate.pem().data(), -1));
    const Memory key_pem(BIO_new_mem_buf(certificate.key_pem().data(), -1));
    const std::unique_ptr<X509, Release<X509_free>> x509(
        PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
    const std::unique_ptr<EVP_PKEY, Release<EVP_PKEY_free>> key(
        PEM_read_bio_PrivateKey(key_pem.get(), nullptr, nullptr, nullptr));
    Tls_Context context(SSL_CTX_new(TLS_server_method()));
    if (SSL_CTX_use_certificate(context.get(), x509.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), key.get()) != 1)
        std::abort();
    // Tickets that a client did not read before it closes would reset the connection, and with it
    // what it sent last.
    SSL_CTX_set_num_tickets(context.get(), 0);
    return context;
}

/// A connection's bytes, with or without TLS. One thread blocks on it; others may end it.
///
/// Every wait runs the connection's own io_context, because there is no other way to end a blocking
/// receive that works on all systems.
class Channel
{
public:
    explicit Channel(SSL_CTX* tls)
    {
        if (tls == nullptr)
            return;
        session_.reset(SSL_new(tls));
        SSL_set_bio(session_.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        SSL_set_accept_state(session_.get());
    }

    tcp::socket& socket() { return socket_; }
    bool is_open() const { return socket_.is_open(); }
    /// Whether a wait was given up.
    bool out_of_patience() const { return out_of_patience_; }
    void wait_for_ever() { patient_ = false; }

    bool handshake()
    {
        return session_ == nullptr ||
               tls([this] { return SSL_do_handshake(session_.get()); }).value_or(0) == 1;
    }

    /// Appends what comes next. @return false when nothing will
    bool receive(std::string& data)
    {
        std::array<char, 65536> block;
        std::size_t size = 0;
        if (session_ == nullptr) {
            size = receive_raw(block.data(), block.size());
        } else {
            const auto read = [&] {
                return SSL_read(session_.get(), block.data(), static_cast<int>(block.size()));
            };
            size = static_cast<std::size_t>(std::max(tls(read).value_or(0), 0));
        }
        data.append(block.data(), size);
        return size > 0;
    }

    void send(std::string_view data)
    {
        if (session_ == nullptr) {
            send_raw(data.data(), data.size());
            return;
        }
        while (!data.empty() && is_open()) {
            const int block = static_cast<int>(std::min<std::size_t>(data.size(), 65536));
            const auto write = [&] { return SSL_write(session_.get(), data.data(), block); };
            if (tls(write).value_or(0) != block)
                return;
            data.remove_prefix(static_cast<std::size_t>(block));
        }
    }

    void stall(const std::atomic<bool>& released)
    {
        complete([&](auto done) {
            timer_.expires_at(asio::steady_timer::time_point::max());
            timer_.async_wait(done);
            if (released)
                timer_.cancel();
        });
    }

    void say_farewell()
    {
        if (session_ == nullptr || !is_open())
            return;
        SSL_shutdown(session_.get());
        flush();
    }
    void shut_down()
    {
        error_code ignored;
        socket_.shutdown(tcp::socket::shutdown_send, ignored);
    }
    void close()
    {
        error_code ignored;
        socket_.close(ignored);
    }
    void reset()
    {
        error_code ignored;
        socket_.set_option(asio::socket_base::linger(true, 0), ignored);
        close();
    }

    /// To be called by other threads: what the connection waits for is over.
    void end_stall()
    {
        asio::post(context_, [this] { timer_.cancel(); });
    }
    void end()
    {
        asio::post(context_, [this] {
            timer_.cancel();
            close();
        });
    }

private:
    /// Starts an operation and waits for it. @return bytes transferred
    template <class Start>
    std::size_t complete(Start start)
    {
        bool done = false;
        std::size_t transferred = 0;
        context_.restart();
        start([&](const error_code&, std::size_t size = 0) {
            done = true;
            transferred = size;
        });
        if (patient_)
            context_.run_for(patience);
        else
            context_.run();
        if (!done) {
            out_of_patience_ = true;
            timer_.cancel();
            close();
            context_.restart();
            context_.run();
        }
        return transferred;
    }

    std::size_t receive_raw(char* data, std::size_t size)
    {
        return complete(
            [&](auto done) { socket_.async_read_some(asio::buffer(data, size), done); });
    }

    bool send_raw(const char* data, std::size_t size)
    {
        return complete([&](auto done) {
                   asio::async_write(socket_, asio::buffer(data, size), done);
               }) == size;
    }

    bool flush()
    {
        char* data = nullptr;
        BIO* const out = SSL_get_wbio(session_.get());
        const auto size = static_cast<std::size_t>(BIO_get_mem_data(out, &data));
        const bool sent = size == 0 || send_raw(data, size);
        static_cast<void>(BIO_reset(out));
        return sent;
    }

    /// Carries out an operation of the TLS session; nothing when it fails or the client is gone.
    template <class Operation>
    std::optional<int> tls(Operation operation)
    {
        for (;;) {
            ERR_clear_error();
            const int result = operation();
            const int error = SSL_get_error(session_.get(), result);
            // What a refusal has to tell the client as well.
            if (!flush())
                return std::nullopt;
            if (error == SSL_ERROR_NONE)
                return result;
            std::array<char, 16384> block;
            const std::size_t size =
                error == SSL_ERROR_WANT_READ ? receive_raw(block.data(), block.size()) : 0;
            if (size == 0)
                return std::nullopt;
            BIO_write(SSL_get_rbio(session_.get()), block.data(), static_cast<int>(size));
        }
    }

    asio::io_context context_;
    tcp::socket socket_{context_};
    asio::steady_timer timer_{context_};
    Tls_Session session_;
    bool patient_ = true;
    bool out_of_patience_ = false;
};

/// Finds the end of a body in chunks as it grows.
class Chunk_Walk
{
public:
    /// @return whether @p body is whole; size() says how much of it is the body then
    bool ends_in(std::string_view body)
    {
        while (!last_) {
            const std::size_t end = body.find(line_end, size_);
            if (end == std::string_view::npos)
                return false;
            std::size_t data = 0;
            const char* const line = body.data() + size_;
            if (std::from_chars(line, body.data() + end, data, 16).ptr == line)
                malformed_ = true;
            last_ = data == 0;
            const std::size_t next = end + line_end.size() + (last_ ? 0 : data + line_end.size());
            if (next > body.size()) {
                last_ = false;
                return false;
            }
            if (!last_)
                chunks_.emplace_back(end + line_end.size(), data);
            size_ = next;
        }
        // Trailer fields, and the empty line that ends them.
        for (;;) {
            const std::size_t end = body.find(line_end, size_);
            if (end == std::string_view::npos)
                return false;
            const bool empty = end == size_;
            size_ = end + line_end.size();
            if (empty)
                return true;
        }
    }
    std::size_t size() const { return size_; }
    bool malformed() const { return malformed_; }
    /// Place and size of the data of each chunk.
    const std::vector<std::pair<std::size_t, std::size_t>>& chunks() const { return chunks_; }

private:
    std::size_t size_ = 0;
    bool last_ = false;
    bool malformed_ = false;
    std::vector<std::pair<std::size_t, std::size_t>> chunks_;
};

bool same_name(std::string_view one, std::string_view other)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::ranges::equal(one, other, {}, lower, lower);
}

} // namespace

struct Scripted_Server::State
{
    class Script_Runner;

    State(std::vector<Script> given, const Settings& settings)
        : scripts(std::move(given)), address(asio::ip::make_address(settings.address)),
          acceptor(listening, tcp::endpoint(address, 0)), port(acceptor.local_endpoint().port())
    {
        if (settings.certificate != nullptr)
            tls = tls_context(*settings.certificate);
    }

    void accept_next();
    void add_problem(std::size_t connection, const std::string& text);

    const std::vector<Script> scripts;
    const asio::ip::address address;
    Tls_Context tls;

    mutable std::mutex mutex; // of what stands here
    std::vector<Request> requests;
    std::size_t connections = 0;
    std::vector<std::string> problems;

    std::atomic<bool> released{false};
    /// Of the connection with which finish() finds out that all others were accepted.
    std::atomic<unsigned short> last_port{0};
    std::vector<std::unique_ptr<Script_Runner>> runners; // changed by the listener alone
    asio::io_context listening;
    tcp::acceptor acceptor;
    const unsigned short port;
    std::thread listener;
};

/// Runs the script of one connection in a thread.
class Scripted_Server::State::Script_Runner : public Connection
{
public:
    explicit Script_Runner(State& server) : server_(server), channel_(server.tls.get()) {}

    Channel& channel() { return channel_; }
    void start(std::size_t index, const Script& script)
    {
        index_ = index;
        ended_ = std::async(std::launch::async, [this, &script] { run(script); });
    }
    /// Waits for its end, not for ever.
    void await_end()
    {
        if (ended_.wait_for(patience) == std::future_status::ready)
            return;
        server_.add_problem(index_, "the client keeps it open");
        channel_.end();
        ended_.wait();
    }

    Request head() override
    {
        std::size_t end = 0;
        while ((end = input_.find("\r\n\r\n")) == std::string::npos)
            if (!receive()) {
                // What there is of it shall be seen.
                begin_request(std::exchange(input_, {}));
                give_up("the client closed before its request was whole");
            }
        begin_request(take(end + 4));
        return current();
    }

    Request body() override
    {
        const Request request = current();
        if (request.field("Transfer-Encoding") == "chunked") {
            Chunk_Walk walk;
            const std::size_t before = request.body.size();
            std::string whole = request.body + input_;
            while (!walk.ends_in(whole)) {
                const std::size_t size = input_.size();
                need(receive());
                whole.append(input_, size);
            }
            if (walk.malformed())
                server_.add_problem(index_, "the client sent a chunk without a size");
            append(take(walk.size() - before));
        } else if (const auto length = request.field("Content-Length")) {
            const std::size_t size = std::strtoull(length->c_str(), nullptr, 10);
            part_of_body(size - std::min(size, request.body.size()));
        }
        return current();
    }

    Request part_of_body(std::size_t size) override
    {
        while (input_.size() < size)
            need(receive());
        append(take(size));
        return current();
    }

    void send(std::string_view bytes) override { channel_.send(bytes); }

    void stall() override
    {
        channel_.stall(server_.released);
        if (!channel_.is_open())
            give_up("nobody released the stalled connection");
    }

    void half_close() override
    {
        channel_.say_farewell();
        channel_.shut_down();
    }
    void cut() override { channel_.shut_down(); }
    void close() override
    {
        channel_.say_farewell();
        channel_.close();
    }
    void reset() override { channel_.reset(); }

private:
    void run(const Script& script)
    {
        try {
            if (channel_.handshake()) {
                script(*this);
                wait_for_client_to_close();
            }
        } catch (const Script_Ended&) {
        } catch (const std::exception& e) {
            server_.add_problem(index_, std::string("the script failed: ") + e.what());
        }
        channel_.close();
    }

    void wait_for_client_to_close()
    {
        channel_.wait_for_ever();
        while (channel_.is_open() && channel_.receive(input_)) {
        }
        if (!input_.empty())
            server_.add_problem(index_, "the client sent what no script asked for: " +
                                            input_.substr(0, 200));
    }

    bool receive() { return channel_.receive(input_); }

    void need(bool received)
    {
        if (received)
            return;
        append(std::exchange(input_, {}));
        give_up("the client closed in the middle of a body");
    }

    [[noreturn]] void give_up(const std::string& why)
    {
        server_.add_problem(index_,
                            channel_.out_of_patience() ? why + " (or waited too long)" : why);
        throw Script_Ended();
    }

    std::string take(std::size_t size)
    {
        std::string taken = input_.substr(0, size);
        input_.erase(0, size);
        return taken;
    }

    void begin_request(std::string head)
    {
        const std::lock_guard lock(server_.mutex);
        request_ = server_.requests.size();
        server_.requests.push_back({index_, std::move(head), {}});
    }
    void append(const std::string& data)
    {
        const std::lock_guard lock(server_.mutex);
        server_.requests.at(request_).body += data;
    }
    Request current()
    {
        const std::lock_guard lock(server_.mutex);
        return server_.requests.at(request_);
    }

    State& server_;
    Channel channel_;
    std::size_t index_ = 0;
    std::size_t request_ = 0; ///< the present one's place among all
    std::string input_;       ///< came and not taken yet
    std::future<void> ended_; // its destruction waits for the end
};

void Scripted_Server::State::accept_next()
{
    struct Arrival
    {
        explicit Arrival(State& server) : runner(std::make_unique<Script_Runner>(server)) {}

        std::unique_ptr<Script_Runner> runner;
        tcp::endpoint peer;
    };
    const auto arrival = std::make_shared<Arrival>(*this);
    acceptor.async_accept(arrival->runner->channel().socket(), arrival->peer,
                          [this, arrival](const error_code& e) {
                              if (e || arrival->peer.port() == last_port)
                                  return;
                              std::size_t index = 0;
                              {
                                  const std::lock_guard lock(mutex);
                                  index = connections++;
                              }
                              if (index < scripts.size()) {
                                  runners.push_back(std::move(arrival->runner));
                                  runners.back()->start(index, scripts[index]);
                              }
                              accept_next();
                          });
}

void Scripted_Server::State::add_problem(std::size_t connection, const std::string& text)
{
    const std::lock_guard lock(mutex);
    problems.push_back("connection " + std::to_string(connection) + ": " + text);
}

std::string Scripted_Server::Request::first_line() const
{
    return head.substr(0, head.find(line_end));
}

std::optional<std::string> Scripted_Server::Request::field(std::string_view name) const
{
    std::size_t begin = head.find(line_end);
    while (begin != std::string::npos) {
        begin += line_end.size();
        const std::size_t end = head.find(line_end, begin);
        const std::string_view line = std::string_view(head).substr(begin, end - begin);
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos && same_name(line.substr(0, colon), name)) {
            const std::size_t value = line.find_first_not_of(' ', colon + 1);
            return std::string(value == std::string_view::npos ? "" : line.substr(value));
        }
        begin = end;
    }
    return std::nullopt;
}

Scripted_Server::Scripted_Server(std::vector<Script> scripts, const Settings& settings)
    : state_(std::make_unique<State>(std::move(scripts), settings))
{
    state_->accept_next();
    state_->listener = std::thread([this] { state_->listening.run(); });
}

Scripted_Server::~Scripted_Server()
{
    state_->listening.stop();
    if (state_->listener.joinable())
        state_->listener.join();
    for (const auto& runner : state_->runners)
        runner->channel().end();
}

unsigned short Scripted_Server::port() const
{
    return state_->port;
}

std::string Scripted_Server::uri(const std::string& path) const
{
    const std::string host = state_->address.to_string();
    return (state_->tls == nullptr ? "http://" : "https://") +
           (state_->address.is_v6() ? '[' + host + ']' : host) + ':' + std::to_string(port()) +
           path;
}

void Scripted_Server::release()
{
    state_->released = true;
    // The list of connections is the listener's.
    asio::post(state_->listening, [this] {
        for (const auto& runner : state_->runners)
            runner->channel().end_stall();
    });
}

std::vector<Scripted_Server::Request> Scripted_Server::requests() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->requests;
}

std::size_t Scripted_Server::connections() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->connections;
}

void Scripted_Server::finish()
{
    if (!state_->listener.joinable())
        return;
    // Connections are accepted in the order in which they were made, so behind this one is none.
    asio::io_context context;
    tcp::socket last(context, tcp::endpoint(state_->address, 0));
    state_->last_port = last.local_endpoint().port();
    last.connect(tcp::endpoint(state_->address, state_->port));
    state_->listener.join();

    state_->released = true;
    for (const auto& runner : state_->runners)
        runner->channel().end_stall();
    for (const auto& runner : state_->runners)
        runner->await_end();
    for (const std::string& problem : state_->problems)
        ADD_FAILURE() << problem;
}

std::string http_answer(const std::string& status, const std::string& body,
                        const std::string& fields)
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
           fields + "\r\n" + body;
}

std::string unchunked(std::string_view body)
{
    Chunk_Walk walk;
    EXPECT_TRUE(walk.ends_in(body) && walk.size() == body.size() && !walk.malformed())
        << "not a body in chunks: " << body.substr(0, 200);
    std::string data;
    for (const auto& [place, size] : walk.chunks())
        data += body.substr(place, size);
    return data;
}
