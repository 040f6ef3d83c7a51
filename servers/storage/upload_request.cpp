#include "servers/storage/upload_request.h"

#include "platform/http/http_date.h"
#include "platform/runtime/iso8601.h"
#include "servers/common/byte_range.h"

#include <charconv>
#include <limits>

namespace
{

constexpr std::int64_t nanoseconds = 1'000'000'000;
constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max() / nanoseconds;
constexpr unsigned permission_bits = 0777;

} // namespace

std::string read_upload_request(const HTTP_Headers& headers, Upload_Request& request)
{
    if (const std::string* const field = headers.get(HTTP_Headers::content_range)) {
        Content_Range range;
        if (!parse_content_range(*field, range))
            return "Content-Range is malformed";
        request.has_range = true;
        request.first = range.first;
        if (range.last.has_value())
            request.size = *range.last - range.first + 1;
    }
    if (const std::string* const field = headers.get(HTTP_Headers::last_modified)) {
        const std::optional<std::int64_t> time = parse_time(*field);
        if (!time.has_value() || *time < 0 || *time > latest)
            return "Last-Modified is no time from 1970 to 2262";
        request.options.mtime_ns = *time * nanoseconds;
    }
    if (!read_creation_mask(headers, request.options.creation_mask))
        return "X-Mode-Creation-Mask is no number of permission bits";
    return {};
}

std::optional<std::int64_t> parse_time(const std::string& text)
{
    if (const std::optional<std::int64_t> time = parse_http_date(text))
        return time;
    const std::int64_t time = iso8601_to_posix_time(text);
    // 0 means that it is no time, but one of them is.
    if (time == 0 && !text.starts_with("1970-01-01T00:00:00") &&
        !text.starts_with("19700101T000000"))
        return std::nullopt;
    return time;
}

bool read_creation_mask(const HTTP_Headers& headers, unsigned& mask)
{
    const std::string* const field = headers.get(HTTP_Headers::mode_creation_mask);
    if (field == nullptr)
        return true;
    unsigned value = 0;
    const char* const end = field->data() + field->size();
    const auto [rest, error] = std::from_chars(field->data(), end, value);
    if (error != std::errc() || rest != end || value > permission_bits)
        return false;
    mask = value;
    return true;
}
