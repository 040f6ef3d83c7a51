#include "servers/common/http_server.h"

#include "servers/common/private_file.h"
#include "servers/common/server_tls.h"
#include "servers/common/server_worker.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/resource.h>
#include <thread>
#include <utility>
#include <vector>

namespace asio = boost::asio;
using asio::ip::tcp;

namespace
{

constexpr std::chrono::milliseconds accept_pause{100};
constexpr std::chrono::milliseconds stop_period{20};
constexpr int backlog = 1024;

/// Asks for as many handles as the system allows: what it usually gives is less than the limit of
/// connections needs.
void raise_handle_limit()
{
    struct rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        (void)::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

class HTTP_Server::Impl
{
public:
    Impl(Options options, HTTP_Service& service, std::function<void(const std::string&)> warn)
        : options_(std::move(options)), context_(options_.limits, service), warn_(std::move(warn)),
          count_(options_.limits)
    {}

    bool start(std::string& error);
    std::string url() const;
    void run();

private:
    bool load_users(std::string& error);
    bool load_tls(std::string& error);
    bool listen(const asio::ip::address& address, std::string& error);
    bool is_tls() const { return !options_.certificate_file.empty(); }

    asio::awaitable<void> accept();
    asio::awaitable<void> wait_for_signals();
    void reload();
    asio::awaitable<void> stop();

    Options options_;
    Server_Context context_;
    std::function<void(const std::string&)> warn_;
    Connection_Count count_;
    std::unique_ptr<Access_Log> log_;
    std::shared_ptr<SSL_CTX> tls_; ///< used on the thread of run() only

    asio::io_context loop_{1};
    tcp::acceptor acceptor_{loop_};
    asio::signal_set signals_{loop_};
    bool stops_ = false;
    bool cuts_ = false;
    std::vector<std::unique_ptr<Server_Worker>> workers_;
};

bool HTTP_Server::Impl::start(std::string& error)
{
    boost::system::error_code problem;
    raise_handle_limit();
    const auto address = asio::ip::make_address(options_.address, problem);
    if (problem) {
        error = "'" + options_.address + "' is no IP address";
        return false;
    }
    if (options_.users_file.empty() && !address.is_loopback() && !options_.allow_anonymous) {
        error =
            "without users only this machine may be served, unless everybody is let in on purpose";
        return false;
    }
    if (!load_users(error) || !load_tls(error))
        return false;
    if (!options_.access_log.empty()) {
        log_ = Access_Log::open(options_.access_log);
        if (log_ == nullptr) {
            error = "the access log " + options_.access_log + ": " + std::strerror(errno);
            return false;
        }
        context_.log = log_.get();
    }
    // Before anybody can know that there is somebody to send them to.
    for (const int number : {SIGHUP, SIGINT, SIGTERM})
        signals_.add(number);
    if (!listen(address, error))
        return false;
    if (options_.users_file.empty())
        warn_("there are no users: everybody who reaches " + url() + " may read and change all");
    else if (!is_tls() && !address.is_loopback())
        warn_("without TLS passwords are refused and tokens can be read on their way");
    return true;
}

std::string HTTP_Server::Impl::url() const
{
    boost::system::error_code ignored;
    const tcp::endpoint end = acceptor_.local_endpoint(ignored);
    const std::string address = end.address().to_string();
    return std::string(is_tls() ? "https://" : "http://") +
           (end.address().is_v6() ? '[' + address + ']' : address) + ':' +
           std::to_string(end.port());
}

void HTTP_Server::Impl::run()
{
    const unsigned processors = std::max(std::thread::hardware_concurrency(), 1U);
    const unsigned threads = options_.threads != 0 ? options_.threads : processors;
    for (unsigned i = 0; i < threads; ++i)
        workers_.push_back(std::make_unique<Server_Worker>(context_, count_));
    asio::co_spawn(loop_, accept(), asio::detached);
    asio::co_spawn(loop_, wait_for_signals(), asio::detached);
    loop_.run();
    workers_.clear();
}

bool HTTP_Server::Impl::load_users(std::string& error)
{
    if (options_.users_file.empty())
        return true;
    std::string text;
    std::vector<User> users;
    if (!read_private_file(options_.users_file, text, error))
        return false;
    if (!parse_users(text, users, error)) {
        error = options_.users_file + ", " + error;
        return false;
    }
    context_.users = std::make_shared<Authenticator>(users);
    return true;
}

bool HTTP_Server::Impl::load_tls(std::string& error)
{
    if (!is_tls())
        return true;
    std::shared_ptr<SSL_CTX> tls =
        make_server_tls(options_.certificate_file, options_.key_file, error);
    if (tls == nullptr)
        return false;
    tls_ = std::move(tls);
    return true;
}

bool HTTP_Server::Impl::listen(const asio::ip::address& address, std::string& error)
{
    boost::system::error_code problem;
    const tcp::endpoint end(address, options_.port);
    acceptor_.open(end.protocol(), problem);
    if (!problem)
        acceptor_.set_option(tcp::acceptor::reuse_address(true), problem);
    if (!problem)
        acceptor_.bind(end, problem);
    if (!problem)
        acceptor_.listen(backlog, problem);
    if (problem)
        error = "cannot listen on " + options_.address + " port " + std::to_string(options_.port) +
                ": " + problem.message();
    return !problem;
}

asio::awaitable<void> HTTP_Server::Impl::accept()
{
    for (std::size_t turn = 0; !stops_; ++turn) {
        Server_Worker& worker = *workers_[turn % workers_.size()];
        boost::system::error_code error;
        tcp::endpoint peer;
        tcp::socket socket(worker.loop());
        co_await acceptor_.async_accept(socket, peer,
                                        asio::redirect_error(asio::use_awaitable, error));
        if (error) {
            // Out of handles, say. Others will be closed in a moment.
            asio::steady_timer pause(loop_, accept_pause);
            co_await pause.async_wait(asio::redirect_error(asio::use_awaitable, error));
            continue;
        }
        ++context_.metrics.connections_accepted;
        std::string address = peer.address().to_string();
        const Connection_Count::Verdict verdict = count_.enter(address);
        if (verdict != Connection_Count::Verdict::welcome)
            ++context_.metrics.connections_refused;
        if (verdict != Connection_Count::Verdict::ignored)
            worker.serve(std::move(socket), std::move(address), tls_,
                         verdict == Connection_Count::Verdict::refused);
    }
}

asio::awaitable<void> HTTP_Server::Impl::wait_for_signals()
{
    while (true) {
        const int number = co_await signals_.async_wait(asio::use_awaitable);
        if (number == SIGHUP) {
            reload();
        } else if (!std::exchange(stops_, true)) {
            asio::co_spawn(loop_, stop(), asio::detached);
        } else {
            cuts_ = true;
        }
    }
}

void HTTP_Server::Impl::reload()
{
    std::string error;
    if (!load_users(error))
        warn_("the users stay as they were: " + error);
    if (!load_tls(error))
        warn_("the certificate stays as it was: " + error);
    if (log_ != nullptr && !log_->reopen())
        warn_("the access log stays as it was: " + std::string(std::strerror(errno)));
}

asio::awaitable<void> HTTP_Server::Impl::stop()
{
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    for (const auto& worker : workers_)
        worker->stop();
    const auto end = std::chrono::steady_clock::now() + options_.limits.stop_time;
    bool cut = false;
    asio::steady_timer pause(loop_);
    while (!count_.is_empty()) {
        if (!cut && (cuts_ || std::chrono::steady_clock::now() >= end)) {
            cut = true;
            for (const auto& worker : workers_)
                worker->cut();
        }
        pause.expires_after(stop_period);
        co_await pause.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }
    loop_.stop();
}

HTTP_Server::HTTP_Server(Options options, HTTP_Service& service,
                         std::function<void(const std::string&)> warn)
    : impl_(std::make_unique<Impl>(std::move(options), service, std::move(warn)))
{}

HTTP_Server::~HTTP_Server() = default;

bool HTTP_Server::start(std::string& error)
{
    return impl_->start(error);
}

std::string HTTP_Server::url() const
{
    return impl_->url();
}

void HTTP_Server::run()
{
    impl_->run();
}
