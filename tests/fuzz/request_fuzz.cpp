#include "platform/http/http_encode.h"
#include "platform/http/http_head.h"
#include "servers/common/byte_range.h"
#include "servers/common/entity_tags.h"
#include "servers/common/request_target.h"
#include "servers/storage/upload_request.h"

#include <cstdio>
#include <cstdlib>

namespace
{

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

void check_target(const std::string& target)
{
    std::string path;
    std::string again;
    if (!parse_request_target(target, path))
        return;
    require(path.find('\0') == std::string::npos, "a path holds a NUL");
    require(path.find("//") == std::string::npos, "a path holds an empty name");
    require(!path.starts_with('/') && !path.ends_with('/'), "a path has slashes at its ends");
    require(parse_request_target('/' + http_encode_string(path, http_path_characters), again) &&
                again == path,
            "an encoded path names another one");
}

void check_ranges(const std::string& field)
{
    for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1000}}) {
        Byte_Range range;
        if (choose_range(field, size, range) == Range_Choice::part)
            require(range.size > 0 && range.first < size && range.size <= size - range.first,
                    "a range lies outside the file");
    }
    Content_Range range;
    if (parse_content_range(field, range) && range.last.has_value())
        require(*range.last >= range.first, "a range ends before it begins");
}

} // namespace

/// A request's head and its fields: what is taken is consistent.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    HTTP_Request_Head head;
    std::size_t used = 0;
    std::string reason;
    const auto result = parse_request_head(bytes, {}, head, used, reason);
    if (result == HTTP_Parse_Result::complete) {
        require(used <= size, "a head is longer than what was read");
        require(head.headers.count("Transfer-Encoding") + head.headers.count("Content-Length") <= 1,
                "a body has two lengths");
        check_target(head.target);
        for (const auto& [name, value] : head.headers) {
            check_ranges(value);
            (void)names_entity_tag(value, "\"a\"", true);
        }
        Upload_Request request;
        (void)read_upload_request(head.headers, request);
    } else {
        require(result == HTTP_Parse_Result::incomplete || !reason.empty(), "no reason is given");
    }
    // Most inputs are no heads; the parts take them as they are.
    check_target(bytes);
    check_ranges(bytes);
    return 0;
}
