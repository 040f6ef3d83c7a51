#pragma once

#include "servers/common/http_service.h"
#include "servers/storage/storage_tree.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <string>

/// Serves a Storage_Tree: GET, HEAD, PUT, POST, DELETE, MKCOL, COPY and MOVE.
///
/// Files are looked up, opened, read and written by blocks on the connection's thread: what the
/// kernel has in its caches takes less time than handing it to another thread would. What waits by
/// its nature (for the disk to have something, for a whole directory, for the space of a file that
/// goes) is done by a few threads of this object's own.
class Storage_Service : public HTTP_Service
{
public:
    Storage_Service(std::unique_ptr<Storage_Tree> tree, bool read_only);

    boost::asio::awaitable<void> serve(HTTP_Exchange& exchange) override;
    std::string metrics() const override;

private:
    using Answer = boost::asio::awaitable<void>;
    using Operation = Answer (Storage_Service::*)(HTTP_Exchange&, Storage_Tree&);

    struct Method
    {
        const char* name;
        bool changes;
        Operation operation;
    };
    static const Method methods[];

    /// The tree that an account sees; NULL on failure.
    std::shared_ptr<Storage_Tree> tree_of(const Account& account, Storage_Result& result);

    Answer get(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer get_file(HTTP_Exchange& exchange, Storage_Tree::Download& file);
    Answer send_part(HTTP_Exchange& exchange, Storage_Tree::Download& file, std::uint64_t first,
                     std::uint64_t size);
    Answer list(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer head(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer put(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer post(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer remove(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer make_collection(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer copy(HTTP_Exchange& exchange, Storage_Tree& tree);
    Answer move(HTTP_Exchange& exchange, Storage_Tree& tree);

    Answer upload(HTTP_Exchange& exchange, Storage_Tree& tree, Storage_Tree::Upload_Kind whole,
                  Storage_Tree::Upload_Kind part);
    Answer receive(HTTP_Exchange& exchange, Storage_Tree::Upload& upload, std::uint64_t most,
                   bool exactly, bool is_brief);
    Answer transfer(HTTP_Exchange& exchange, Storage_Tree& tree, bool removes);
    /// Holds conditions against what is there (RFC 9110, 13.2.2).
    /// @return false when they do not hold; the answer has been given
    boost::asio::awaitable<bool> check_conditions(HTTP_Exchange& exchange, Storage_Tree& tree);

    bool read_only_;
    std::shared_ptr<Storage_Tree> tree_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Storage_Tree>> subtrees_; ///< by their path
    boost::asio::thread_pool disk_;
};
