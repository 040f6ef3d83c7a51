#include "tests/unit/http/http_target.h"

#include <array>
#include <gtest/gtest.h>

Scripted_Server::Request take_request(Scripted_Server::Connection& connection)
{
    if (connection.head().field("Expect") == "100-continue")
        connection.send("HTTP/1.1 100 Continue\r\nX-File-Id: 1\r\n\r\n");
    return connection.body();
}

Scripted_Server::Script answer_each(const std::vector<std::string>& answers)
{
    return [answers](Scripted_Server::Connection& connection) {
        for (const std::string& answer : answers) {
            take_request(connection);
            connection.send(answer);
        }
    };
}

std::vector<std::string> sent_to(const Scripted_Server& server)
{
    const auto replace = [](std::string& text, const std::string& from, const std::string& to) {
        for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
            text.replace(at, from.size(), to);
    };
    const std::string scheme = "://";
    std::string address = server.uri("");
    address.erase(0, address.find(scheme) + scheme.size());
    std::vector<std::string> sent;
    for (const auto& request : server.requests()) {
        std::string text = request.head.substr(0, request.head.size() - 4);
        replace(text, "\r\n", "|");
        replace(text, address, "SERVER");
        if (request.field("Transfer-Encoding"))
            text += "||" + unchunked(request.body);
        sent.push_back(text);
    }
    return sent;
}

URI uri_of(const Scripted_Server& server, const std::string& scheme)
{
    URI uri;
    EXPECT_TRUE(URI_Parser::parse(server.uri("/base").c_str(), uri));
    uri.scheme(scheme);
    return uri;
}

HTTP_Target::HTTP_Target(const std::vector<Scripted_Server::Script>& scripts,
                         const Client_IO_Base::Options& options)
    : server(scripts)
{
    EXPECT_TRUE(io.connect(uri_of(server), options)) << io.error();
}

std::vector<std::string> HTTP_Target::sent()
{
    io.disconnect();
    server.finish();
    return sent_to(server);
}

std::string read_all(Client_IO_Base& io)
{
    std::string data;
    std::array<char, 1000> block;
    for (;;) {
        const std::int64_t n = io.read(block.data(), block.size());
        EXPECT_GE(n, 0) << io.error();
        if (n <= 0)
            return data;
        data.append(block.data(), static_cast<std::size_t>(n));
    }
}
