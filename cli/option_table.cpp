#include "cli/option_table.h"

#include "cli/environment.h"
#include "cli/failure.h"
#include "cli/nearest_name.h"
#include "cli/transform_flags.h"
#include "cli/transform_rules.h"
#include "platform/runtime/base64.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "platform/runtime/posix_error.h"

#include <limits>
#include <openssl/crypto.h>
#include <set>

namespace cio
{
namespace
{

using json_spirit::Object;
using json_spirit::Value;

enum class Type
{
    boolean,
    int32,
    uint64,
    text,
    compression,
    encryption,
    key,
    iv,
    rate_control,
    node_addrs,
    text_object,
};

struct Option_Row
{
    const char* key;
    Type type;
    const char* help;
};

constexpr Option_Row rows[] = {
    {"overwrite", Type::boolean, "existing files may be replaced"},
    {"socket_timeout", Type::int32, "seconds a network operation may take"},
    {"max_retry", Type::uint64, "seconds for which failed operations are repeated, 0 = never"},
    {"resumption_buffer_size", Type::uint64, "bytes kept for repeating a write"},
    {"forward", Type::boolean, "asks the target to pass the data on"},
    {"max_bytes_per_second", Type::uint64, "bandwidth limit, 0 = none"},
    {"rate_control", Type::rate_control,
     R"(limits for periods of the day: [{"start_time":S,"end_time":S,"max_bytes_per_second":N}, ...])"},
    {"compression", Type::compression, "none, auto, lzop or zstd"},
    {"compression_level", Type::int32, "level of the method (needs compression)"},
    {"encryption", Type::encryption, "cipher, by its OpenSSL name such as aes-256-cbc"},
    {"key", Type::key, "encryption key, base64 (better: --key-file or CIO_ENCRYPTION_KEY)"},
    {"iv", Type::iv, "initialization vector, base64 (better: --key-file or CIO_ENCRYPTION_IV)"},
    {"dedup_chunk_size", Type::uint64, "bytes, 0 = as the server wants"},
    {"dedup_max_memory", Type::uint64, "bytes, 0 = default"},
    {"flush_after_write", Type::boolean, "asks the target to store data at once"},
    {"access_key", Type::text, "name of an object store's account (better: CIO_ACCESS_KEY)"},
    {"secret_key", Type::text, "its secret (better: CIO_SECRET_KEY)"},
    {"preferred_source_address", Type::text, "local address that connections start from"},
    {"d2t_access_mode", Type::int32, "access mode of a tape service"},
    {"node_addrs", Type::node_addrs,
     R"(addresses of a dedup store's nodes: [{"node_id":N,"address":"A"}, ...])"},
    {"extra_opts", Type::text_object, "further options by name; also as extra_opts.NAME=VALUE"},
};

constexpr std::string_view extra_prefix = "extra_opts.";
constexpr std::uint64_t max_options_file = 1U << 20U;

const Option_Row* find_row(std::string_view key)
{
    for (const Option_Row& row : rows)
        if (key == row.key)
            return &row;
    return nullptr;
}

const char* type_name(Type type)
{
    switch (type) {
    case Type::boolean:
        return "boolean";
    case Type::int32:
        return "integer (32 bits, signed)";
    case Type::uint64:
        return "integer (not negative)";
    case Type::text:
        return "string";
    case Type::compression:
        return "string (name of a compression method)";
    case Type::encryption:
        return "string (name of a cipher)";
    case Type::key:
        return "string (base64 of 1 to 64 bytes)";
    case Type::iv:
        return "string (base64 of at most 16 bytes)";
    case Type::rate_control:
    case Type::node_addrs:
        return "array of objects";
    case Type::text_object:
        return "object whose members are strings";
    }
    return "";
}

template <class Integer>
bool fits(const Value& value)
{
    if (value.is_number_unsigned())
        return value.get<std::uint64_t>() <=
               static_cast<std::uint64_t>(std::numeric_limits<Integer>::max());
    if (!value.is_number_integer())
        return false;
    const auto number = value.get<std::int64_t>();
    if constexpr (std::numeric_limits<Integer>::is_signed)
        return number >= std::numeric_limits<Integer>::min() &&
               number <= std::numeric_limits<Integer>::max();
    else
        return number >= 0;
}

bool has_members(const Value& array,
                 const std::vector<std::pair<const char*, bool (*)(const Value&)>>& members)
{
    if (!array.is_array())
        return false;
    for (const Value& element : array) {
        if (!element.is_object() || element.size() != members.size())
            return false;
        for (const auto& [name, serves] : members) {
            const auto member = element.find(name);
            if (member == element.end() || !serves(*member))
                return false;
        }
    }
    return true;
}

bool is_text(const Value& value)
{
    return value.is_string();
}

bool is_base64(const Value& value, std::size_t least, std::size_t most)
{
    std::string bytes;
    return value.is_string() &&
           Base64_Decoder::decode(value.get_ref<const std::string&>(), bytes) &&
           bytes.size() >= least && bytes.size() <= most;
}

bool is_name(const Value& value, int (*name_to_value)(const char*, int))
{
    constexpr int unknown = -1;
    return value.is_string() &&
           name_to_value(value.get_ref<const std::string&>().c_str(), unknown) != unknown;
}

bool serves(Type type, const Value& value)
{
    switch (type) {
    case Type::boolean:
        return value.is_boolean();
    case Type::int32:
        return fits<std::int32_t>(value);
    case Type::uint64:
        return fits<std::uint64_t>(value);
    case Type::text:
        return value.is_string();
    case Type::compression:
        return is_name(value, compression_name_to_value);
    case Type::encryption:
        return is_name(value, encryption_name_to_value);
    case Type::key:
        return is_base64(value, 1, 64);
    case Type::iv:
        return is_base64(value, 0, 16);
    case Type::rate_control:
        return has_members(value, {{"start_time", fits<std::int32_t>},
                                   {"end_time", fits<std::int32_t>},
                                   {"max_bytes_per_second", fits<std::uint64_t>}});
    case Type::node_addrs:
        return has_members(value, {{"node_id", fits<std::int32_t>}, {"address", is_text}});
    case Type::text_object: {
        bool all = value.is_object();
        if (all)
            for (const Value& member : value)
                all = all && member.is_string();
        return all;
    }
    }
    return false;
}

[[noreturn]] void refuse_key(const std::string& where, std::string_view key)
{
    std::vector<std::string_view> names;
    for (const Option_Row& row : rows)
        names.emplace_back(row.key);
    throw Usage_Error(where + "unknown option '" + std::string(key) + "', did you mean '" +
                      std::string(nearest_name(key, names)) + "'?");
}

/// The name that comes nearest to a value which should have been a name; "" for other types.
std::string name_hint(Type type, const Value& value)
{
    if (!value.is_string() || (type != Type::compression && type != Type::encryption))
        return {};
    std::vector<std::string_view> names;
    if (type == Type::compression)
        names = {"none", "auto", "lzop", "zstd"};
    else
        for (int number = ENCRYPTION_NONE + 1;; ++number) {
            const char* name =
                encryption_value_to_name(static_cast<Encryption_Algorithm>(number), false);
            if (name == nullptr)
                break;
            names.emplace_back(name);
        }
    const auto& given = value.get_ref<const std::string&>();
    return "'" + given + "' is unknown, did you mean '" + std::string(nearest_name(given, names)) +
           "'?";
}

void wipe(Value& value)
{
    if (auto* text = value.get_ptr<std::string*>())
        OPENSSL_cleanse(text->data(), text->size());
}

/// The settings as they are put together; the secret ones are wiped when they go.
class Settings
{
public:
    Settings() = default;
    ~Settings()
    {
        for (const char* key : {"key", "iv", "secret_key"})
            if (const auto found = members.find(key); found != members.end())
                wipe(found->second);
    }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

