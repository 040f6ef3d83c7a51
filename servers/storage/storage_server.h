#pragma once

#include "servers/common/http_server.h"
#include "servers/storage/storage_tree.h"

#include <functional>
#include <memory>
#include <string>

/// The HTTP storage server: a directory tree served to backup clients.
class Storage_Server
{
public:
    struct Options
    {
        HTTP_Server::Options http;
        Storage_Tree::Options tree;
        bool read_only = false;
    };

    /// @param warn  takes what the operator should know, a line each
    Storage_Server(Options options, std::function<void(const std::string&)> warn);
    ~Storage_Server();
    Storage_Server(const Storage_Server&) = delete;
    Storage_Server& operator=(const Storage_Server&) = delete;

    /// Opens the tree and listens. @return false when that fails (@p error)
    [[nodiscard]] bool start(std::string& error);
    /// Where it listens, such as "http://127.0.0.1:8080".
    std::string url() const;
    /// See HTTP_Server::run().
    void run();

private:
    Options options_;
    std::function<void(const std::string&)> warn_;
    std::unique_ptr<HTTP_Service> service_; // outlives the server, which uses it
    std::unique_ptr<HTTP_Server> server_;
};
