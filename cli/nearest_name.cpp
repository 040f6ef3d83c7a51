#include "cli/nearest_name.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace cio
{
namespace
{

// Longer names are typing errors of no known name; the bound keeps the cost of hostile ones small.
constexpr std::size_t longest_compared = 64;

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::size_t distance(std::string_view a, std::string_view b)
{
    a = a.substr(0, longest_compared);
    b = b.substr(0, longest_compared);
    std::vector<std::size_t> before(b.size() + 1);
    std::vector<std::size_t> above(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        above[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        before.swap(above);
        above.swap(row);
    }
    return above[b.size()];
}

} // namespace

std::string_view nearest_name(std::string_view name,
                              const std::vector<std::string_view>& candidates)
{
    std::string_view nearest;
    std::size_t least = std::numeric_limits<std::size_t>::max();
    for (const std::string_view candidate : candidates) {
        const std::size_t edits = distance(name, candidate);
        if (edits < least) {
            least = edits;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace cio
