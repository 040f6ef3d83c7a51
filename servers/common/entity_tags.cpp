#include "servers/common/entity_tags.h"

bool names_entity_tag(std::string_view list, std::string_view tag, bool weak)
{
    constexpr std::string_view between = " \t,";
    if (list == "*")
        return true;
    while (true) {
        const std::size_t start = list.find_first_not_of(between);
        if (start == std::string_view::npos)
            return false;
        list.remove_prefix(start);
        const bool is_weak = list.starts_with("W/");
        if (is_weak)
            list.remove_prefix(2);
        // A tag is quoted and may hold commas.
        const std::size_t end = list.starts_with('"') ? list.find('"', 1) : std::string_view::npos;
        if (end == std::string_view::npos)
            return false;
        if (list.substr(0, end + 1) == tag && (weak || !is_weak))
            return true;
        list.remove_prefix(end + 1);
    }
}
