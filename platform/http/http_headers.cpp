#include "platform/http/http_headers.h"

#include <algorithm>

namespace
{

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// RFC 9110, 5.6.2.
bool is_token_character(char c)
{
    constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') ||
           marks.find(c) != std::string_view::npos;
}

/// RFC 9110, 5.5; a tab is allowed inside, as blanks are.
bool is_value_character(char c)
{
    return c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);
}

} // namespace

const char* HTTP_Headers::name(Id id)
{
    switch (id) {
    case authorization:
        return "Authorization";
    case connection:
        return "Connection";
    case content_length:
        return "Content-Length";
    case content_range:
        return "Content-Range";
    case content_type:
        return "Content-Type";
    case destination:
        return "Destination";
    case entity_tag:
        return "ETag";
    case expect:
        return "Expect";
    case file_id:
        return "X-File-Id";
    case host:
        return "Host";
    case last_modified:
        return "Last-Modified";
    case location:
        return "Location";
    case mode_creation_mask:
        return "X-Mode-Creation-Mask";
    case overwrite:
        return "Overwrite";
    case range:
        return "Range";
    case retry_after:
        return "Retry-After";
    case transfer_encoding:
        return "Transfer-Encoding";
    case user_agent:
        return "User-Agent";
    case forward:
        return "X-Forward";
    }
    return "";
}

bool HTTP_Headers::is_valid(std::string_view name, std::string_view value)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), is_token_character) &&
           std::all_of(value.begin(), value.end(), is_value_character);
}

void HTTP_Headers::put(std::string_view name, std::string value)
{
    const auto same = [&](const Field& field) { return equal_without_case(field.first, name); };
    const auto first = std::find_if(fields_.begin(), fields_.end(), same);
    if (first == fields_.end()) {
        add(name, std::move(value));
        return;
    }
    *first = Field(name, std::move(value));
    fields_.erase(std::remove_if(first + 1, fields_.end(), same), fields_.end());
}

void HTTP_Headers::add(std::string_view name, std::string value)
{
    fields_.emplace_back(name, std::move(value));
}

void HTTP_Headers::merge(const HTTP_Headers& other)
{
    const std::size_t own = fields_.size();
    const auto is_own = [&](const Field& field) {
        return std::any_of(
            fields_.begin(), fields_.begin() + static_cast<std::ptrdiff_t>(own),
            [&](const Field& mine) { return equal_without_case(mine.first, field.first); });
    };
    for (const Field& field : other)
        if (!is_own(field))
            fields_.push_back(field);
}

void HTTP_Headers::remove(std::string_view name)
{
    std::erase_if(fields_,
                  [&](const Field& field) { return equal_without_case(field.first, name); });
}

const std::string* HTTP_Headers::get(std::string_view name) const
{
    for (const Field& field : fields_)
        if (equal_without_case(field.first, name))
            return &field.second;
    return nullptr;
}

std::size_t HTTP_Headers::count(std::string_view name) const
{
    return static_cast<std::size_t>(
        std::count_if(fields_.begin(), fields_.end(),
                      [&](const Field& field) { return equal_without_case(field.first, name); }));
}

bool equal_without_case(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}
