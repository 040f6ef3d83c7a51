#include "client_io/http_client_io.h"

#include "platform/http/http_date.h"
#include "platform/http/http_encode.h"
#include "platform/http/json_http_session.h"
#include "platform/json/json_value.h"
#include "platform/runtime/format.h"
#include "platform/runtime/iso8601.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstring>
#include <limits>
#include <utility>

namespace
{

using Method = HTTP_Request::Method;

constexpr std::size_t block_size = 65536;
constexpr std::uint64_t open_end = std::numeric_limits<std::uint64_t>::max();
constexpr int protocol_error = 121;
constexpr unsigned expectation_failed = 417;
constexpr unsigned default_timeout = 60; // seconds, where the options name none
constexpr unsigned kept_connections = 3;
constexpr unsigned session_timeout = 120; // seconds
constexpr unsigned listing_depth = 5;
constexpr unsigned listing_mebibytes = 300;

constexpr const char* tls_ca_file = "TLS_CA_FILE";
constexpr const char* tls_pinned_sha256 = "TLS_PINNED_SHA256";
constexpr const char* tls_verify = "TLS_VERIFY";
constexpr const char* http_dialect = "HTTP_DIALECT";

const char* const not_in_dialect = "Not supported by the dialect webdav";

/// Prefix of the messages of a simple request; NULL for methods that are none.
const char* failure_of(Method method)
{
    switch (method) {
    case HTTP_Request::COPY:
        return "Failed to COPY";
    case HTTP_Request::DELETE_:
        return "Failed to DELETE";
    case HTTP_Request::HEAD:
        return "Failed to HEAD";
    case HTTP_Request::MKCOL:
        return "Failed to MKCOL";
    case HTTP_Request::MOVE:
        return "Failed to MOVE";
    default:
        return nullptr;
    }
}

int number_of_status(unsigned status)
{
    constexpr std::array<std::pair<unsigned, int>, 4> numbers = {
        {{404, 2}, {409, 17}, {424, 41}, {507, 28}}};
    for (const auto& [known, number] : numbers)
        if (status == known)
            return number;
    return protocol_error;
}

/// @param last  open_end: not known
std::string range(std::uint64_t first, std::uint64_t last)
{
    return last == open_end ? format_text("bytes=%" PRIu64 "-", first)
                            : format_text("bytes=%" PRIu64 "-%" PRIu64, first, last);
}

/// From @p first on, how far is not known.
std::string content_range(std::uint64_t first)
{
    return format_text("bytes %" PRIu64 "--1/*", first);
}

/// Reads "bytes FIRST-LAST/TOTAL" (RFC 9110, 14.4).
/// @param total  open_end when the server does not know it
bool parse_content_range(const std::string& text, std::uint64_t& first, std::uint64_t& total)
{
    std::string_view rest = text;
    const auto skip = [&rest](std::string_view words) {
        const bool there = rest.starts_with(words);
        rest.remove_prefix(there ? words.size() : 0);
        return there;
    };
    const auto number = [&rest](std::uint64_t& value) {
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
        rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
        return error == std::errc();
    };
    std::uint64_t last = 0;
    if (!skip("bytes ") || !number(first) || !skip("-") || !number(last) || !skip("/") ||
        last < first)
        return false;
    total = open_end;
    if (rest == "*")
        return true;
    return number(total) && rest.empty() && last < total;
}

/// Whether it names an entry of a directory, not the directory itself or something elsewhere.
bool is_entry_name(const std::string& name)
{
    constexpr std::string_view not_in_names("/\0", 2);
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(not_in_names) == std::string::npos;
}

std::string version_of(const HTTP_Response& response)
{
    const std::string tag = response.entity_tag();
    return tag.empty() ? response.last_modified() : tag;
}

/// By the server's clock, when it says both times.
std::optional<std::chrono::seconds> age_of(const HTTP_Response& response)
{
    const std::string* const date = response.headers().get("Date");
    const auto now = date != nullptr ? parse_http_date(*date) : std::nullopt;
    const auto changed = parse_http_date(response.last_modified());
    if (!now || !changed)
        return std::nullopt;
    return std::chrono::seconds(*now - *changed);
}

bool is_same(const URI& one, const URI& other)
{
    return one.scheme() == other.scheme() && one.host(false) == other.host(false) &&
           one.port() == other.port() && one.path(false) == other.path(false);
}

} // namespace

