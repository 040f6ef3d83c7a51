#pragma once

#include "cli/option_table.h"
#include "platform/json/json_value.h"

#include <string>
#include <vector>

namespace cio
{

/// One setting of a connection that a flag stands for.
struct Flag_Setting
{
    const char* flag;
    const char* key; ///< of the connection's options
    json_spirit::Value value;
};

/// The settings behind the flags; whether they are of the right type is for the option table to
/// say. Throws Usage_Error for a flag without a value, a limit or level that is none, and a key
/// file that does not serve.
/// @param warnings  receives what the user should know; may be NULL
[[nodiscard]] std::vector<Flag_Setting> read_flags(const Transform_Flags& flags,
                                                   std::vector<std::string>* warnings);

} // namespace cio
