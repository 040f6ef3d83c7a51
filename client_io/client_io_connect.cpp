#include "client_io/client_io.h"
#include "client_io/evp_io.h"
#include "client_io/file_io.h"
#include "client_io/http_client_io.h"
#include "client_io/lzop_io.h"
#include "client_io/rate_control_io.h"
#include "client_io/resumption_io.h"
#include "client_io/zstd_io.h"
#include "platform/runtime/format.h"

#include <array>
#include <new>
#include <string_view>
#include <utility>

namespace
{

/// What a scheme's protocol asks of the options that its stack is built from.
enum class Family
{
    http,
    dedup,
    file,
    tape,
    object_store,
};

struct Scheme
{
    std::string_view plain;
    std::string_view secure;
    Client_IO::Protocol protocol;
    Family family;
};

/// Schemes that connect() knows, compared exactly.
constexpr std::array schemes = {
    Scheme{"http", "https", Client_IO::PROTOCOL_HTTP, Family::http},
    Scheme{"realtime", "realtimes", Client_IO::PROTOCOL_HTTP, Family::http},
    Scheme{"sdfs", "sdfss", Client_IO::PROTOCOL_HTTP, Family::http},
    Scheme{"dedup", "dedups", Client_IO::PROTOCOL_DEDUP, Family::dedup},
    Scheme{"ws", "wss", Client_IO::PROTOCOL_DEDUP, Family::dedup},
    Scheme{"file", "file", Client_IO::PROTOCOL_FILE, Family::file},
    Scheme{"d2t", "d2ts", Client_IO::PROTOCOL_D2T, Family::tape},
    Scheme{"mtf", "mtfs", Client_IO::PROTOCOL_MTF, Family::tape},
    Scheme{"s3", "s3s", Client_IO::PROTOCOL_S3, Family::object_store},
    Scheme{"oss", "osss", Client_IO::PROTOCOL_OSS, Family::object_store},
    Scheme{"kss", "ksss", Client_IO::PROTOCOL_KSS, Family::object_store},
    Scheme{"ufile", "ufiles", Client_IO::PROTOCOL_UFILE, Family::object_store},
    Scheme{"cos", "coss", Client_IO::PROTOCOL_COS, Family::object_store},
    Scheme{"scs", "scss", Client_IO::PROTOCOL_SCS, Family::object_store},
    Scheme{"blob", "blobs", Client_IO::PROTOCOL_BLOB, Family::object_store},
    Scheme{"s3v4", "s3v4s", Client_IO::PROTOCOL_S3V4, Family::object_store},
    Scheme{"hbr", "hbrs", Client_IO::PROTOCOL_HBR, Family::object_store},
    Scheme{"obs", "obss", Client_IO::PROTOCOL_OBS, Family::object_store},
    Scheme{"btrfs", "btrfss", Client_IO::PROTOCOL_BTRFS_HTTP, Family::http},
};

/// Schemes that generate_uri() writes, by protocol number.
constexpr std::array<std::pair<const char*, const char*>, 20> protocol_schemes = {{
    {"http", "https"},   {"ftp", "ftps"},         {"dedup", "dedups"}, {"d2t", "d2ts"},
    {"mtf", "mtfs"},     {"file", "file"},        {"s3", "s3s"},       {"oss", "osss"},
    {"kss", "ksss"},     {"ufile", "ufiles"},     {"cos", "coss"},     {"scs", "scss"},
    {"btrfs", "btrfss"}, {"lanfree", "lanfrees"}, {"sdfs", "sdfs"},    {"blob", "blobs"},
    {"s3v4", "s3v4s"},   {"hbr", "hbrs"},         {"obs", "obss"},     {"http", "https"},
}};

const Scheme* find_scheme(std::string_view name)
{
    for (const Scheme& scheme : schemes)
        if (name == scheme.plain || name == scheme.secure)
            return &scheme;
    return nullptr;
}

void adjust_options(Family family, Client_IO_Base::Options& options)
{
    switch (family) {
    case Family::dedup:
        // A dedup store chunks and compresses by itself, which transforms would defeat.
        options.max_bytes_per_second = 0;
        options.rate_control.clear();
        options.compression = COMPRESSION_NONE;
        options.encryption_algorithm = ENCRYPTION_NONE;
        options.resumption_buffer_size = 0;
        break;
    case Family::file:
        options.max_retry = 0;
        break;
    case Family::object_store:
        options.resumption_buffer_size = 0;
        break;
    case Family::http:
    case Family::tape:
        break;
    }
}

/// @return NULL for protocols that this version does not have
std::unique_ptr<Client_IO_Base> make_backend(Family family)
{
    switch (family) {
    case Family::file:
        return std::make_unique<File_IO>();
    case Family::http:
        return std::make_unique<HTTP_Client_IO>();
    default:
        return nullptr;
    }
}

} // namespace

