#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <type_traits>
#include <utility>

/// Does on a thread of @p pool what blocks, and resumes the caller on its own.
template <class Work>
boost::asio::awaitable<std::invoke_result_t<Work&>> run_blocking(boost::asio::thread_pool& pool,
                                                                 Work work)
{
    using Result = std::invoke_result_t<Work&>;
    auto on_pool = [&work]() -> boost::asio::awaitable<Result> { co_return work(); };
    co_return co_await boost::asio::co_spawn(pool, on_pool, boost::asio::use_awaitable);
}