struct HTTP_Client_IO::Connection_Settings
{
    TLS_Settings tls;
    bool webdav = false;
    std::map<std::string, std::string> headers; ///< what is left of the extra options

    bool operator<<(const std::map<std::string, std::string>& extra_options);
    std::string reason; ///< why they are refused
};

bool HTTP_Client_IO::Connection_Settings::operator<<(
    const std::map<std::string, std::string>& extra_options)
{
    for (const auto& [name, value] : extra_options) {
        if (name == tls_ca_file) {
            tls.ca_file = value;
        } else if (name == tls_pinned_sha256) {
            tls.pinned_sha256 = value;
        } else if (name == tls_verify) {
            tls.verify = value != "none";
            if (tls.verify && value != "full")
                reason = std::string(tls_verify) + " is neither none nor full";
        } else if (name == http_dialect) {
            webdav = value == "webdav";
            if (!webdav && !value.empty())
                reason = "Unknown " + std::string(http_dialect) + ": " + value;
        } else if (HTTP_Headers::is_valid(name, value)) {
            headers[name] = value;
        } else {
            reason =
                "Extra option " + name + " cannot be a header field"; // its value may be secret
        }
    }
    return reason.empty();
}

HTTP_Client_IO::HTTP_Client_IO() : recv_block_(block_size) {}

HTTP_Client_IO::~HTTP_Client_IO() = default;

bool HTTP_Client_IO::check_options(const URI& uri, const Options& options, std::string& reason)
{
    Connection_Settings settings;
    Transport_Error error;
    if (!(settings << options.extra_options))
        reason = settings.reason;
    else if (uri.ssl() && TLS_Context::create(settings.tls, error).get() == nullptr)
        reason = error.text;
    else
        return true;
    return false;
}

std::int64_t HTTP_Client_IO::read(void* buf, std::uint64_t size)
{
    auto* to = static_cast<char*>(buf);
    std::uint64_t wanted = size;
    for (;;) {
        const std::uint64_t n = std::min<std::uint64_t>(wanted, recv_block_.length());
        std::memcpy(to, recv_block_.rd_ptr(), n);
        recv_block_.rd_ptr(n);
        to += n;
        wanted -= n;
        if (wanted == 0)
            break;
        const void* data = nullptr;
        std::uint64_t length = 0;
        if (!read(data, length))
            return -1;
        if (length == 0)
            break;
    }
    return static_cast<std::int64_t>(size - wanted);
}

bool HTTP_Client_IO::write(const void* buf, std::uint64_t size)
{
    if (!is_open() || mode_ == mode_read)
        return refuse("Operation not permitted");
    if (size == 0)
        return true; // on the wire it would be the end of the body
    replacement_.sent = std::max(replacement_.sent, position_ + size);
    if (connection_->write(buf, size) == size) {
        position_ += size;
        size_ = std::max(size_, position_);
        note_replacement();
        return true;
    }
    // The server may have said why it takes no more.
    finish_upload();
    open_connection();
    return false;
}

std::uint64_t HTTP_Client_IO::size() const
{
    return size_;
}

bool HTTP_Client_IO::connect(const URI& uri, const Options& options)
{
    Connection_Settings settings;
    if (!(settings << options.extra_options))
        return refuse(settings.reason);
    // Sessions are made with all of this.
    if (!is_same(uri, uri_) || source_address_ != options.preferred_source_address ||
        !(settings.tls == tls_settings_))
        session_ = HTTP_Session::Ptr();
    uri_ = uri;
    source_address_ = options.preferred_source_address;
    overwrite_ = options.overwrite;
    extra_headers_ = settings.headers;
    socket_timeout_ = options.socket_timeout > 0
                          ? static_cast<std::uint32_t>(options.socket_timeout)
                          : default_timeout;
    forward_ = options.forward;
    webdav_ = settings.webdav;
    tls_settings_ = settings.tls;
    replacement_ = {};
    return reconnect();
}

