#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

/// The system's names for JSON values, over nlohmann-json.
///
/// This header only names the types; code that works on values includes
/// "platform/json/json_value.h" as well, which costs compile time.
namespace json_spirit
{

template <class Key, class Mapped, class...>
using Object_Map = std::map<Key, Mapped>;

using Value = nlohmann::basic_json<Object_Map>;
using Object = std::map<std::string, Value>; ///< ordered by name
using Array = std::vector<Value>;

} // namespace json_spirit
