#include "servers/common/http_date.h"

#include <array>
#include <ctime>

std::string http_date(std::int64_t posix_seconds)
{
    const std::time_t time = posix_seconds;
    std::tm parts = {};
    std::array<char, 64> text = {};
    if (::gmtime_r(&time, &parts) == nullptr)
        return http_date(0);
    // The program never leaves the "C" locale, whose names are those of HTTP.
    return {text.data(),
            std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

std::optional<std::int64_t> parse_http_date(const std::string& text)
{
    for (const char* form :
         {"%a, %d %b %Y %H:%M:%S GMT", "%a, %d-%b-%y %H:%M:%S GMT", "%a %b %d %H:%M:%S %Y"})
    {
        std::tm parts = {};
        const char* const end = ::strptime(text.c_str(), form, &parts);
        if (end != nullptr && *end == '\0')
            return ::timegm(&parts);
    }
    return std::nullopt;
}