bool HTTP_Client_IO::reconnect()
{
    Transport_Error error;
    if (session_.get() == nullptr && !uri_.scheme().empty()) {
        ACE_Intrusive_Auto_Ptr<TLS_Context> tls;
        const bool ssl = uri_.ssl();
        if (ssl)
            tls = TLS_Context::create(tls_settings_, error);
        if (!ssl || tls.get() != nullptr)
            session_ = HTTP_Session_Factory::create(uri_.host(false), uri_.port(), ssl,
                                                    source_address_, kept_connections, tls,
                                                    session_timeout, session_timeout, 0, &error);
    }
    if (open_connection())
        return true;
    retriable_ = true;
    if (session_.get() != nullptr)
        error = {session_->last_error(), session_->error_text()};
    const std::string reason = error.text.empty() ? POSIX_Error(error.code, 1).str() : error.text;
    error_ =
        format_text("Failed to connect to %s:%hu: %s", uri_.host(false).c_str(),
                    session_.get() != nullptr ? session_->port() : uri_.port(), reason.c_str());
    return false;
}

bool HTTP_Client_IO::is_connected() const
{
    return connection_.get() != nullptr;
}

void HTTP_Client_IO::disconnect()
{
    open_ = false;
    connection_ = HTTP_Connection::Ptr();
    session_ = HTTP_Session::Ptr();
}

bool HTTP_Client_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    if (is_open() && !close())
        return false;
    request_ = HTTP_Request();
    return open_file(path, mode, offset, size);
}

bool HTTP_Client_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    if (is_open() && !close())
        return false;
    request_ = HTTP_Request();
    if (extra.is_object()) {
        const auto& object = extra.get_ref<const json_spirit::Object&>();
        std::string modified;
        if (json_spirit::object_get(object, "Last-Modified", modified) &&
            HTTP_Headers::is_valid("Last-Modified", modified))
            request_.headers().put(HTTP_Headers::last_modified, modified);
        std::int32_t mask = 0;
        if ((mode & 2U) != 0 && json_spirit::object_get(object, "X-Mode-Creation-Mask", mask) &&
            mask >= 1)
            request_.headers().put(HTTP_Headers::mode_creation_mask, format_text("%d", mask));
    }
    return open_file(path, mode, 0, 0);
}

bool HTTP_Client_IO::is_open() const
{
    return is_connected() && open_;
}

bool HTTP_Client_IO::close()
{
    if (!is_open()) {
        replacement_ = {}; // nobody will go on with it
        return true;
    }
    open_ = false;
    return mode_ == mode_read || finish_upload();
}

bool HTTP_Client_IO::read(const void*& data, std::uint64_t& size)
{
    data = nullptr;
    size = 0;
    recv_block_.reset();
    if (!is_open() || mode_ != mode_read)
        return refuse("Operation not permitted");
    if (left_known_ && left_ == 0)
        return true;
    std::int64_t n = 0;
    do {
        recv_block_.reset();
        n = connection_->read_body(recv_block_);
        const std::uint64_t before =
            std::min(skip_, static_cast<std::uint64_t>(std::max<std::int64_t>(n, 0)));
        recv_block_.rd_ptr(before);
        skip_ -= before;
    } while (n > 0 && recv_block_.length() == 0);

    const bool cut_short = n == 0 && left_known_;
    if (n < 0 || cut_short) {
        recv_block_.reset();
        if (cut_short)
            ACE_OS::last_error(ECONNRESET);
        transport_error("Failed to receive response data from", full_url(request_.uri()),
                        cut_short ? nullptr : connection_.get());
        open_connection();
        retriable_ = true;
        return false;
    }
    if (left_known_) {
        const std::uint64_t kept = std::min<std::uint64_t>(recv_block_.length(), left_);
        recv_block_.wr_ptr(recv_block_.rd_ptr() + kept);
        left_ -= kept;
    }
    data = recv_block_.rd_ptr();
    size = recv_block_.length();
    return true;
}

bool HTTP_Client_IO::flush()
{
    return true;
}

bool HTTP_Client_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    if (!is_open())
        return refuse("Not open");
    return mode_ == mode_read ? start_read(offset, length) : start_random_write(offset);
}

