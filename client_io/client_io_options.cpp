#include "client_io/client_io_base.h"
#include "platform/json/json_value.h"
#include "platform/runtime/base64.h"
#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

using Options = Client_IO_Base::Options;

namespace
{

constexpr const char* d2t_rpc_host_key = "D2T_RPC_HOST";
constexpr const char* d2t_rpc_port_key = "D2T_RPC_PORT";

/// Decoded key material, wiped when it goes.
struct Secret
{
    std::string bytes;

    Secret() = default;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { OPENSSL_cleanse(bytes.data(), bytes.size()); }
};

void wipe(std::string& text)
{
    OPENSSL_cleanse(text.data(), text.size());
    text.clear();
}

/// A member of the wrong type is passed over, but not silently.
void warn_wrong_type(const char* key)
{
    ACE_ERROR((LM_WARNING, ACE_TEXT("Option %C is of the wrong type, ignored\n"), key));
}

template <class Field>
void take(const json_spirit::Object& obj, const char* key, Field& field)
{
    if (!json_spirit::object_get(obj, key, field) && json_spirit::object_get(obj, key) != nullptr)
        warn_wrong_type(key);
}

/// The member @p key when it is there and of the asked kind, else NULL.
template <class Kind>
const Kind* find(const json_spirit::Object& obj, const char* key)
{
    const json_spirit::Value* value = json_spirit::object_get(obj, key);
    if (value == nullptr)
        return nullptr;
    const Kind* found = value->get_ptr<const Kind*>();
    if (found == nullptr)
        warn_wrong_type(key);
    return found;
}

/// The text of a name for a look-up; NULL, which no table knows, when it would be cut at a NUL.
const char* whole_name(const std::string& name)
{
    return name.find('\0') == std::string::npos ? name.c_str() : nullptr;
}

/// Appends the entries of a schedule up to the first that is not one.
/// @return what is wrong with that one, empty when all were read
std::string read_rate_control(const json_spirit::Array& schedule,
                              std::vector<Rate_Control_Entry>& entries)
{
    for (const json_spirit::Value& element : schedule) {
        if (!element.is_object())
            return "an element is not an object";
        const auto& object = element.get_ref<const json_spirit::Object&>();
        Rate_Control_Entry entry(0, 0, 0);
        if (!json_spirit::object_get(object, "start_time", entry.start_time))
            return "start_time is not a 32-bit integer";
        if (!json_spirit::object_get(object, "end_time", entry.end_time))
            return "end_time is not a 32-bit integer";
        if (!json_spirit::object_get(object, "max_bytes_per_second", entry.max_bytes_per_second))
            return "max_bytes_per_second is not a 64-bit integer";
        entries.push_back(entry);
    }
    return {};
}

} // namespace

Options::Options() = default;
Options::Options(const Options&) = default;
Options& Options::operator=(const Options&) = default;

Options::~Options()
{
    OPENSSL_cleanse(encryption_key, sizeof encryption_key);
    OPENSSL_cleanse(encryption_iv, sizeof encryption_iv);
    wipe(secret_key);
}

bool Options::operator<<(const std::map<std::string, json_spirit::Value>& obj)
{
    take(obj, "overwrite", overwrite);
    take(obj, "socket_timeout", socket_timeout);
    take(obj, "max_retry", max_retry);
    take(obj, "resumption_buffer_size", resumption_buffer_size);
    take(obj, "forward", forward);
    take(obj, "max_bytes_per_second", max_bytes_per_second);
    take(obj, "dedup_chunk_size", dedup_chunk_size);
    take(obj, "dedup_max_memory", dedup_max_memory);
    take(obj, "flush_after_write", flush_after_write);
    take(obj, "access_key", access_key);
    take(obj, "secret_key", secret_key);
    take(obj, "preferred_source_address", preferred_source_address);
    take(obj, "d2t_access_mode", d2t_access_mode);

    if (const auto* schedule = find<json_spirit::Array>(obj, "rate_control")) {
        rate_control.clear();
        const std::string reason = read_rate_control(*schedule, rate_control);
        if (!reason.empty())
            ACE_ERROR((LM_ERROR, ACE_TEXT("Failed to parse rate control entries: %s.\n"),
                       reason.c_str()));
    }

    if (const auto* name = find<std::string>(obj, "compression")) {
        compression =
            static_cast<Compression_Method>(compression_name_to_value(whole_name(*name), -1));
        take(obj, "compression_level", compression_level);
    }

    if (const auto* name = find<std::string>(obj, "encryption")) {
        Secret key;
        Secret iv;
        take(obj, "key", key.bytes);
        take(obj, "iv", iv.bytes);
        if (!set_encryption_from_base64(whole_name(*name), key.bytes, iv.bytes))
            return false;
    }

    if (const auto* extra = find<json_spirit::Object>(obj, "extra_opts")) {
        for (const auto& [key, value] : *extra)
            if (value.is_string())
                extra_options[key] = value.get_ref<const std::string&>();
    }

    if (const auto* nodes = find<json_spirit::Array>(obj, "node_addrs")) {
        for (const json_spirit::Value& element : *nodes) {
            if (!element.is_object())
                continue;
            const auto& node = element.get_ref<const json_spirit::Object&>();
            std::int32_t id = 0;
            std::string address;
            if (json_spirit::object_get(node, "node_id", id) &&
                json_spirit::object_get(node, "address", address) && id != 0 && !address.empty())
                node_addrs[id] = address;
        }
    }
    return true;
}

