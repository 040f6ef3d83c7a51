#include "client_io/file_io.h"
#include "client_io/http_client_io.h"
#include "tests/conformance/backend_target.h"
#include "tests/support/dav_peer.h"
#include "tests/support/storage_server_process.h"
#include "tests/support/temp_directory.h"

#include <filesystem>
#include <map>
#include <memory>

namespace
{

/// One server for all tests of the program, each with a directory of its own on it.
Storage_Server_Process& server()
{
    static Storage_Server_Process the_server({"--no-sync"});
    return the_server;
}

std::string new_directory()
{
    static int made = 0;
    std::string name = "target" + std::to_string(++made);
    std::filesystem::create_directory(server().file(name));
    return name;
}

class HTTP_Target : public Backend_Target
{
public:
    using Backend_Target::Backend_Target;

    std::string uri_text() const { return server().uri('/' + directory_); }

protected:
    Layer storage() override { return std::make_unique<HTTP_Client_IO>(); }
    URI uri() const override
    {
        URI parsed;
        EXPECT_TRUE(URI_Parser::parse(uri_text().c_str(), parsed));
        return parsed;
    }

private:
    const std::string directory_ = new_directory();
};

class HTTP_URI_Target : public HTTP_Target
{
public:
    explicit HTTP_URI_Target(const Client_IO_Base::Options& options)
        : HTTP_Target(Stack()), options_(options)
    {}

    Layer connect() override
    {
        auto facade = std::make_unique<Client_IO>();
        EXPECT_TRUE(facade->connect(uri_text().c_str(), options_)) << facade->error();
        return facade;
    }

private:
    Client_IO_Base::Options options_;
};

/// One server of each program for all tests, each with a directory of its own on it. What it stores
/// is looked at in its folder.
class Dav_Target : public Target
{
public:
    explicit Dav_Target(Dav_Peer& peer) : peer_(peer)
    {
        static int made = 0;
        directory_ = "target" + std::to_string(++made);
        const std::string folder = peer_.file(directory_);
        std::filesystem::create_directory(folder);
        std::filesystem::permissions(folder, std::filesystem::perms::all); // whoever the server is
    }

    Stack::Layer connect() override
    {
        Client_IO_Base::Options options;
        options.set_extra_option("HTTP_DIALECT", "webdav");
        return connected(std::make_unique<HTTP_Client_IO>(), peer_.uri(false, '/' + directory_),
                         options);
    }

    Stack::Layer connect_below() override
    {
        return connected(std::make_unique<File_IO>(), file_uri(peer_.file(directory_)), {});
    }

private:
    static Stack::Layer connected(Stack::Layer layer, const std::string& uri,
                                  const Client_IO_Base::Options& options)
    {
        URI parsed;
        EXPECT_TRUE(URI_Parser::parse(uri.c_str(), parsed)) << uri;
        EXPECT_TRUE(layer->connect(parsed, options)) << layer->error();
        return layer;
    }

    Dav_Peer& peer_;
    std::string directory_;
};

Dav_Peer& dav_peer(const std::string& program)
{
    static std::map<std::string, std::unique_ptr<Dav_Peer>> peers;
    std::unique_ptr<Dav_Peer>& peer = peers[program];
    if (!peer)
        peer = std::make_unique<Dav_Peer>(program);
    return *peer;
}

} // namespace

const bool storage_server_runs_here = true;

Make_Target http_target(const Stack& stack)
{
    return [stack] { return std::make_unique<HTTP_Target>(stack); };
}

Make_Target http_uri_target(const Client_IO_Base::Options& options)
{
    return [options] { return std::make_unique<HTTP_URI_Target>(options); };
}

Make_Target dav_target(const std::string& program)
{
    return [program] { return std::make_unique<Dav_Target>(dav_peer(program)); };
}
