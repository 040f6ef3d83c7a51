#include "cli/transform_flags.h"

#include "cli/failure.h"
#include "cli/key_file.h"
#include "cli/limit.h"
#include "platform/runtime/base64.h"

#include <charconv>

namespace cio
{
namespace
{

/// An empty value is what a script with an unset variable gives, and "no encryption" would be the
/// worst way to understand it.
const std::string& given(const char* flag, const std::string& value)
{
    if (value.empty())
        throw Usage_Error(std::string(flag) + " lacks its value");
    return value;
}

std::int32_t parse_level(const std::string& text)
{
    std::int32_t level = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, level);
    if (error != std::errc() || rest != end)
        throw Usage_Error("--level: '" + text + "' is no level (a whole number)");
    return level;
}

json_spirit::Value encoded(const Secret_Bytes& bytes)
{
    return Base64_Encoder::encode(bytes.data(), bytes.size());
}

json_spirit::Array schedule(const std::vector<Rate_Control_Entry>& periods)
{
    json_spirit::Array array;
    for (const Rate_Control_Entry& period : periods)
        array.push_back(json_spirit::Object{{"start_time", period.start_time},
                                            {"end_time", period.end_time},
                                            {"max_bytes_per_second", period.max_bytes_per_second}});
    return array;
}

} // namespace

std::vector<Flag_Setting> read_flags(const Transform_Flags& flags,
                                     std::vector<std::string>* warnings)
{
    std::vector<Flag_Setting> settings;
    if (flags.compress)
        settings.push_back({"--compress", "compression", given("--compress", *flags.compress)});
    if (flags.level)
        settings.push_back({"--level", "compression_level", parse_level(*flags.level)});
    if (flags.encrypt)
        settings.push_back({"--encrypt", "encryption", given("--encrypt", *flags.encrypt)});
    if (flags.key_file) {
        Key_Material material;
        const std::string warning = read_key_file(given("--key-file", *flags.key_file), material);
        settings.push_back({"--key-file", "key", encoded(material.key)});
        settings.push_back({"--key-file", "iv", encoded(material.iv)});
        if (warnings != nullptr && !warning.empty())
            warnings->push_back(warning);
    }
    if (flags.limit) {
        const Limit limit = parse_limit(given("--limit", *flags.limit));
        settings.push_back({"--limit", "max_bytes_per_second", limit.bytes_per_second});
        // An empty schedule as well: the flag replaces one of the options file.
        settings.push_back({"--limit", "rate_control", schedule(limit.periods)});
    }
    return settings;
}

} // namespace cio