void Options::operator>>(std::map<std::string, json_spirit::Value>& obj) const
{
    const char* method =
        compression == COMPRESSION_NONE ? nullptr : compression_value_to_name(compression);
    obj["overwrite"] = overwrite;
    obj["socket_timeout"] = socket_timeout;
    obj["max_retry"] = max_retry;
    obj["resumption_buffer_size"] = resumption_buffer_size;
    obj["forward"] = forward;
    obj["max_bytes_per_second"] = max_bytes_per_second;
    obj["compression"] = method != nullptr ? method : "";
    obj["compression_level"] = compression_level;
    obj["dedup_chunk_size"] = dedup_chunk_size;
    obj["dedup_max_memory"] = dedup_max_memory;
    obj["flush_after_write"] = flush_after_write;
    obj["access_key"] = access_key;
    obj["secret_key"] = secret_key;
    obj["preferred_source_address"] = preferred_source_address;
    obj["d2t_access_mode"] = d2t_access_mode;

    if (!rate_control.empty()) {
        json_spirit::Array schedule;
        for (const Rate_Control_Entry& entry : rate_control)
            schedule.push_back(
                json_spirit::Object{{"start_time", entry.start_time},
                                    {"end_time", entry.end_time},
                                    {"max_bytes_per_second", entry.max_bytes_per_second}});
        obj["rate_control"] = std::move(schedule);
    }

    if (encryption_algorithm != ENCRYPTION_NONE) {
        // A failed setter may leave a length that its array does not have.
        const char* name = encryption_value_to_name(encryption_algorithm, false);
        obj["encryption"] = name != nullptr ? name : "";
        obj["key"] =
            Base64_Encoder::encode(encryption_key, std::min(encryption_key_len, max_key_len));
        obj["iv"] = Base64_Encoder::encode(encryption_iv, std::min(encryption_iv_len, max_iv_len));
    }

    json_spirit::Object extra;
    for (const auto& [key, value] : extra_options)
        extra[key] = value;
    obj["extra_opts"] = std::move(extra);

    if (!node_addrs.empty()) {
        json_spirit::Array nodes;
        for (const auto& [id, address] : node_addrs)
            nodes.push_back(json_spirit::Object{{"node_id", id}, {"address", address}});
        obj["node_addrs"] = std::move(nodes);
    }
}

bool Options::set_encryption_from_binary(Encryption_Algorithm algorithm, const unsigned char* key,
                                         std::uint64_t key_len, const unsigned char* iv,
                                         std::uint64_t iv_len)
{
    if (algorithm == ENCRYPTION_NONE) {
        encryption_algorithm = ENCRYPTION_NONE;
        encryption_key_len = 0;
        encryption_iv_len = 0;
        return true;
    }
    if (key == nullptr || key_len < 1 || key_len > max_key_len || iv_len > max_iv_len)
        return false;
    encryption_algorithm = algorithm;
    encryption_key_len = key_len;
    std::memcpy(encryption_key, key, key_len);
    encryption_iv_len = iv_len;
    if (iv != nullptr && iv_len != 0)
        std::memcpy(encryption_iv, iv, iv_len);
    return true;
}