std::uint64_t HTTP_Client_IO::size(const char* path)
{
    if (!is_open() && path != nullptr && replacement_.path == path)
        replacement_ = {}; // whoever asks goes on as he sees fit
    if (simple_request(path, HTTP_Request::HEAD, {}))
        return head_.size.value_or(0); // some say nothing of an empty file
    // Other servers lead from a directory's name to the same with a slash behind it.
    const bool is_directory = status_ == 405 || (webdav_ && status_ == 301);
    return is_connected() && is_directory ? size_of_directory : size_unknown;
}

bool HTTP_Client_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    if (webdav_)
        return refuse(not_in_dialect);
    if (session_.get() == nullptr)
        return refuse("Not connected");
    const HTTP_Request request = make_request(HTTP_Request::GET, path, false);
    const std::string url = full_url(request.uri());
    const std::size_t before = entries.size();
    const auto take = [&entries](json_spirit::Value& element) {
        if (!element.is_object())
            return;
        const auto& object = element.get_ref<const json_spirit::Object&>();
        Directory_Entry entry;
        entry.is_dir = json_spirit::object_get(object, "dir") != nullptr;
        json_spirit::object_get(object, entry.is_dir ? "dir" : "file", entry.name);
        if (!is_entry_name(entry.name))
            return;
        json_spirit::object_get(object, "size", entry.size);
        std::string time;
        if (json_spirit::object_get(object, "mtime", time))
            entry.mtime = iso8601_to_posix_time(time);
        entries.push_back(std::move(entry));
    };
    if (!is_open())
        connection_ = HTTP_Connection::Ptr();
    JSON_HTTP_Session json(*session_, listing_depth, listing_mebibytes);
    JSON_HTTP_Session::Kind kind{};
    HTTP_Response response;
    const bool done = json.get(request, take, kind, response);
    status_ = response.status();
    retriable_ = CGI_Response::retriable(status_);
    if (!is_open())
        open_connection();
    if (done && kind == JSON_HTTP_Session::Kind::array)
        return true;
    entries.resize(before);
    if (done) {
        error_ = format_text("%s is not directory", url.c_str());
        errnum_ = os_error::not_a_directory;
        retriable_ = false;
    } else {
        status_error(format_text("Failed to GET %s", url.c_str()));
        retriable_ = json.connection_failed() || response.content_type().empty();
    }
    return false;
}

bool HTTP_Client_IO::make_dir(const char* path, unsigned short)
{
    return webdav_ ? make_webdav_directory(path != nullptr ? path : "")
                   : simple_request(path, HTTP_Request::MKCOL, {});
}

bool HTTP_Client_IO::truncate(const char* path, std::uint64_t size)
{
    if (webdav_)
        return refuse(not_in_dialect);
    if (session_.get() == nullptr)
        return refuse("Not connected");
    HTTP_Request request = make_request(HTTP_Request::PUT, path);
    request.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    request.headers().put(HTTP_Headers::content_range, content_range(size));
    const std::string url = full_url(request.uri());

    HTTP_Connection::Ptr connection;
    const auto send = [&] {
        connection = session_->start_put(request);
        return connection;
    };
    if (!send_aside(send)) {
        retriable_ = true;
        return transport_error("Failed to send PUT request to", url);
    }
    HTTP_Response response;
    connection->write(nullptr, 0);
    if (!connection->read_response_header(response)) {
        retriable_ = true;
        return transport_error("Failed to receive response from", url, connection.get());
    }
    connection->skip_body(block_size);
    status_ = response.status();
    retriable_ = CGI_Response::retriable(status_);
    if (is_success(status_))
        return true;
    status_error(
        format_text("Failed to PUT %s, status=%d", url.c_str(), static_cast<int>(status_)));
    return false;
}

bool HTTP_Client_IO::remove(const char* path)
{
    HTTP_Headers headers;
    if (webdav_)
        headers.put("Depth", "0"); // or a directory would go with all that is in it
    return simple_request(path, HTTP_Request::DELETE_, headers);
}

bool HTTP_Client_IO::copy(const char* src, const char* dst, bool overwrite)
{
    return copy_or_move(HTTP_Request::COPY, src, dst, overwrite);
}

