#include "servers/storage/storage_answer.h"

#include "platform/runtime/posix_error.h"

Storage_Answer storage_answer(const Storage_Result& result, bool reads)
{
    const auto text = [&result](const char* fallback) {
        return result.errnum != 0 ? POSIX_Error(result.errnum, 1).str() : std::string(fallback);
    };
    switch (result.failure) {
    case Storage_Failure::none:
        return {200, {}};
    case Storage_Failure::not_found:
        return {404, "No such file or directory"};
    case Storage_Failure::is_collection:
        return {405, "Is a directory"};
    case Storage_Failure::not_collection:
        return {reads ? 404U : 409U, "Not a directory"};
    case Storage_Failure::exists:
        return {409, "Exists already"};
    case Storage_Failure::not_empty:
        return {424, "Directory not empty"};
    case Storage_Failure::no_space:
        return {507, "No space left"};
    case Storage_Failure::bad_path:
        return {403, "This path is not served"};
    case Storage_Failure::denied:
        return {403, text("Not permitted")};
    case Storage_Failure::superseded:
        return {409, "A newer upload of this file has taken over"};
    case Storage_Failure::failed:
        break;
    }
    return {500, text("The operation failed")};
}

boost::asio::awaitable<void> answer_failure(HTTP_Exchange& exchange, const Storage_Result& result,
                                            bool reads)
{
    Storage_Answer answer = storage_answer(result, reads);
    HTTP_Headers headers;
    if (answer.status == 405) // RFC 9110, 15.5.6
        headers.put("Allow", "GET, DELETE, MKCOL, COPY, MOVE");
    co_await exchange.answer_error(answer.status, std::move(answer.text), std::move(headers));
}
