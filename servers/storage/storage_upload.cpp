#include "servers/storage/storage_service.h"

#include "servers/common/blocking_work.h"
#include "servers/storage/storage_answer.h"
#include "servers/storage/upload_request.h"

#include <limits>

Storage_Service::Answer Storage_Service::upload(HTTP_Exchange& exchange, Storage_Tree& tree,
                                                Storage_Tree::Upload_Kind whole,
                                                Storage_Tree::Upload_Kind part)
{
    Upload_Request request;
    std::string wrong = read_upload_request(exchange.head.headers, request);
    // A file may be cut and nothing be written, whatever the range says.
    const bool may_lack = part == Storage_Tree::Upload_Kind::cut && !exchange.has_body();
    if (wrong.empty() && request.size.has_value() && !may_lack &&
        exchange.head.framing != Body_Framing::chunked &&
        *request.size != exchange.head.content_length)
        wrong = "The body is not as long as its Content-Range";
    if (!wrong.empty()) {
        co_await exchange.answer_error(400, std::move(wrong));
        co_return;
    }
    // A request that was read late may be one that its client has given up and followed by another,
    // which this one would undo.
    if ((exchange.head.expects_continue || request.has_range) && exchange.is_client_gone()) {
        exchange.fail_answer();
        co_return;
    }
    std::unique_ptr<Storage_Tree::Upload> upload;
    const Storage_Tree::Upload_Kind kind = request.has_range ? part : whole;
    const auto begin = [&] {
        return tree.upload(exchange.path, kind, request.first, request.options, upload);
    };
    const bool is_brief = kind == Storage_Tree::Upload_Kind::create && !tree.syncs();
    Storage_Result result;
    if (is_brief)
        result = begin();
    else
        result = co_await run_blocking(disk_, begin);
    if (!result) {
        co_await answer_failure(exchange, result, false);
        co_return;
    }
    // From here on the old contents are gone, and "100 Continue" names what is there now.
    const bool accepted = co_await exchange.accept_body(upload->file_id());
    if (!accepted) {
        exchange.fail_answer();
        co_return;
    }
    const std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();
    co_await receive(exchange, *upload, request.size.value_or(unlimited),
                     request.size.has_value() && !may_lack, is_brief);
}

Storage_Service::Answer Storage_Service::receive(HTTP_Exchange& exchange,
                                                 Storage_Tree::Upload& upload, std::uint64_t most,
                                                 bool exactly, bool is_brief)
{
    Storage_Result result;
    std::string_view data;
    auto body = co_await exchange.read_body(data);
    while (body == HTTP_Exchange::Body::data && result && data.size() <= most) {
        most -= data.size();
        result = upload.write(data);
        if (result)
            body = co_await exchange.read_body(data);
    }
    const bool whole = !exactly || most == 0;
    if (body == HTTP_Exchange::Body::end && whole) {
        if (is_brief)
            result = upload.finish();
        else
            result = co_await run_blocking(disk_, [&] { return upload.finish(); });
        if (result) {
            co_await exchange.answer(200);
            co_return;
        }
    }
    if (!result) {
        co_await answer_failure(exchange, result, false);
        co_return;
    }
    switch (body) {
    case HTTP_Exchange::Body::data:
    case HTTP_Exchange::Body::end:
        co_await exchange.answer_error(400, "The body is not as long as its Content-Range");
        break;
    case HTTP_Exchange::Body::malformed:
        co_await exchange.answer_error(400, "The body is malformed");
        break;
    case HTTP_Exchange::Body::too_slow:
        co_await exchange.answer_error(408, "The body did not arrive in time");
        break;
    case HTTP_Exchange::Body::gone:
        exchange.fail_answer();
        break;
    }
}
