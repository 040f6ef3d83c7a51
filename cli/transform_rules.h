#pragma once

#include "platform/json/json_spirit.h"

#include <map>
#include <string>

namespace cio
{

/// Where each setting came from, in words, for messages.
using Setting_Origins = std::map<std::string, std::string>;

/// Checks whether the settings of the transforms serve together: a level that the compression has,
/// a key and an IV as long as the cipher wants them. Throws Usage_Error, whose text never holds a
/// byte of a key.
/// @param settings  options of a connection, each of its right type
void check_transforms(const json_spirit::Object& settings, const Setting_Origins& origins);

} // namespace cio
