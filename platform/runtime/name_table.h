#pragma once

#include <string_view>

/// Compares names without regard to the case of ASCII letters, whatever the locale.
constexpr bool equal_names(std::string_view left, std::string_view right)
{
    constexpr auto lower = [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    };
    if (left.size() != right.size())
        return false;
    for (std::size_t i = 0; i < left.size(); ++i)
        if (lower(left[i]) != lower(right[i]))
            return false;
    return true;
}