    void set(const std::string& where, const std::string& origin, const std::string& key,
             Value value);
    void merge_flag(Flag_Setting setting);

    Object members;
    Setting_Origins origins;
    std::set<std::string> assigned; ///< the keys that assignments have set
};

/// @param where   in front of the text of a refusal
/// @param origin  where the setting comes from
void Settings::set(const std::string& where, const std::string& origin, const std::string& key,
                   Value value)
{
    const Option_Row* row = find_row(key);
    if (row == nullptr)
        refuse_key(where, key);
    if (!serves(row->type, value)) {
        const std::string hint = name_hint(row->type, value);
        throw Usage_Error(where + "option '" + key + "' must be a value of type " +
                          type_name(row->type) + (hint.empty() ? "" : "; ") + hint);
    }
    origins[key] = origin;
    if (row->type != Type::text_object) {
        wipe(members[key]);
        members[key] = std::move(value);
        return;
    }
    Value& extra = members.try_emplace(key, Value::object()).first->second;
    extra.update(value);
}

/// Whether two values of an option mean the same, though they may be written differently.
bool same_setting(Type type, const Value& a, const Value& b)
{
    if (type == Type::compression || type == Type::encryption) {
        const auto number = [type](const Value& name) {
            const char* text = name.get_ref<const std::string&>().c_str();
            return type == Type::compression ? compression_name_to_value(text, -1)
                                             : encryption_name_to_value(text, -1);
        };
        return number(a) == number(b);
    }
    return a == b;
}

void Settings::merge_flag(Flag_Setting setting)
{
    const std::string flag = setting.flag;
    const Option_Row& row = *find_row(setting.key);
    const std::string hint =
        serves(row.type, setting.value) ? "" : name_hint(row.type, setting.value);
    if (!hint.empty())
        throw Usage_Error(flag + ": " + hint);
    if (assigned.contains(row.key) && !same_setting(row.type, members[row.key], setting.value)) {
        wipe(setting.value);
        throw Usage_Error(flag + " and -o " + row.key + " contradict each other");
    }
    set(flag + ": ", flag, row.key, std::move(setting.value));
}

std::string read_small_file(const std::string& path)
{
    const auto refuse = [&path](const std::string& why) {
        throw Usage_Error("options file " + path + ": " + why);
    };
    File_Reader reader;
    std::string text;
    char* data = nullptr;
    std::int64_t size = 0;
    if (!reader.open(path.c_str(), O_RDONLY, File_Options{}, file_system::share_all, false))
        refuse(POSIX_Error(reader.last_error(), 1).str());
    do {
        if (!reader.read(data, size))
            refuse(POSIX_Error(reader.last_error(), 1).str());
        text.append(data, static_cast<std::size_t>(size));
        if (text.size() > max_options_file)
            refuse("it is larger than 1 MiB");
    } while (size > 0);
    return text;
}

void read_file(Settings& settings, const std::string& path)
{
    const std::string where = "options file " + path + ": ";
    Value document;
    std::string error;
    if (!loads_json(read_small_file(path), document, &error))
        throw Usage_Error(where + error);
    if (!document.is_object())
        throw Usage_Error(where + "it must hold one JSON object");
    for (const auto& [key, value] : document.items())
        settings.set(where, "options file " + path, key, value);
}

void read_environment(Settings& settings)
{
    static constexpr std::pair<const char*, const char*> variables[] = {
        {"CIO_ACCESS_KEY", "access_key"},
        {"CIO_SECRET_KEY", "secret_key"},
        {"CIO_ENCRYPTION_KEY", "key"},
        {"CIO_ENCRYPTION_IV", "iv"},
    };
    for (const auto& [variable, key] : variables)
        if (std::string value = environment_variable(variable); !value.empty()) {
            const std::string origin = std::string("environment variable ") + variable;
            settings.set(origin + ": ", origin, key, std::move(value));
        }
}

/// A value written on the command line as the JSON value that its key asks for; one that does not
/// look like it stays a string, which Settings::set() then refuses.
Value parse_value(Type type, const std::string& text)
{
    switch (type) {
    case Type::boolean:
        if (text == "true" || text == "1")
            return true;
        if (text == "false" || text == "0")
            return false;
        return text;
    case Type::int32:
    case Type::uint64:
    case Type::rate_control:
    case Type::node_addrs:
    case Type::text_object: {
        Value value;
        return loads_json(text, value) ? value : Value(text);
    }
    default:
        return text;
    }
}

void read_assignment(Settings& settings, const std::string& assignment)
{
    const std::size_t equals = assignment.find('=');
    const std::string key = assignment.substr(0, equals);
    const bool extra = key.starts_with(extra_prefix) && key.size() > extra_prefix.size();
    const Option_Row* row = find_row(extra ? "extra_opts" : std::string_view(key));
    if (row == nullptr)
        refuse_key("", key);
    if (equals == std::string::npos)
        throw Usage_Error("option '" + key + "' lacks its value (-o " + key + "=VALUE)");
    const std::string text = assignment.substr(equals + 1);
    const std::string origin = "option '" + std::string(row->key) + "'";
    settings.assigned.insert(row->key);
    if (extra)
        settings.set("", origin, row->key, Value{{key.substr(extra_prefix.size()), text}});
    else
        settings.set("", origin, key, parse_value(row->type, text));
}

} // namespace

Client_IO_Base::Options read_options(const Option_Sources& sources,
                                     std::vector<std::string>* warnings)
{
    Settings settings;
    if (sources.file && sources.file->empty())
        throw Usage_Error("--options needs the name of a file");
    if (sources.file)
        read_file(settings, *sources.file);
    read_environment(settings);
    for (const std::string& assignment : sources.assignments)
        read_assignment(settings, assignment);
    for (Flag_Setting& setting : read_flags(sources.flags, warnings))
        settings.merge_flag(std::move(setting));
    check_transforms(settings.members, settings.origins);

    // The library knows "none" as an encryption that nobody asked for.
    const auto encryption = settings.members.find("encryption");
    if (encryption != settings.members.end()) {
        const auto& name = encryption->second.get_ref<const std::string&>();
        if (encryption_name_to_value(name.c_str(), -1) == ENCRYPTION_NONE)
            settings.members.erase(encryption);
    }
    Client_IO_Base::Options options;
    if (!(options << settings.members))
        throw Usage_Error("options 'encryption', 'key' and 'iv' do not serve together");
    return options;
}

std::string option_help()
{
    std::string text = "Options of a connection, for -o KEY=VALUE and for the JSON object in an\n"
                       "--options file:\n\n";
    for (const Option_Row& row : rows) {
        std::string line = "  ";
        line += row.key;
        line.resize(std::max<std::size_t>(line.size() + 1, 28), ' ');
        text += line + type_name(row.type) + "\n" + std::string(28, ' ') + row.help + "\n";
    }
    text +=
        "\nput, get, cat, verify and image have --compress, --level, --encrypt, --key-file and\n"
        "--limit for compression, compression_level, encryption, key and iv, and the limits.\n"
        "\nOther users of the machine can see a command line: give secrets through --key-file,\n"
        "the environment or an --options file that only you can read.\n";
    return text;
}

std::vector<std::string> option_keys()
{
    std::vector<std::string> keys;
    for (const Option_Row& row : rows)
        keys.emplace_back(row.key);
    return keys;
}

} // namespace cio
