#include "cli/image_extra.h"

#include "platform/json/json_value.h"

#include <array>

namespace cio
{
namespace
{

constexpr std::uint64_t largest_extra = 65536;
constexpr std::size_t longest_text = 1024;

constexpr std::array names = {"other", "zero", "unused"};

std::string bounded(std::string text)
{
    if (text.size() > longest_text)
        text.resize(longest_text);
    return text;
}

} // namespace

const char* name_of(Image_Extra::Rest rest)
{
    return names[static_cast<std::size_t>(rest)];
}

std::string encode(const Image_Extra& extra, std::uint64_t most)
{
    json_spirit::Object object{{"program", extra.program}, {"rest", name_of(extra.rest)}};
    const std::string without_source = JSON_Dump(object, false);
    object["source"] = bounded(extra.source);
    std::string text = JSON_Dump(object, false);
    return text.size() <= most ? text : without_source;
}

Image_Extra decode_image_extra(const void* data, std::uint64_t size)
{
    Image_Extra extra;
    json_spirit::Value value;
    if (size > largest_extra ||
        !loads_json(std::string(static_cast<const char*>(data), size), value) || !value.is_object())
        return extra;
    const auto& object = value.get_ref<const json_spirit::Object&>();
    std::string rest;
    json_spirit::object_get(object, "program", extra.program);
    json_spirit::object_get(object, "source", extra.source);
    json_spirit::object_get(object, "rest", rest);
    extra.program = bounded(std::move(extra.program));
    extra.source = bounded(std::move(extra.source));
    for (std::size_t i = 0; i < names.size(); ++i)
        if (rest == names[i])
            extra.rest = static_cast<Image_Extra::Rest>(i);
    return extra;
}

} // namespace cio