bool HTTP_Client_IO::rename(const char* src, const char* dst, bool overwrite)
{
    return copy_or_move(HTTP_Request::MOVE, src, dst, overwrite);
}

bool HTTP_Client_IO::retriable() const
{
    return retriable_;
}

std::string HTTP_Client_IO::get_config(const char* key) const
{
    if (key != nullptr && std::strcmp(key, "file_version") == 0 && is_open() && mode_ == mode_read)
        return version_;
    return Client_IO_Base::get_config(key);
}

bool HTTP_Client_IO::open_connection()
{
    connection_ = HTTP_Connection::Ptr();
    open_ = false;
    if (session_.get() == nullptr)
        return false;
    session_->timeout(socket_timeout_);
    connection_ = session_->connect();
    return is_connected();
}

bool HTTP_Client_IO::send_get()
{
    const std::string url = full_url(request_.uri());
    connection_ = HTTP_Connection::Ptr();
    open_ = false;
    HTTP_Response response;
    connection_ = session_->get(request_, response);
    if (connection_.get() == nullptr) {
        transport_error("Failed to send GET request to", url);
        retriable_ = true;
        return false;
    }
    status_ = response.status();
    retriable_ = CGI_Response::retriable(status_);
    bool fits = false;
    if (status_ != 200 && status_ != 206)
        status_error(
            format_text("Failed to GET %s: status=%d", url.c_str(), static_cast<int>(status_)));
    else
        fits = check_download(response);
    if (!fits) {
        open_connection();
        return false;
    }
    open_ = true;
    recv_block_.reset();
    return true;
}

bool HTTP_Client_IO::start_upload()
{
    retriable_ = true;
    request_.headers().put(HTTP_Headers::transfer_encoding, "chunked");
    connection_ = HTTP_Connection::Ptr();
    open_ = false;
    if (overwrite_now_ || webdav_) {
        request_.method(HTTP_Request::PUT);
        // Until the server names the file that it has begun, it may still show the old contents,
        // which a resumed upload would take for its own beginning.
        const bool replaces = request_.headers().get(HTTP_Headers::content_range) == nullptr;
        bool goes_on = false;
        if (replaces)
            replacement_ = {path_, {}, std::chrono::steady_clock::now()};
        connection_ = session_->start_put(request_, replaces ? &goes_on : nullptr);
    } else {
        request_.method(HTTP_Request::POST);
        connection_ = session_->start_post(request_);
    }
    if (connection_.get() == nullptr) {
        const char* const method = HTTP_Request::method_name(request_.method());
        transport_error(format_text("Failed to send %s request to", method).c_str(),
                        full_url(request_.uri()));
        open_connection();
        return false;
    }
    note_replacement();
    open_ = true;
    overwrite_now_ = false;
    return true;
}

bool HTTP_Client_IO::finish_upload()
{
    const std::string url = full_url(request_.uri());
    if (connection_->last_error() != 0) {
        retriable_ = true;
        return transport_error("Failed to send body to", url, connection_.get());
    }
    const HTTP_Connection::State state = connection_->state();
    if (state == HTTP_Connection::chunked_begun || state == HTTP_Connection::chunked_body)
        connection_->write(nullptr, 0);
    HTTP_Response response;
    if (!connection_->read_response_header(response)) {
        retriable_ = true;
        return transport_error("Failed to receive response from", url, connection_.get());
    }
    connection_->skip_body(block_size);
    status_ = response.status();
    retriable_ = CGI_Response::retriable(status_);
    if (!is_success(status_)) {
        status_error(
            format_text("Failed to POST %s, status=%d", url.c_str(), static_cast<int>(status_)));
        // Late: the session did not wait for it any more.
        if (status_ == expectation_failed && session_->stop_asking())
            retriable_ = true;
        return false;
    }
    if (!connection_->body_sent()) {
        retriable_ = true;
        error_ = format_text(
            "Failed to send body to %s: the server answered before it had all of it", url.c_str());
        return false;
    }
    const bool went_on = !replacement_.path.empty() && replacement_.file_id.empty() &&
                         request_.headers().get(HTTP_Headers::content_range) != nullptr;
    replacement_ = {};
    return !went_on || check_whole();
}

