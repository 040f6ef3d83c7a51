#include "cli/size_text.h"

#include "cli/failure.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace cio
{

std::uint64_t parse_size(const std::string& text)
{
    constexpr std::string_view suffixes = "KMGT";
    constexpr std::uint64_t largest = std::numeric_limits<std::int64_t>::max();
    const auto refuse = [&text]() {
        throw Usage_Error("'" + text + "' is no size (digits, then perhaps K, M, G or T)");
    };
    std::uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || end - rest > 1)
        refuse();
    unsigned shift = 0;
    if (rest != end) {
        const std::size_t suffix = suffixes.find(*rest);
        if (suffix == std::string_view::npos)
            refuse();
        shift = 10 * (static_cast<unsigned>(suffix) + 1);
    }
    if (value > largest >> shift)
        refuse();
    return value << shift;
}

} // namespace cio
