#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class Test_Certificate;

/// A server on a loopback port that does to each connection what a script says, and keeps what the
/// client sent, byte by byte.
///
/// It knows of HTTP only where a request ends. Each connection has a thread of its own; nothing
/// sleeps. A script that waits half a minute for a byte is given up.
class Scripted_Server
{
public:
    class Connection;
    using Script = std::function<void(Connection&)>;

    /// What a client sent as one request. A script that ends a connection in the middle of it
    /// leaves a part.
    struct Request
    {
        std::size_t connection = 0; ///< from 0, in the order in which they came
        std::string head;           ///< with the empty line that ends it
        std::string body;           ///< as it was sent: chunks with their sizes

        std::string first_line() const;
        /// The value of a header field, whatever the case of its name; of the first, where there
        /// are several.
        std::optional<std::string> field(std::string_view name) const;
    };

    struct Settings
    {
        std::string address = "127.0.0.1";
        /// Makes every connection TLS. One whose handshake fails uses up its script all the same.
        const Test_Certificate* certificate = nullptr;
    };

    /// @param scripts  the first one is for the connection that comes first, and so on; connections
    ///                 beyond them are closed at once
    explicit Scripted_Server(std::vector<Script> scripts) : Scripted_Server(scripts, Settings{}) {}
    Scripted_Server(std::vector<Script> scripts, const Settings& settings);
    /// Ends what is still there.
    ~Scripted_Server();
    Scripted_Server(const Scripted_Server&) = delete;
    Scripted_Server& operator=(const Scripted_Server&) = delete;

    unsigned short port() const;
    /// "http://127.0.0.1:PORT" with @p path behind it; https with a certificate.
    std::string uri(const std::string& path = "/") const;

    /// Lets every stall() go on, those to come too.
    void release();

    /// What came so far, in the order in which the heads came. A request is there before its script
    /// goes on, so a client that got an answer finds what it answered.
    std::vector<Request> requests() const;
    /// How many connections came so far.
    std::size_t connections() const;

    /// Takes no more connections, releases the stalled ones, and waits until the client has closed
    /// all of them, which it has to do before or meanwhile. From then on it is certain that nothing
    /// else came. Fails the test when a client closed in the middle of what a script waited for, or
    /// sent what no script asked for.
    void finish();

private:
    struct State;

    std::unique_ptr<State> state_;
};

/// One connection, in the hands of its script. Whatever the script waits for in vain ends it. When
/// it has come to its end, the connection stays open until the client closes it.
class Scripted_Server::Connection
{
public:
    virtual ~Connection() = default;

    /// Receives the head of the next request and nothing of its body.
    virtual Request head() = 0;
    /// Receives what has not been received of the body.
    virtual Request body() = 0;
    /// Receives so many bytes of the body, as they are sent.
    virtual Request part_of_body(std::size_t size) = 0;
    /// Receives a request.
    Request request()
    {
        head();
        return body();
    }

    /// Sends bytes as they stand. A client that does not want them any more is no failure.
    virtual void send(std::string_view bytes) = 0;
    /// Does nothing until the test releases it.
    virtual void stall() = 0;

    /// Tells the client that nothing more will be sent (with TLS: properly), and goes on receiving.
    virtual void half_close() = 0;
    /// The same without TLS's own farewell, as when somebody cut the connection.
    virtual void cut() = 0;
    /// Closes. Where the client sent what was not received, systems reset the connection, and the
    /// client may not see what was sent last.
    virtual void close() = 0;
    virtual void reset() = 0;
};

/// "HTTP/1.1 STATUS", @p fields (each ended by CR LF), Content-Length, and the body.
std::string http_answer(const std::string& status, const std::string& body = {},
                        const std::string& fields = {});
/// The data of a body in chunks; fails the test when it is none, or not whole.
std::string unchunked(std::string_view body);