Client_IO::Client_IO() = default;

// Slots are not dispatched to subclasses while the object is being constructed, so the calls
// name the class.
Client_IO::Client_IO(const char* uri, const Options& options)
{
    Client_IO::connect(uri, options);
}

Client_IO::Client_IO(Protocol protocol, const char* host, unsigned short port, bool ssl,
                     const char* path, const Options& options)
{
    Client_IO::connect(protocol, host, port, ssl, path, options);
}

Client_IO::~Client_IO()
{
    Client_IO::disconnect();
}

bool Client_IO::connect(const URI& uri, const Options& options)
try {
    disconnect();
    if (uri.scheme().empty() || uri.path(false).empty())
        return refuse_connection("Invalid URI");
    const Scheme* scheme = find_scheme(uri.scheme());
    if (scheme == nullptr)
        return refuse_connection("Protocol not supported");
    // A retry would only repeat what cannot be right.
    std::string reason;
    if (scheme->family == Family::http && !HTTP_Client_IO::check_options(uri, options, reason))
        return refuse_connection(reason);
    Options stack_options = options;
    adjust_options(scheme->family, stack_options);
    local_root_ = scheme->family == Family::file ? uri.path(false) : std::string();
    return connect_stack(make_backend(scheme->family), scheme->protocol, uri, stack_options,
                         options);
} catch (const std::bad_alloc&) {
    io_.reset(); // for the reason of refuse_connection()
    return out_of_memory();
}

bool Client_IO::connect_stack(std::unique_ptr<Client_IO_Base> backend, Protocol protocol,
                              const URI& uri, const Options& stack_options, const Options& options)
{
    protocol_ = protocol;
    if (backend == nullptr)
        return refuse_connection("Protocol not supported");
    io_ = std::move(backend);

    // The transforms go on top in this order, each owning what is below it: retries, rate
    // control, encryption, compression.
    if (stack_options.max_retry != 0 && protocol != PROTOCOL_BTRFS_HTTP)
        io_ = std::make_unique<Resumption_IO>(std::move(io_), stack_options.resumption_buffer_size);
    if (stack_options.max_bytes_per_second != 0 || !stack_options.rate_control.empty())
        io_ = std::make_unique<Rate_Control_IO>(stack_options.max_bytes_per_second,
                                                stack_options.rate_control, std::move(io_));
    encryption_ = ENCRYPTION_NONE;
    compression_ = COMPRESSION_NONE;
    unclosed_ = false;
    if (!set_encryption(stack_options.encryption_algorithm, stack_options.encryption_key,
                        static_cast<int>(stack_options.encryption_key_len),
                        stack_options.encryption_iv,
                        static_cast<int>(stack_options.encryption_iv_len)))
        return refuse_connection(error_);
    compression_level_ = stack_options.compression_level;
    auto_compression_ = stack_options.compression == COMPRESSION_AUTO;
    if (compression_value_to_name(stack_options.compression) == nullptr)
        return refuse_connection(format_text("Unknown compression method %d",
                                             static_cast<int>(stack_options.compression)));
    if (stack_options.compression == COMPRESSION_LZOP && !lzop_available())
        return refuse_connection("lzop is not supported by this build");
    set_compression(stack_options.compression);
    if (io_ == nullptr)
        return false;

    error_.clear();
    return io_->connect(uri, options);
}

