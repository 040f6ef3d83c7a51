#pragma once

#include "cli/failure.h"
#include "client_io/client_io.h"

#include <cstdint>
#include <optional>
#include <string>

namespace cio
{

class Reporter;

/// The target of a command: its address and the settings of every connection to it.
struct Target
{
    std::string uri_text;
    URI uri;
    Client_IO_Base::Options options;
    bool create = false; ///< whether a missing base directory of a local target may be created

    /// Whether the stored bytes differ from the user's (compressed or encrypted), so that offsets
    /// and sizes of the two have nothing to do with each other.
    bool transforms(const std::string& path) const;
    /// How many bytes the contents of a file have that takes @p stored bytes in the target; nothing
    /// when only reading it can tell.
    std::optional<std::uint64_t> contents_size(const std::string& path, std::uint64_t stored) const;
    /// For a target on this machine the local path of @p path; nothing for others.
    std::optional<std::string> local_path(const std::string& path) const;
};

/// Reads the URI of a target. Throws Usage_Error when it cannot be one ("Invalid URI") or names
/// local files of another machine.
[[nodiscard]] Target make_target(const std::string& uri_text,
                                 const Client_IO_Base::Options& options, bool create);

/// One connection to a target, established when it is first needed. One object serves one thread.
class Connection
{
public:
    /// @param sharers  connections that work at once, this one included, and share the limit of the
    ///                 options
    explicit Connection(const Target& target, unsigned sharers = 1)
        : target_(target), sharers_(sharers)
    {}

    /// @return the connected object, NULL on failure
    [[nodiscard]] Client_IO* open(Failure& failure);
    /// The same; a failure is told to @p report.
    [[nodiscard]] Client_IO* open(Reporter& report);

private:
    const Target& target_;
    const unsigned sharers_;
    Client_IO io_;
    bool connected_ = false;
};

/// Whether @p text looks like a URI, to tell it from paths: a scheme, then "://".
[[nodiscard]] bool looks_like_uri(const std::string& text);

/// The entry of @p path (of target_path()'s form) as its directory's listing shows it; the root
/// has no name and no time.
/// @return nothing on failure (@p failure)
[[nodiscard]] std::optional<Client_IO_Base::Directory_Entry>
find_entry(Client_IO& io, const std::string& path, Failure& failure);

} // namespace cio
