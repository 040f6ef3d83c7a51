#pragma once

#include <string_view>
#include <vector>

namespace cio
{

/// The candidate that takes the fewest edits (insert, delete, replace, swap neighbours) to reach
/// from @p name, letter case aside; empty when there are no candidates.
[[nodiscard]] std::string_view nearest_name(std::string_view name,
                                            const std::vector<std::string_view>& candidates);

} // namespace cio
