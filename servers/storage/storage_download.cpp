#include "servers/storage/storage_service.h"

#include "platform/http/http_date.h"
#include "platform/json/json_spirit.h"
#include "platform/json/json_value.h"
#include "servers/common/blocking_work.h"
#include "servers/common/byte_range.h"
#include "servers/common/entity_tags.h"
#include "servers/common/request_target.h"
#include "servers/storage/storage_answer.h"

#include <algorithm>
#include <ctime>

namespace
{

constexpr std::size_t block_size = 256U << 10U;
constexpr std::int64_t nanoseconds = 1'000'000'000;

/// Rounded down, before 1970 too.
std::int64_t seconds_of(std::int64_t time_ns)
{
    return time_ns / nanoseconds - (time_ns % nanoseconds < 0 ? 1 : 0);
}

std::string iso_time(std::int64_t posix_seconds)
{
    const std::time_t time = posix_seconds;
    std::tm parts = {};
    char text[64];
    if (::gmtime_r(&time, &parts) == nullptr)
        return iso_time(0);
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

HTTP_Headers headers_of(const Storage_Status& status)
{
    HTTP_Headers headers;
    headers.put(HTTP_Headers::content_type, "application/octet-stream");
    headers.put("Accept-Ranges", "bytes");
    headers.put("ETag", status.entity_tag);
    headers.put(HTTP_Headers::file_id, status.file_id);
    headers.put(HTTP_Headers::last_modified, http_date(seconds_of(status.mtime_ns)));
    return headers;
}

/// Whether a Range is to be followed, by If-Range (RFC 9110, 13.1.5).
bool is_range_meant(const HTTP_Headers& headers, const Storage_Status& status)
{
    const std::string* const field = headers.get("If-Range");
    if (field == nullptr)
        return true;
    if (field->starts_with('"'))
        return names_entity_tag(*field, status.entity_tag, false);
    return parse_http_date(*field) == seconds_of(status.mtime_ns);
}

std::string listed(const Storage_Tree::Entry& entry)
{
    json_spirit::Object object;
    object[entry.is_dir ? "dir" : "file"] = entry.name;
    object["size"] = static_cast<std::int64_t>(entry.is_dir ? 0 : entry.size);
    object["mtime"] = iso_time(seconds_of(entry.mtime_ns));
    return JSON_Dump(json_spirit::Value(object), false);
}

} // namespace

Storage_Service::Answer Storage_Service::get(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    std::unique_ptr<Storage_Tree::Download> file;
    const Storage_Result result = tree.download(exchange.path, file);
    if (result) {
        co_await get_file(exchange, *file);
    } else if (result.failure == Storage_Failure::is_collection) {
        co_await list(exchange, tree);
    } else {
        co_await answer_failure(exchange, result, true);
    }
}

Storage_Service::Answer Storage_Service::get_file(HTTP_Exchange& exchange,
                                                  Storage_Tree::Download& file)
{
    const Storage_Status& status = file.status();
    const HTTP_Headers& asked = exchange.head.headers;
    HTTP_Headers headers = headers_of(status);
    Byte_Range range{0, status.size};
    auto choice = Range_Choice::whole;
    if (const std::string* const field = asked.get(HTTP_Headers::range))
        if (is_range_meant(asked, status))
            choice = choose_range(*field, status.size, range);
    if (choice == Range_Choice::unsatisfiable) {
        HTTP_Headers size;
        size.put(HTTP_Headers::content_range, "bytes */" + std::to_string(status.size));
        co_await exchange.answer_error(416, "The range begins behind the file's end",
                                       std::move(size));
        co_return;
    }
    if (choice == Range_Choice::part)
        headers.put(HTTP_Headers::content_range, "bytes " + std::to_string(range.first) + "-" +
                                                     std::to_string(range.first + range.size - 1) +
                                                     "/" + std::to_string(status.size));
    const unsigned code = choice == Range_Choice::part ? 206 : 200;
    const bool begun = co_await exchange.begin_answer(code, std::move(headers), range.size);
    if (begun)
        co_await send_part(exchange, file, range.first, range.size);
}

Storage_Service::Answer Storage_Service::send_part(HTTP_Exchange& exchange,
                                                   Storage_Tree::Download& file,
                                                   std::uint64_t first, std::uint64_t size)
{
    if (exchange.can_send_files()) {
        co_await exchange.send_file(file.handle(), first, size);
        co_await exchange.end();
        co_return;
    }
    const auto block = std::make_unique_for_overwrite<char[]>(block_size);
    while (size > 0 && !exchange.failed()) {
        const std::int64_t n =
            file.read(block.get(), std::min<std::uint64_t>(size, block_size), first);
        if (n <= 0) {
            exchange.fail_answer(); // the file has become shorter, or cannot be read
            co_return;
        }
        first += static_cast<std::uint64_t>(n);
        size -= static_cast<std::uint64_t>(n);
        co_await exchange.write({block.get(), static_cast<std::size_t>(n)});
    }
    co_await exchange.end();
}

Storage_Service::Answer Storage_Service::list(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    std::unique_ptr<Storage_Tree::Listing> listing;
    Storage_Result result =
        co_await run_blocking(disk_, [&] { return tree.list(exchange.path, listing); });
    if (!result) {
        co_await answer_failure(exchange, result, true);
        co_return;
    }
    HTTP_Headers headers;
    headers.put(HTTP_Headers::content_type, "application/json");
    const bool begun = co_await exchange.begin_answer(200, std::move(headers), std::nullopt);
    bool more = begun;
    std::string text = "[";
    bool first = true;
    while (more) {
        result = co_await run_blocking(disk_, [&] {
            bool end = false;
            Storage_Result read;
            while (read && !end && text.size() < block_size / 4) {
                Storage_Tree::Entry entry;
                read = listing->next(entry, end);
                if (!read || end || (exchange.path.empty() && is_server_path(entry.name)))
                    continue;
                text += (first ? "\n" : ",\n") + listed(entry);
                first = false;
            }
            more = !end;
            return read;
        });
        if (!result) {
            exchange.fail_answer(); // the list must not look whole
            co_return;
        }
        if (!more)
            text += "\n]\n";
        const bool written = co_await exchange.write(text);
        more = more && written;
        text.clear();
    }
    if (!exchange.failed())
        co_await exchange.end();
}

Storage_Service::Answer Storage_Service::head(HTTP_Exchange& exchange, Storage_Tree& tree)
{
    Storage_Status status;
    Storage_Result result = tree.status(exchange.path, status);
    if (result && status.is_dir)
        result.failure = Storage_Failure::is_collection;
    if (!result) {
        co_await answer_failure(exchange, result, true);
        co_return;
    }
    HTTP_Headers headers = headers_of(status);
    headers.put(HTTP_Headers::content_length, std::to_string(status.size));
    co_await exchange.answer(200, std::move(headers));
}