bool HTTP_Client_IO::simple_request(const char* path, HTTP_Request::Method method,
                                    const HTTP_Headers& headers)
{
    const char* const failure = failure_of(method);
    if (failure == nullptr)
        return false;
    if (session_.get() == nullptr)
        return refuse("Not connected");
    HTTP_Request request = make_request(method, path);
    request.headers().put(HTTP_Headers::content_length, "0");
    request.headers().merge(headers);
    const std::string url = full_url(request.uri());

    errnum_ = protocol_error;
    status_ = 0;
    HTTP_Response response;
    if (!send_aside([&] { return session_->send(request, response); })) {
        retriable_ = true;
        return transport_error(failure, url);
    }
    status_ = response.status();
    if (method == HTTP_Request::HEAD) {
        // That of a failure is the length of its text.
        head_.size = is_success(status_) ? response.content_length() : std::nullopt;
        head_.version = version_of(response);
        const std::string* const id = response.headers().get(HTTP_Headers::file_id);
        head_.file_id = id != nullptr ? *id : std::string();
        head_.age = age_of(response);
    }
    retriable_ = CGI_Response::retriable(status_);
    if (is_success(status_) || (method == HTTP_Request::DELETE_ && status_ == 404))
        return true;
    status_error(format_text("%s %s, status=%d", failure, url.c_str(), static_cast<int>(status_)));
    return false;
}

bool HTTP_Client_IO::start_read(std::uint64_t offset, std::uint64_t size)
{
    first_ = offset;
    std::uint64_t last = open_end;
    if (offset != 0 || size != 0) {
        if (offset >= size_) {
            error_ = "Invalid offset";
            return false;
        }
        if (size != 0)
            last = (size < size_ - offset ? offset + size : size_) - 1;
        request_.headers().put(HTTP_Headers::range, range(offset, last));
    } else if (request_.headers().get(HTTP_Headers::range) != nullptr) {
        request_.headers().put(HTTP_Headers::range, range(0, open_end));
    }
    left_ = last == open_end ? open_end : last - offset + 1;
    return send_get();
}

bool HTTP_Client_IO::start_random_write(std::uint64_t offset)
{
    if (webdav_)
        return refuse(not_in_dialect);
    if (is_connected()) {
        const HTTP_Connection::State state = connection_->state();
        const bool uploading = state == HTTP_Connection::chunked_begun ||
                               state == HTTP_Connection::chunked_body ||
                               state == HTTP_Connection::length_body;
        if (uploading && !finish_upload()) {
            open_ = false;
            return false;
        }
    }
    request_.headers().put(HTTP_Headers::content_range, content_range(offset));
    overwrite_now_ = false;
    position_ = offset;
    size_ = std::max(position_, size_);
    return start_upload();
}

bool HTTP_Client_IO::open_file(const char* path, unsigned mode, std::uint64_t offset,
                               std::uint64_t size)
{
    if (session_.get() == nullptr)
        return refuse("Not connected");
    overwrite_now_ = overwrite_ || (mode & mode_overwrite) != 0;
    mode_ = mode & mode_access;
    path_ = path != nullptr ? path : "";
    size_ = 0;
    position_ = 0;
    open_ = false;
    version_.clear();
    opened_ = {};
    recv_block_.reset();
    HTTP_Headers given;
    std::swap(given, request_.headers());
    request_ = make_request(HTTP_Request::GET, path);
    request_.headers().merge(given);

    if (mode_ != mode_append || offset != 0 || replacement_.path != path_)
        replacement_ = {};
    else if (webdav_ && overwrite_now_)
        return start_over();
    status_ = 0;
    if (mode_ != mode_write || offset != 0 || !overwrite_now_) {
        simple_request(path, HTTP_Request::HEAD, {});
        if (!is_connected())
            return false;
        opened_ = head_;
        size_ = opened_.size.value_or(0);
    }
    switch (mode_) {
    case mode_read:
        return start_read(offset, size);
    case mode_append:
        return open_for_append(offset);
    default:
        if (mode_ == mode_random_write || offset != 0) {
            mode_ = mode_write;
            return start_random_write(offset);
        }
        if (!overwrite_now_ && status_ == 200) {
            errnum_ = EEXIST; // on every system
            return refuse("File already exists");
        }
        mode_ = mode_write;
        if (webdav_ && !overwrite_now_)
            request_.headers().put("If-None-Match", "*");
        size_ = 0;
        return start_upload();
    }
}

