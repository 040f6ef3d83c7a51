#pragma once

#include "platform/json/json_spirit.h"
#include "platform/runtime/export.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// How deep arrays and objects may nest in a text that loads_json accepts.
constexpr unsigned max_json_depth = 512;

/// Parses a JSON text (RFC 8259, UTF-8).
///
/// Refused: anything the grammar does not allow, trailing text, invalid UTF-8, nesting deeper
/// than max_json_depth, a name that stands twice in one object, and numbers too large for a
/// double. Integers beyond 64 bits become doubles (and are refused where an integer is asked for).
/// @param value  replaced on success, untouched on failure
/// @param error  receives the reason of a failure with its place in the text; may be NULL
[[nodiscard]] CLIENT_IO_EXPORT bool loads_json(const std::string& text, json_spirit::Value& value,
                                               std::string* error = nullptr);

/// Writes a value as JSON text; bytes that are not UTF-8 are written as U+FFFD.
/// @param pretty  true: four spaces of indentation a level; false: on one line
CLIENT_IO_EXPORT std::string JSON_Dump(const json_spirit::Value& value, bool pretty);

namespace json_spirit
{

/// The object_get family: takes the member @p name of @p object when it is there and of the
/// asked type (an integer also has to fit the type).
/// @return whether @p value was set; otherwise it is untouched
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, bool& value);
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, std::int32_t& value);
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, std::int64_t& value);
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, std::uint64_t& value);
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, double& value);
CLIENT_IO_EXPORT bool object_get(const Object& object, std::string_view name, std::string& value);
/// The member itself, whatever its type; NULL when it is not there.
CLIENT_IO_EXPORT const Value* object_get(const Object& object, std::string_view name);

} // namespace json_spirit
