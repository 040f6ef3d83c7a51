#pragma once

#include <string>
#include <string_view>

/// A client's path that may be looked up: relative to the root, one `/` between names, none of them
/// ".", "..", reserved or too long. Empty for the root.
class Storage_Path
{
public:
    /// What names of the tree's own begin with; no client sees or names them.
    static constexpr std::string_view reserved = ".cio-";

    /// @param path  as a client names it, see Storage_Tree
    /// @return false when no tree holds such a name
    [[nodiscard]] bool parse(std::string_view path);

    bool is_root() const { return text_.empty(); }
    const std::string& text() const { return text_; }
    std::string_view parent() const;
    /// The last name.
    const char* name() const;
    /// Whether this path, as it is written, lies below @p other.
    bool is_below(const Storage_Path& other) const;

private:
    std::string text_;
};

bool is_reserved(std::string_view name);