bool HTTP_Client_IO::open_for_append(std::uint64_t offset)
{
    if (offset != 0)
        return refuse("Invalid offset: not supported");
    if (status_ == 200) {
        if (webdav_)
            return refuse(not_in_dialect);
        const bool unnamed = !replacement_.path.empty() && replacement_.file_id.empty();
        if (unnamed && overwrite_now_ && shows_old_file())
            return start_over();
        if (!opened_.size) // its start would be taken for its end
            return refuse(format_text("Failed to HEAD %s: the answer has no Content-Length",
                                      full_url(request_.uri()).c_str()));
        if (!replacement_.file_id.empty() && replacement_.file_id != opened_.file_id) {
            replacement_ = {};
            return refuse(format_text("Failed to resume write to %s, the file was replaced",
                                      full_url(request_.uri()).c_str()));
        }
        position_ = size_;
        request_.headers().put(HTTP_Headers::content_range, content_range(size_));
    } else if (status_ != 404) {
        return false;
    }
    mode_ = mode_write;
    return start_upload();
}

bool HTTP_Client_IO::copy_or_move(HTTP_Request::Method method, const char* src, const char* dst,
                                  bool overwrite)
{
    // Some servers lose a file that is put in its own place.
    if (webdav_ && path_url(src) == path_url(dst) && overwrite)
        return simple_request(src, HTTP_Request::HEAD, {});
    HTTP_Headers headers;
    headers.put(HTTP_Headers::destination, full_url(path_url(dst)));
    headers.put(HTTP_Headers::overwrite, overwrite ? "T" : "F");
    return simple_request(src, method, headers);
}

/// Other servers make one directory at a time, under a name that ends with a slash, and none that
/// is there already.
bool HTTP_Client_IO::make_webdav_directory(const std::string& path)
{
    const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
    const auto make = [&] { return simple_request((name + '/').c_str(), HTTP_Request::MKCOL, {}); };
    if (make())
        return true;
    const std::size_t slash = name.rfind('/');
    if (status_ == 409 && slash != std::string::npos && slash != 0)
        return make_webdav_directory(name.substr(0, slash)) && make();
    const std::string reason = error_;
    if (status_ == 405 && size(name.c_str()) == size_of_directory)
        return true;
    error_ = reason;
    return false;
}

/// Takes down which file the server has begun in place of the old one; it may say so late.
void HTTP_Client_IO::note_replacement()
{
    if (replacement_.path == path_ && replacement_.file_id.empty())
        replacement_.file_id = connection_->file_id();
}

/// Whether the server, which never named the file that it begins, shows what was there before. One
/// that names files has not begun. Of others the size tells, when it is more than was sent or not
/// said, and the time, by their own clocks: a file that was changed before the upload began is the
/// old one.
bool HTTP_Client_IO::shows_old_file() const
{
    if (!opened_.file_id.empty() || !opened_.size || *opened_.size > replacement_.sent)
        return true;
    constexpr std::chrono::seconds coarseness(2); // of both times and of the request's way
    return opened_.age &&
           *opened_.age > std::chrono::steady_clock::now() - replacement_.begun + coarseness;
}

/// Whether a replacement that went on in a file without a name has become as long as it has to be:
/// there are servers that take the part for the whole.
bool HTTP_Client_IO::check_whole()
{
    const std::uint64_t size = size_;
    const bool known = simple_request(path_.c_str(), HTTP_Request::HEAD, {});
    retriable_ = false; // what is there cannot be gone on with
    if (known && head_.size == size)
        return true;
    if (known)
        error_ = format_text("Failed to resume write to %s, the server does not hold all of it",
                             full_url(request_.uri()).c_str());
    return false;
}

/// Goes on with the replacement of a file that the server has not begun: from its start.
bool HTTP_Client_IO::start_over()
{
    size_ = 0;
    mode_ = mode_write;
    return start_upload();
}

