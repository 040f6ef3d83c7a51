#pragma once

#include "client_io/client_io_base.h"
#include "platform/http/http_session.h"

#include <ace/Message_Block.h>
#include <chrono>
#include <optional>

/// Storage that an HTTP server keeps.
///
/// Files are read by (ranged) GET and written by streamed PUT (in place of a file) or POST with
/// Content-Range. HEAD, DELETE, MKCOL, COPY and MOVE manage them, and the GET of a directory is its
/// listing in JSON. docs/http.md tells the protocol.
///
/// Failures of the connection read "%s %s: %s": what failed, the URL, the reason; they are
/// retriable(). Those of the server name the status, and are retriable as CGI_Response says.
/// Where a status has an error number of its own, errnum() is that (404: 2, 409: 17, 424: 41,
/// 507: 28), else 121.
///
/// Extra options are sent as header fields with every request, except those that
/// Connection_Settings reads.
///
/// One object serves one thread.
class HTTP_Client_IO : public Client_IO_Base
{
public:
    HTTP_Client_IO();
    ~HTTP_Client_IO() override;

    /// Whether a connection could be tried with these options: extra options that can be header
    /// fields, and settings of TLS that can be used.
    /// @param reason  set when not
    static bool check_options(const URI& uri, const Options& options, std::string& reason);

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    /// Reading: the file's size at open. Writing: the highest position written, which in append
    /// mode counts from the file's start.
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool is_connected() const override;
    /// The next reconnect() makes everything anew.
    void disconnect() override;
    /// @param size  in read mode the stream ends after so many bytes, 0 = no limit
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    /// @param extra  an object may hold "Last-Modified", the file's time as text, and
    ///     "X-Mode-Creation-Mask", an integer: the permission bits that a new file and directories
    ///     on the way to it do not get (write and append)
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool is_open() const override;
    /// Of a file that was written: true only when the server said that it has all of it.
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    /// Does nothing: after each write the bytes are with the system.
    bool flush() override;
    /// Begins a new transfer at @p offset.
    /// @param length  in read mode a limit as for open()
    bool seek(std::uint64_t offset, std::uint64_t length) override;

    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;
    /// @param mode  is not sent
    bool make_dir(const char* path, unsigned short mode) override;
    bool truncate(const char* path, std::uint64_t size) override;
    bool remove(const char* path) override;
    bool copy(const char* src, const char* dst, bool overwrite) override;
    bool rename(const char* src, const char* dst, bool overwrite) override;
    bool retriable() const override;
    /// Knows "file_version": the entity tag of the file that is open for reading, or its time.
    std::string get_config(const char* key) const override;

    /// Asks the session for a connection on which nothing is under way.
    virtual bool open_connection();
    /// Sends the request of the open file as a GET and reads the head of the answer.
    virtual bool send_get();
    /// Sends the head of an upload, whose body follows.
    virtual bool start_upload();
    /// Ends the body of an upload and reads the answer.
    virtual bool finish_upload();
    /// Carries a request without a body out.
    /// @param headers  fields that it gets unless it has them
    virtual bool simple_request(const char* path, HTTP_Request::Method method,
                                const HTTP_Headers& headers);
    /// Begins a download. @param size  0 = to the file's end
    virtual bool start_read(std::uint64_t offset, std::uint64_t size);
    /// Begins an upload into the file at @p offset.
    virtual bool start_random_write(std::uint64_t offset);

private:
    /// What the extra options say about the connection itself.
    struct Connection_Settings;

    bool open_file(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size);
    bool open_for_append(std::uint64_t offset);
    void note_replacement();
    bool shows_old_file() const;
    bool check_whole();
    bool start_over();
    bool copy_or_move(HTTP_Request::Method method, const char* src, const char* dst,
                      bool overwrite);
    bool make_webdav_directory(const std::string& path);
    template <class Send>
    bool send_aside(Send send);
    HTTP_Request make_request(HTTP_Request::Method method, const char* path,
                              bool may_forward = true) const;
    std::string path_url(const char* path) const;
    std::string full_url(const std::string& uri) const;
    bool check_download(const HTTP_Response& response);
    bool is_range_itself(const HTTP_Response& response) const;
    bool refuse(const std::string& text);
    bool transport_error(const char* words, const std::string& url,
                         const HTTP_Connection* connection = nullptr);
    void status_error(const std::string& text);
    bool is_success(unsigned status) const;

    URI uri_;
    std::string source_address_;
    std::string path_;
    std::uint32_t mode_ = 0;
    std::uint32_t status_ = 0;
    std::uint64_t size_ = 0;
    std::uint64_t position_ = 0;
    ACE_Message_Block recv_block_;
    bool overwrite_ = false;
    bool overwrite_now_ = false;
    bool retriable_ = false;
    bool forward_ = false;
    bool open_ = false;
    HTTP_Session::Ptr session_;
    HTTP_Connection::Ptr connection_;
    HTTP_Request request_;
    std::map<std::string, std::string> extra_headers_;
    std::uint32_t socket_timeout_ = 0;

    /// Servers that others wrote: more statuses are success, and files are always PUT.
    bool webdav_ = false;
    TLS_Settings tls_settings_;
    /// Of the download: where in the file it shall begin, and how much of the answer's body comes
    /// before that, from servers that know no ranges.
    std::uint64_t first_ = 0;
    std::uint64_t skip_ = 0;
    /// Bytes that the download shall still give, and whether that is known.
    std::uint64_t left_ = 0;
    bool left_known_ = false;
    std::string version_; ///< of the file that is being read

    /// What the server says of a file.
    struct Head
    {
        std::optional<std::uint64_t> size;
        std::string version;
        std::string file_id;
        std::optional<std::chrono::seconds> age; ///< since its last change
    };
    Head head_;   ///< what the last HEAD said
    Head opened_; ///< what the one before the open file said

    /// The replacement of a file that was begun and is not complete.
    struct Replacement
    {
        std::string path; ///< empty: there is none
        /// The new file, as the server named it when it was there; empty: what the server shows may
        /// still be the old one.
        std::string file_id;
        std::chrono::steady_clock::time_point begun;
        std::uint64_t sent = 0; ///< the file cannot be larger
    };
    Replacement replacement_;
};
