#pragma once

#include "servers/common/http_exchange.h"
#include "servers/storage/storage_tree.h"

#include <boost/asio/awaitable.hpp>
#include <string>

/// How a failure is told to a client.
struct Storage_Answer
{
    unsigned status = 500;
    std::string text;
};

/// @param reads  whether the operation only looks: below a file there is nothing to be found, but
///               nothing can be made there either, which is another failure
Storage_Answer storage_answer(const Storage_Result& result, bool reads);

boost::asio::awaitable<void> answer_failure(HTTP_Exchange& exchange, const Storage_Result& result,
                                            bool reads);