/// Sends a request on the backend's connection or, while a file is open on that, on one beside it.
/// @param send  gives the connection on which it was sent
/// @return whether there is one
template <class Send>
bool HTTP_Client_IO::send_aside(Send send)
{
    if (is_open())
        return send().get() != nullptr;
    connection_ = HTTP_Connection::Ptr();
    connection_ = send();
    return is_connected();
}

/// A request with the fields that all have.
HTTP_Request HTTP_Client_IO::make_request(HTTP_Request::Method method, const char* path,
                                          bool may_forward) const
{
    HTTP_Request request(method, path_url(path));
    for (const auto& [name, value] : extra_headers_)
        request.headers().put(name, value);
    if (forward_ && may_forward)
        request.headers().put(HTTP_Headers::forward, "true");
    return request;
}

std::string HTTP_Client_IO::path_url(const char* path) const
{
    return uri_.path(true) + '/' +
           http_encode_string(path != nullptr ? path : "", http_path_characters);
}

std::string HTTP_Client_IO::full_url(const std::string& uri) const
{
    return session_.get() != nullptr ? HTTP_Session_URL(*session_, uri).str() : uri;
}

/// Takes stock of the answer to a GET, before any of its body is given out.
bool HTTP_Client_IO::check_download(const HTTP_Response& response)
{
    const auto unfit = [&](const char* why) {
        error_ = format_text("Failed to GET %s: %s", full_url(request_.uri()).c_str(), why);
        return false;
    };
    // The answer is about one version of the file, and so is everything that is read of it.
    std::string version = version_of(response);
    if (version.empty())
        version = opened_.version;
    if (!version_.empty() && version != version_)
        return unfit("the file was replaced");
    version_ = version;

    std::uint64_t total = open_end;
    skip_ = 0;
    if (status_ == 206) {
        std::uint64_t first = 0;
        const bool fits =
            response.content_range().empty()
                ? is_range_itself(response)
                : parse_content_range(response.content_range(), first, total) && first == first_;
        if (!fits)
            return unfit("the answer is not the range that was asked for");
    } else if (first_ == 0 || !is_range_itself(response)) {
        skip_ = first_;
        total = response.content_length().value_or(open_end);
    }
    if (total != open_end)
        size_ = total;
    else if (version_ != opened_.version)
        size_ = size_unknown; // the HEAD was about another version
    else if (size_ != 0)
        total = size_;
    if (total != open_end) {
        if (first_ > total)
            return unfit("the file was replaced");
        left_ = std::min(left_, total - first_);
    }
    left_known_ = left_ != open_end;
    opened_.version = version_;
    opened_.size = size_ != size_unknown ? std::optional(size_) : std::nullopt;
    return true;
}

/// Whether an answer that does not say so is the part of the file that was asked for: it is about
/// the same version, and has the length of that part.
bool HTTP_Client_IO::is_range_itself(const HTTP_Response& response) const
{
    const std::optional<std::uint64_t> length = response.content_length();
    return version_ == opened_.version && length && opened_.size && first_ <= *opened_.size &&
           *length == std::min(left_, *opened_.size - first_);
}

/// Ends an operation that is not even tried, or about whose answer nothing can be done.
bool HTTP_Client_IO::refuse(const std::string& text)
{
    error_ = text;
    retriable_ = false;
    return false;
}

/// Words a failure of the connection.
/// @param connection  the one that failed; NULL: there is none, the session knows
bool HTTP_Client_IO::transport_error(const char* words, const std::string& url,
                                     const HTTP_Connection* connection)
{
    int code = connection != nullptr ? connection->last_error() : session_->last_error();
    const std::string& text =
        connection != nullptr ? connection->error_text() : session_->error_text();
    if (code == 0)
        code = ACE_OS::last_error();
    error_ = format_text("%s %s: %s", words, url.c_str(),
                         text.empty() ? POSIX_Error(code, 1).c_str() : text.c_str());
    return false;
}

/// Words a failure that the server told by the status of its answer.
void HTTP_Client_IO::status_error(const std::string& text)
{
    errnum_ = webdav_ && status_ == 412 ? EEXIST : number_of_status(status_);
    error_ = text;
}

bool HTTP_Client_IO::is_success(unsigned status) const
{
    return status == 200 || (webdav_ && (status == 201 || status == 204));
}
