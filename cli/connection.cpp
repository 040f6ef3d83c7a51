#include "cli/connection.h"

#include "cli/limit.h"
#include "cli/path_rules.h"
#include "cli/reporter.h"
#include "platform/runtime/file_system.h"

#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>

namespace cio
{
namespace
{

/// A URI that is refused may hold a password, which must not be shown.
std::string without_credentials(const std::string& uri)
{
    const std::size_t start = uri.find("://");
    const std::size_t at = uri.rfind('@');
    if (start == std::string::npos || at == std::string::npos || at < start)
        return uri;
    return uri.substr(0, start + 3) + "***" + uri.substr(at);
}

} // namespace

bool Target::transforms(const std::string& path) const
{
    if (options.encryption_algorithm != ENCRYPTION_NONE)
        return true;
    if (options.compression != COMPRESSION_AUTO)
        return options.compression != COMPRESSION_NONE;
    const std::size_t dot = path.rfind('.');
    return dot != std::string::npos &&
           compression_suffix_to_value(path.c_str() + dot, COMPRESSION_NONE) != COMPRESSION_NONE;
}

std::optional<std::uint64_t> Target::contents_size(const std::string& path,
                                                   std::uint64_t stored) const
{
    return transforms(path) ? std::nullopt : std::optional<std::uint64_t>(stored);
}

std::optional<std::string> Target::local_path(const std::string& path) const
{
    if (uri.scheme() != "file")
        return std::nullopt;
    return path.empty() ? uri.path(false) : join_path(uri.path(false), path);
}

Target make_target(const std::string& uri_text, const Client_IO_Base::Options& options, bool create)
{
    Target target{uri_text, {}, options, create};
    const bool parsed = URI_Parser::parse(uri_text.c_str(), target.uri);
    // "http://HOST" means its root, as everywhere.
    if (parsed && target.uri.path(false).empty() && !target.uri.host(false).empty())
        target.uri.path("/", false);
    if (!parsed || target.uri.path(false).empty())
        throw Usage_Error(without_credentials(uri_text) + ": Invalid URI");
    const std::string host = target.uri.host(false);
    // On Windows it is the server of a network share.
    if (!is_windows && target.uri.scheme() == "file" && !host.empty() && host != "localhost")
        throw Usage_Error(uri_text + ": a file URI cannot name another machine (" + host +
                          "); write file:///PATH");
    return target;
}

Client_IO* Connection::open(Failure& failure)
{
    if (connected_)
        return &io_;
    const std::optional<std::string> base = target_.local_path("");
    file_system::Status status;
    // Connecting creates a missing base directory, which a command that only reads shall not.
    if (base && !target_.create && !file_system::status(base->c_str(), true, status)) {
        failure = system_failure("Target directory " + *base, ACE_OS::last_error());
        return nullptr;
    }
    Client_IO_Base::Options options = target_.options;
    divide_limit(options, sharers_);
    connected_ = io_.connect(target_.uri, options);
    if (connected_)
        return &io_;
    failure = target_failure(io_);
    // "exists" is about the files of a command, not about what stands in the way of the target.
    if (failure.code == exit_exists)
        failure.code = exit_failed;
    return nullptr;
}

Client_IO* Connection::open(Reporter& report)
{
    Failure failure;
    Client_IO* io = open(failure);
    if (io == nullptr)
        report.error(target_.uri_text, failure);
    return io;
}

bool looks_like_uri(const std::string& text)
{
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const std::size_t end = text.find("://");
    if (end == std::string::npos || end == 0 || !letter(text[0]))
        return false;
    const auto allowed = [&letter](char c) {
        return letter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    return std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), allowed);
}

std::optional<Client_IO_Base::Directory_Entry> find_entry(Client_IO& io, const std::string& path,
                                                          Failure& failure)
{
    Client_IO_Base::Directory_Entry found;
    std::vector<Client_IO_Base::Directory_Entry> entries;
    if (path.empty()) {
        found.is_dir = true;
        return found;
    }
    if (!io.get_dir(parent_path(path).c_str(), entries)) {
        failure = target_failure(io);
        return std::nullopt;
    }
    const std::string name = last_name(path);
    for (Client_IO_Base::Directory_Entry& entry : entries)
        if (entry.name == name)
            return std::move(entry);
    failure = system_failure("No such entry in the target", os_error::no_such_file);
    return std::nullopt;
}

} // namespace cio
