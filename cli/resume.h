#pragma once

#include "cli/connection.h"

#include <cstdint>
#include <optional>
#include <string>

namespace cio
{

/// What tells whether a source is still the one that a partial file was begun from.
struct Source_Version
{
    std::uint64_t size = 0;
    /// In the source's own unit: nanoseconds here, seconds on targets; 0 = unknown.
    std::int64_t mtime = 0;
    /// What an open file of a target says of its contents ("file_version"), empty when it says
    /// nothing or was not opened.
    std::string tag{};

    bool operator==(const Source_Version&) const = default;
};

/// Whether both can be the same contents: sizes and tags, or sizes and times where a tag is
/// missing.
[[nodiscard]] bool same_contents(const Source_Version& one, const Source_Version& other);

/// A partial file as it was found at the destination.
struct Partial_File
{
    std::uint64_t size = 0;
    std::int64_t mtime = 0; ///< POSIX seconds
};

/// Files from this size on get a record; smaller ones are repeated rather than continued when an
/// interruption meets them. Also how much of a partial file's end is compared with its source when
/// a record vouches for the rest; without one all of it is compared.
constexpr std::uint64_t worth_continuing = 1U << 20U;

/// Remembers between two runs from which version of its source a file's transfer was begun.
///
/// One small JSON file a transfer below $XDG_STATE_HOME/cio (or ~/.local/state/cio, on Windows
/// %LOCALAPPDATA%\cio), named by a hash of where from and where to. Where it cannot be kept,
/// nothing fails: without a record the partial file is compared with its source byte by byte.
class Resume_Record
{
public:
    /// @param direction  "put" or "get"
    Resume_Record(const char* direction, const Target& target, const std::string& remote,
                  const std::string& local);

    std::optional<Source_Version> load() const;
    /// A version without time and tag, which says nothing, leaves no record.
    void store(const Source_Version& version) const;
    void remove() const;

private:
    std::string path_; // empty: records cannot be kept
};

/// Why a partial file cannot be continued, empty when it can as far as sizes and times tell.
/// @param source_seconds  modification time of the source in POSIX seconds
[[nodiscard]] std::string obstacle_to_continuing(const Partial_File& partial,
                                                 const Source_Version& source,
                                                 std::int64_t source_seconds,
                                                 const std::optional<Source_Version>& record);

/// Where to begin comparing a partial file of @p size bytes with its source.
[[nodiscard]] std::uint64_t start_of_comparison(std::uint64_t size,
                                                const std::optional<Source_Version>& record);

/// Why no file of this name can be continued on this target, empty when it can.
[[nodiscard]] std::string obstacle_of_target(const Target& target, const std::string& remote);

} // namespace cio
