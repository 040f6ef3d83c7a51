#include "servers/storage/storage_server.h"

#include "servers/storage/storage_service.h"

Storage_Server::Storage_Server(Options options, std::function<void(const std::string&)> warn)
    : options_(std::move(options)), warn_(std::move(warn))
{}

Storage_Server::~Storage_Server() = default;

bool Storage_Server::start(std::string& error)
{
    std::unique_ptr<Storage_Tree> tree = Storage_Tree::open(options_.tree, error);
    if (tree == nullptr)
        return false;
    service_ = std::make_unique<Storage_Service>(std::move(tree), options_.read_only);
    server_ = std::make_unique<HTTP_Server>(options_.http, *service_, warn_);
    return server_->start(error);
}

std::string Storage_Server::url() const
{
    return server_->url();
}

void Storage_Server::run()
{
    server_->run();
}
