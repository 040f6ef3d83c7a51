#pragma once

#include <string_view>

/// Whether a list of entity tags, as in If-Match (RFC 9110, 13.1), names @p tag or is "*".
/// @param weak  whether a tag that is marked as weak counts too, as in If-None-Match
[[nodiscard]] bool names_entity_tag(std::string_view list, std::string_view tag, bool weak);
