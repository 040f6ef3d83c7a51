#pragma once

#include "client_io/http_client_io.h"
#include "tests/support/scripted_server.h"

#include <string>
#include <vector>

/// Takes a request for each answer, and sends it. Clients that wait for it are told to go on with
/// their bodies.
Scripted_Server::Script answer_each(const std::vector<std::string>& answers);
/// Receives a request in the same way.
Scripted_Server::Request take_request(Scripted_Server::Connection& connection);

/// What a client sent, in order: lines joined by "|", the server's address written as SERVER, and,
/// behind "||", the data of a body. To be asked of requests that are whole.
std::vector<std::string> sent_to(const Scripted_Server& server);

/// The URI of a server's folder "base".
URI uri_of(const Scripted_Server& server, const std::string& scheme = "http");

/// An HTTP_Client_IO that is connected to a server with a script. Its target is the server's
/// folder "base".
class HTTP_Target
{
public:
    explicit HTTP_Target(const std::vector<Scripted_Server::Script>& scripts,
                         const Client_IO_Base::Options& options = {});

    /// Disconnects, waits until it is certain that nothing else came, and tells what came.
    std::vector<std::string> sent();
    /// The URL of a file, as messages name it.
    std::string url(const std::string& path) const { return server.uri("/base/" + path); }

    Scripted_Server server;
    HTTP_Client_IO io;
};

/// What an HTTP_Client_IO reads to the end by the copying form; fails the test on a failure.
std::string read_all(Client_IO_Base& io);
