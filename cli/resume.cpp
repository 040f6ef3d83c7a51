#include "cli/resume.h"

#include "cli/environment.h"
#include "cli/local_path.h"
#include "cli/output.h"
#include "cli/path_rules.h"
#include "platform/json/json_value.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "platform/runtime/path.h"

#include <algorithm>
#include <string_view>

namespace cio
{
namespace
{

constexpr unsigned short private_directory = 0700;
constexpr std::uint64_t largest_record = 4096;

// FNV-1a with its published offset basis and prime.
std::uint64_t hash(std::string_view text, std::uint64_t seed)
{
    std::uint64_t value = 14695981039346656037U ^ seed;
    for (const char c : text) {
        value ^= static_cast<unsigned char>(c);
        value *= 1099511628211U;
    }
    return value;
}

std::string hexadecimal(std::uint64_t value)
{
    std::string text(16, '0');
    for (std::size_t i = text.size(); i > 0; value >>= 4U)
        text[--i] = "0123456789abcdef"[value & 15U];
    return text;
}

std::string state_directory()
{
    std::string state = environment_variable("XDG_STATE_HOME");
    if (state.empty())
        state = user_state_directory();
    return state.empty() ? std::string() : join_path(state, "cio");
}

/// One name for one place, however the URI was written.
std::string place_of(const Target& target, const std::string& remote)
{
    if (const auto local = target.local_path(remote))
        return absolute_path(*local);
    const std::string path = join_path(target.uri.path(false), remote);
    std::string names;
    for (std::size_t at = 0; at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (end > at)
            names += '/' + path.substr(at, end - at);
        at = end + 1;
    }
    return target.uri.scheme() + "://" + target.uri.host(true) + ':' +
           std::to_string(target.uri.port()) + names;
}

} // namespace

bool same_contents(const Source_Version& one, const Source_Version& other)
{
    const bool tagged = !one.tag.empty() && !other.tag.empty();
    return one.size == other.size && (tagged ? one.tag == other.tag : one.mtime == other.mtime);
}

Resume_Record::Resume_Record(const char* direction, const Target& target, const std::string& remote,
                             const std::string& local)
{
    const std::string directory = state_directory();
    if (directory.empty())
        return;
    std::string key;
    for (const std::string& part :
         {std::string(direction), place_of(target, remote), absolute_path(local)})
        key += part + '\0';
    path_ = join_path(directory, hexadecimal(hash(key, 0)) + hexadecimal(hash(key, key.size())));
    path_ += ".json";
}

std::optional<Source_Version> Resume_Record::load() const
{
    File_Reader reader;
    char* data = nullptr;
    std::int64_t size = 0;
    json_spirit::Value document;
    Source_Version version;
    const bool read =
        !path_.empty() &&
        reader.open(path_.c_str(), O_RDONLY, File_Options{}, file_system::share_all, false) &&
        reader.read(data, size) && size > 0 && static_cast<std::uint64_t>(size) <= largest_record &&
        loads_json(std::string(data, static_cast<std::size_t>(size)), document) &&
        document.is_object();
    if (!read)
        return std::nullopt;
    const auto& object = document.get_ref<const json_spirit::Object&>();
    if (!json_spirit::object_get(object, "size", version.size) ||
        !json_spirit::object_get(object, "mtime", version.mtime))
        return std::nullopt;
    json_spirit::object_get(object, "tag", version.tag);
    return version;
}

void Resume_Record::store(const Source_Version& version) const
{
    if (version.mtime == 0 && version.tag.empty())
        return remove();
    if (path_.empty() || mkdir_p(parent_path(path_).c_str(), private_directory, {}) != 0)
        return;
    json_spirit::Object object{{"size", version.size}, {"mtime", version.mtime}};
    if (is_utf8(version.tag)) // another one could not be read again
        object["tag"] = version.tag;
    const std::string text = JSON_Dump(object, false);
    // A record that is only half written must never be read.
    const std::string temporary = path_ + ".new";
    File_Writer writer;
    const bool written = writer.open(temporary.c_str(), O_CREAT | O_TRUNC, true,
                                     file_system::share_all, File_Options{}) &&
                         writer.write(text.data(), text.size(), nullptr) && writer.close();
    if (!written || !file_system::rename(temporary.c_str(), path_.c_str()))
        (void)file_system::remove(temporary.c_str());
}

void Resume_Record::remove() const
{
    if (!path_.empty())
        (void)file_system::remove(path_.c_str());
}

std::string obstacle_to_continuing(const Partial_File& partial, const Source_Version& source,
                                   std::int64_t source_seconds,
                                   const std::optional<Source_Version>& record)
{
    if (partial.size > source.size)
        return "it is longer than its source";
    if (record && !same_contents(*record, source))
        return "its source has changed";
    if (!record && partial.mtime < source_seconds)
        return "its source is newer";
    return {};
}

std::uint64_t start_of_comparison(std::uint64_t size, const std::optional<Source_Version>& record)
{
    return record ? size - std::min(size, worth_continuing) : 0;
}

std::string obstacle_of_target(const Target& target, const std::string& remote)
{
    if (!target.transforms(remote))
        return {};
    return target.options.encryption_algorithm != ENCRYPTION_NONE
               ? "an encrypted file cannot be continued"
               : "a compressed file cannot be continued";
}

} // namespace cio