bool Client_IO::reconnect()
try {
    error_.clear();
    return io_ && io_->reconnect();
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::is_connected() const
{
    return io_ && io_->is_connected();
}

void Client_IO::disconnect()
try {
    error_.clear();
    unclosed_ = false;
    if (io_ && io_->is_connected()) {
        if (is_open())
            close();
        io_->disconnect();
    }
} catch (const std::bad_alloc&) {
    out_of_memory();
}

bool Client_IO::connect(const char* uri, const Options& options)
try {
    disconnect();
    URI parsed;
    if (uri == nullptr || !URI_Parser::parse(uri, parsed))
        return refuse_connection("Invalid URI");
    return connect(parsed, options);
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::connect(Protocol protocol, const char* host, unsigned short port, bool ssl,
                        const char* path, const Options& options)
try {
    disconnect();
    URI uri;
    if (!generate_uri(protocol, host, port, ssl, path, uri))
        return refuse_connection(error_);
    protocol_ = protocol;
    return connect(uri, options);
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool Client_IO::generate_uri(Protocol protocol, const char* host, unsigned short port, bool ssl,
                             const char* path, URI& uri)
try {
    const bool has_address = host != nullptr && *host != '\0' && port != 0;
    if ((protocol != PROTOCOL_FILE && !has_address) || path == nullptr || *path == '\0') {
        error_ = "Invalid URI";
        return false;
    }
    if (host != nullptr)
        uri.host(host, false);
    uri.port(port);
    uri.path(path, false);
    if (protocol < protocol_schemes.size()) {
        const auto& [plain, secure] = protocol_schemes[protocol];
        uri.scheme(ssl ? secure : plain);
    }
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

void Client_IO::set_compression(Compression_Method method)
try {
    if (method == compression_ || method == COMPRESSION_AUTO)
        return;
    if (!check_no_file_open())
        return;
    if (compression_ != COMPRESSION_NONE && compression_ != COMPRESSION_AUTO)
        take_off_transform();
    compression_ = COMPRESSION_NONE;
    if (method == COMPRESSION_LZOP)
        io_ = std::make_unique<Lzop_IO>(std::move(io_), compression_level_);
    else if (method == COMPRESSION_ZSTD)
        io_ = std::make_unique<ZSTD_IO>(std::move(io_), compression_level_);
    else
        return;
    compression_ = method;
} catch (const std::bad_alloc&) {
    // There is no result to tell that what is written now would not be compressed.
    io_.reset();
    out_of_memory();
}

void Client_IO::set_compression(const std::string& file_name)
{
    const std::size_t dot = file_name.rfind('.');
    const int method = dot == std::string::npos
                           ? COMPRESSION_NONE
                           : compression_suffix_to_value(file_name.c_str() + dot, -1);
    set_compression(static_cast<Compression_Method>(method));
}

bool Client_IO::set_encryption(Encryption_Algorithm algorithm, const unsigned char* key,
                               int key_len, const unsigned char* iv, int iv_len)
try {
    if (algorithm == encryption_)
        return true;
    const char* name = encryption_value_to_name(algorithm, false);
    if (name == nullptr) {
        error_ = format_text("Unknown encryption algorithm %d", static_cast<int>(algorithm));
        return false;
    }
    if (!check_no_file_open())
        return false;
    // The compression stands above, and is put back there.
    const Compression_Method compression = compression_;
    set_compression(COMPRESSION_NONE);
    if (encryption_ != ENCRYPTION_NONE)
        take_off_transform();
    encryption_ = ENCRYPTION_NONE;
    io_ = std::make_unique<EVP_IO>(std::move(io_), name, key, static_cast<std::uint32_t>(key_len),
                                   iv, static_cast<std::uint32_t>(iv_len));
    encryption_ = algorithm;
    set_compression(compression);
    return io_ != nullptr;
} catch (const std::bad_alloc&) {
    // Nothing shall be stored in the clear that was meant to be encrypted.
    io_.reset();
    return out_of_memory();
}

/// Ends a connect() that cannot be carried out. The stack goes: were it kept, the next operation
/// would reconnect it, to the target before or without a transform that was asked for.
/// @return false, for the operation to return
bool Client_IO::refuse_connection(const std::string& reason)
{
    error_ = reason;
    io_.reset();
    return false;
}