bool Options::set_encryption_from_binary(const char* algorithm_name, const unsigned char* key,
                                         std::uint64_t key_len, const unsigned char* iv,
                                         std::uint64_t iv_len)
{
    const int algorithm = encryption_name_to_value(algorithm_name, -1);
    if (algorithm == ENCRYPTION_NONE)
        return false;
    return set_encryption_from_binary(static_cast<Encryption_Algorithm>(algorithm), key, key_len,
                                      iv, iv_len);
}

bool Options::set_encryption_from_binary(Encryption_Algorithm algorithm, const std::string& key,
                                         const std::string& iv)
{
    return set_encryption_from_binary(algorithm, reinterpret_cast<const unsigned char*>(key.data()),
                                      key.size(), reinterpret_cast<const unsigned char*>(iv.data()),
                                      iv.size());
}

bool Options::set_encryption_from_binary(const char* algorithm_name, const std::string& key,
                                         const std::string& iv)
{
    return set_encryption_from_binary(
        algorithm_name, reinterpret_cast<const unsigned char*>(key.data()), key.size(),
        reinterpret_cast<const unsigned char*>(iv.data()), iv.size());
}

bool Options::set_encryption_from_base64(const char* algorithm_name, const char* key_b64,
                                         const char* iv_b64)
{
    if (key_b64 == nullptr || iv_b64 == nullptr)
        return false;
    Secret key;
    Secret iv;
    key.bytes = key_b64;
    iv.bytes = iv_b64;
    return set_encryption_from_base64(algorithm_name, key.bytes, iv.bytes);
}

bool Options::set_encryption_from_base64(const char* algorithm_name, const std::string& key_b64,
                                         const std::string& iv_b64)
{
    const int algorithm = encryption_name_to_value(algorithm_name, -1);
    if (algorithm == ENCRYPTION_NONE)
        return false;

    Secret key;
    const bool key_is_base64 = Base64_Decoder::decode(key_b64, key.bytes);
    encryption_key_len = key.bytes.size();
    if (!key_is_base64 || encryption_key_len == 0 || encryption_key_len > max_key_len)
        return false;
    std::memcpy(encryption_key, key.bytes.data(), encryption_key_len);

    Secret iv;
    const bool iv_is_base64 = Base64_Decoder::decode(iv_b64, iv.bytes);
    encryption_iv_len = iv.bytes.size();
    if (!iv_is_base64 || encryption_iv_len > max_iv_len)
        return false;
    if (encryption_iv_len != 0)
        std::memcpy(encryption_iv, iv.bytes.data(), encryption_iv_len);
    encryption_algorithm = static_cast<Encryption_Algorithm>(algorithm);
    return true;
}

void Options::set_extra_option(const char* key, const char* value)
{
    if (key == nullptr || *key == '\0')
        log_unexpected("Unexpected error in %N:%l, key is NULL or \"\":\n%?\n");
    else if (value == nullptr)
        log_unexpected("Unexpected error in %N:%l, value is NULL:\n%?\n");
    else
        extra_options[key] = value;
}

void Options::set_extra_option(const char* key, const std::string& value)
{
    if (key == nullptr || *key == '\0')
        log_unexpected("Unexpected error in %N:%l, key is NULL or \"\":\n%?\n");
    else
        extra_options[key] = value;
}

bool Options::get_extra_option(const char* key, std::string& value) const
{
    if (key == nullptr || *key == '\0') {
        log_unexpected("Unexpected error in %N:%l, key is NULL or \"\":\n%?\n");
        return false;
    }
    const auto found = extra_options.find(key);
    if (found == extra_options.end())
        return false;
    value = found->second;
    return true;
}

void Options::set_d2t_rpc_host(const char* host)
{
    if (host == nullptr)
        log_unexpected("Unexpected error in %N:%l, val is NULL:\n%?\n");
    else
        set_extra_option(d2t_rpc_host_key, host);
}

std::string Options::get_d2t_rpc_host() const
{
    std::string host = "127.0.0.1";
    get_extra_option(d2t_rpc_host_key, host);
    return host;
}

void Options::set_d2t_rpc_port(unsigned short port)
{
    set_extra_option(d2t_rpc_port_key, std::to_string(port));
}

unsigned short Options::get_d2t_rpc_port() const
{
    std::string port;
    if (!get_extra_option(d2t_rpc_port_key, port))
        return 50309;
    return static_cast<unsigned short>(std::atoi(port.c_str()));
}
