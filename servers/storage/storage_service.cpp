#include "servers/storage/storage_service.h"

#include "servers/common/blocking_work.h"
#include "servers/common/entity_tags.h"
#include "servers/common/request_target.h"
#include "servers/common/server_metrics.h"
#include "servers/storage/storage_answer.h"
#include "servers/storage/upload_request.h"

#include <algorithm>
#include <iterator>

namespace asio = boost::asio;

namespace
{

/// Threads for what waits by its nature.
constexpr std::size_t disk_threads = 16;
constexpr unsigned private_mask = 077;

/// The field's value, empty when there is none.
std::string_view value_of(const HTTP_Headers& headers, const char* name)
{
    const std::string* const value = headers.get(name);
    return value != nullptr ? *value : std::string_view();
}

} // namespace

const Storage_Service::Method Storage_Service::methods[] = {
    {"GET", false, &Storage_Service::get},      {"HEAD", false, &Storage_Service::head},
    {"PUT", true, &Storage_Service::put},       {"POST", true, &Storage_Service::post},
    {"DELETE", true, &Storage_Service::remove}, {"MKCOL", true, &Storage_Service::make_collection},
    {"COPY", true, &Storage_Service::copy},     {"MOVE", true, &Storage_Service::move},
};

Storage_Service::Storage_Service(std::unique_ptr<Storage_Tree> tree, bool read_only)
    : read_only_(read_only), tree_(std::move(tree)), disk_(disk_threads)
{}

asio::awaitable<void> Storage_Service::serve(HTTP_Exchange& exchange)
{
    const auto* const method =
        std::find_if(std::begin(methods), std::end(methods),
                     [&exchange](const Method& row) { return exchange.head.method == row.name; });
    if (method == std::end(methods)) {
        co_await exchange.answer_error(501, "This method is not served");
        co_return;
    }
    const Account* const account = exchange.account.get();
    if (method->changes && (read_only_ || (account != nullptr && account->read_only))) {
        co_await exchange.answer_error(403, "Read-only");
        co_return;
    }
    for (const char* const name : {"Content-Range", "Destination", "If-Match", "If-None-Match",
                                   "If-Range", "Overwrite", "Range"})
    {
        if (exchange.head.headers.count(name) > 1) {
            co_await exchange.answer_error(400, std::string("More than one ") + name);
            co_return;
        }
    }
    Storage_Result result;
    std::shared_ptr<Storage_Tree> tree = tree_;
    if (account != nullptr && !account->root.empty())
        tree = co_await run_blocking(disk_, [&] { return tree_of(*account, result); });
    if (tree == nullptr) {
        co_await answer_failure(exchange, result, false);
        co_return;
    }
    const bool holds = co_await check_conditions(exchange, *tree);
    if (holds)
        co_await (this->*method->operation)(exchange, *tree);
}

std::string Storage_Service::metrics() const
{
    return Server_Metrics::metric("stored_bytes", "gauge",
                                  "Bytes of all files, as the quota counts them.", tree_->used());
}

std::shared_ptr<Storage_Tree> Storage_Service::tree_of(const Account& account,
                                                       Storage_Result& result)
{
    const std::lock_guard lock(mutex_);
    std::shared_ptr<Storage_Tree>& known = subtrees_[account.root];
    if (known == nullptr) {
        std::unique_ptr<Storage_Tree> tree;
        result = tree_->make_collection(account.root, private_mask);
        if (result)
            result = tree_->subtree(account.root, tree);
        known = std::move(tree);
    }
    return known;
}

Storage_Service::Answer Storage_Service::put(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    return upload(exchange, tree, Storage_Tree::Upload_Kind::replace,
                  Storage_Tree::Upload_Kind::cut);
}

Storage_Service::Answer Storage_Service::post(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    return upload(exchange, tree, Storage_Tree::Upload_Kind::create,
                  Storage_Tree::Upload_Kind::within);
}

Storage_Service::Answer Storage_Service::remove(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    const Storage_Result result =
        co_await run_blocking(disk_, [&] { return tree.remove(exchange.path); });
    if (result)
        co_await exchange.answer(200);
    else
        co_await answer_failure(exchange, result, true);
}

Storage_Service::Answer Storage_Service::make_collection(HTTP_Exchange& exchange,
                                                         Storage_Tree& tree)
{
    unsigned mask = Storage_Tree::Upload_Options().creation_mask;
    if (!read_creation_mask(exchange.head.headers, mask)) {
        co_await exchange.answer_error(400, "X-Mode-Creation-Mask is no number of permission bits");
        co_return;
    }
    const Storage_Result result =
        co_await run_blocking(disk_, [&] { return tree.make_collection(exchange.path, mask); });
    if (result)
        co_await exchange.answer(200);
    else
        co_await answer_failure(exchange, result, false);
}

Storage_Service::Answer Storage_Service::copy(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    return transfer(exchange, tree, false);
}

Storage_Service::Answer Storage_Service::move(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    return transfer(exchange, tree, true);
}

Storage_Service::Answer Storage_Service::transfer(HTTP_Exchange& exchange, Storage_Tree& tree,
                                                  bool removes)
{
    const HTTP_Headers& headers = exchange.head.headers;
    const std::string_view destination = value_of(headers, "Destination");
    const std::string_view overwrite = value_of(headers, "Overwrite");
    std::string_view scheme;
    std::string_view authority;
    std::string_view target;
    std::string to;
    if (!destination.starts_with('/') && split_url(destination, scheme, authority, target) &&
        !same_authority(scheme, authority, value_of(headers, "Host")))
    {
        co_await exchange.answer_error(502, "The destination is on another server");
        co_return;
    }
    if (!parse_request_target(destination, to) ||
        (!overwrite.empty() && overwrite != "T" && overwrite != "F"))
    {
        co_await exchange.answer_error(400, "Destination or Overwrite is malformed");
        co_return;
    }
    if (is_server_path(to)) {
        co_await exchange.answer_error(403, "This name is the server's own");
        co_return;
    }
    Storage_Status status;
    const Storage_Result found = tree.status(exchange.path, status);
    if (!found) {
        co_await answer_failure(exchange, found, true);
        co_return;
    }
    const Storage_Result result = co_await run_blocking(disk_, [&] {
        return removes ? tree.move(exchange.path, to, overwrite != "F")
                       : tree.copy(exchange.path, to, overwrite != "F");
    });
    if (result)
        co_await exchange.answer(200);
    else
        co_await answer_failure(exchange, result, false);
}

asio::awaitable<bool> Storage_Service::check_conditions(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    const HTTP_Headers& headers = exchange.head.headers;
    const std::string* const match = headers.get("If-Match");
    const std::string* const none_match = headers.get("If-None-Match");
    const bool reads = exchange.head.method == "GET" || exchange.is_head_request();
    if (match == nullptr && none_match == nullptr)
        co_return true;
    Storage_Status status;
    const Storage_Result found = tree.status(exchange.path, status);
    if (match != nullptr && !(found && names_entity_tag(*match, status.entity_tag, false))) {
        co_await exchange.answer_error(412, "The file is not the one that was asked for");
        co_return false;
    }
    if (none_match == nullptr || !found || !names_entity_tag(*none_match, status.entity_tag, true))
        co_return true;
    if (reads) {
        HTTP_Headers same;
        same.put("ETag", status.entity_tag);
        co_await exchange.answer(304, std::move(same));
    } else {
        co_await exchange.answer_error(412, "The file is there already");
    }
    co_return false;
}
