#pragma once

#include "platform/json/json_spirit.h"
#include "platform/runtime/compression_method.h"
#include "platform/runtime/encryption_algorithm.h"
#include "platform/runtime/export.h"
#include "platform/runtime/io_base.h"
#include "platform/runtime/rate_control_entry.h"
#include "platform/runtime/uri.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// The one interface of the system: a byte stream over one open file, and the file system around
/// it. The facade Client_IO, every storage backend and every stream transform implement it.
///
/// **Errors.** An operation that fails returns its failure value (false, -1) and leaves a text in
/// error() and, where there is one, a number in errnum(). A successful operation may leave stale
/// ones: read them after a failure only. No exception leaves an operation.
///
/// **Slots.** The order of the virtual operations is part of the binary interface.
///
/// **Threads.** An object is used by one thread at a time and never locks.
class CLIENT_IO_EXPORT Client_IO_Base : public IO_Base
{
public:
    struct Options;

    /// One entry of a directory listing.
    struct Directory_Entry
    {
        std::string name;       ///< inside the listed directory, without a path
        bool is_dir = false;    ///< true for a directory, false for a file
        std::int64_t mtime = 0; ///< modification time, POSIX seconds (UTC)
        std::uint64_t size = 0; ///< bytes
    };

    /// Access kinds: the low byte of an open mode. Every value but read is a write mode.
    enum Open_Mode : unsigned
    {
        mode_read = 1,         ///< from the start or an offset; writes are refused
        mode_write = 2,        ///< a new file (or an overwritten one) from the start
        mode_append = 3,       ///< behind the file's present end
        mode_random_write = 4, ///< at any offset; contents outside the writes stay
        mode_access = 0xFF,    ///< mask of the access kind
        mode_overwrite = 0x100 ///< flag: an existing file may be replaced
    };

    /// Results of size(path): all ones is unknown or failed, -21 a directory.
    static constexpr std::uint64_t size_unknown = ~std::uint64_t{0};
    static constexpr std::uint64_t size_of_directory = static_cast<std::uint64_t>(-21);

    ~Client_IO_Base() override;

    using IO_Base::read;
    using IO_Base::size;

    /// Connects to the target that @p uri names. Nothing of an earlier connection survives.
    virtual bool connect(const URI& uri, const Options& options) = 0;
    /// Connects again to the target of the last connect().
    virtual bool reconnect() = 0;
    virtual bool is_connected() const = 0;
    virtual void disconnect() = 0;

    /// Opens the file @p path, which is relative to the target.
    /// @param mode    an Open_Mode, perhaps with flags
    /// @param offset  bytes from the start of the file at which the stream begins
    /// @param size    bytes that will be read or written at most; 0 = unknown, no limit
    virtual bool open(const char* path, unsigned mode, std::uint64_t offset,
                      std::uint64_t size) = 0;
    /// Opens with settings that only some backends know; others ignore @p extra.
    /// Base: open(path, mode, 0, 0).
    virtual bool open(const char* path, unsigned mode, const json_spirit::Value& extra);
    virtual bool is_open() const = 0;
    /// Ends the open file. Only a true result says that everything written is on the target.
    virtual bool close() = 0;

    /// Reads without copying: @p data points into the implementation's own buffer and is valid
    /// until the next call. @p size 0 with true is the end of the stream. Use this form or the
    /// copying read on one open file, not both.
    virtual bool read(const void*& data, std::uint64_t& size) = 0;
    virtual bool flush() = 0;
    /// Moves the stream to @p offset. In a write mode success says as well that the target has what
    /// was written before.
    /// @param length  bytes that will be accessed there, 0 = unknown
    /// Base: false, not supported, no text.
    virtual bool seek(std::uint64_t offset, std::uint64_t length);

    /// Bytes of user data, before compression and encryption. Base: size().
    virtual std::uint64_t original_size() const;
    /// Bytes as the target stores them. Base: size().
    virtual std::uint64_t storage_size() const;

    /// @return bytes of the file @p path; size_of_directory for a directory where the backend can
    ///         tell; size_unknown on failure
    virtual std::uint64_t size(const char* path) = 0;
    /// Appends the entries of the directory @p path to @p entries.
    virtual bool get_dir(const char* path, std::vector<Directory_Entry>& entries) = 0;
    /// Creates a directory and its missing parents.
    /// @param mode  permission bits, where the target has them
    virtual bool make_dir(const char* path, unsigned short mode) = 0;
    /// Base: false, not supported, no text.
    virtual bool truncate(const char* path, std::uint64_t size);
    /// Removes a file or an empty directory. Removing a missing path is success.
    virtual bool remove(const char* path) = 0;
    /// Base: false, not supported, no text.
    virtual bool copy(const char* src, const char* dst, bool overwrite);
    /// Base: false, not supported, no text.
    virtual bool rename(const char* src, const char* dst, bool overwrite);

    /// Number of the last failure: the system's or the implementation's own, 0 = none.
    virtual int errnum() const;
    /// Text of the last failure.
    virtual const std::string& error() const;
    /// Whether repeating the operation that failed last may help. Base: false.
    virtual bool retriable() const;

    /// A setting or figure that only some backends know; empty when this one does not.
    ///
    /// "file_version" of an open file is a text that becomes another one when the file's contents
    /// are replaced (an entity tag, a modification time); by it a read that goes on after a
    /// reconnect notices that it would join two files. Base: empty.
    virtual std::string get_config(const char* key) const;

protected:
    Client_IO_Base() = default;

    std::int32_t errnum_ = 0;
    std::string error_;
};

/// The settings of a connection. A plain record; `docs/options.md` tells who reads what.
///
/// The key and IV are wiped when the record is destroyed.
struct CLIENT_IO_EXPORT Client_IO_Base::Options
{
    static constexpr std::uint64_t max_key_len = 64; ///< OpenSSL's largest, bytes
    static constexpr std::uint64_t max_iv_len = 16;  ///< OpenSSL's largest, bytes

    bool overwrite = false;           ///< existing files may be replaced
    std::int32_t socket_timeout = 60; ///< seconds
    std::uint64_t max_retry = 600;    ///< seconds for which failures are retried, 0 = never
    std::uint64_t resumption_buffer_size = 10485760; ///< bytes kept for replay
    bool forward = false;
    std::uint64_t max_bytes_per_second = 0; ///< 0 = unlimited
    std::vector<Rate_Control_Entry> rate_control;
    Compression_Method compression = COMPRESSION_NONE;
    std::int32_t compression_level = 1;
    Encryption_Algorithm encryption_algorithm = ENCRYPTION_NONE;
    unsigned char encryption_key[max_key_len] = {};
    std::uint64_t encryption_key_len = 0; ///< bytes
    unsigned char encryption_iv[max_iv_len] = {};
    std::uint64_t encryption_iv_len = 0; ///< bytes
    std::uint64_t dedup_chunk_size = 0;  ///< bytes, 0 = the server's
    std::uint64_t dedup_max_memory = 0;  ///< bytes, 0 = the client's default
    bool flush_after_write = false;
    std::string access_key;
    std::string secret_key;
    std::string preferred_source_address;
    std::int32_t d2t_access_mode = 0;
    std::map<std::int32_t, std::string> node_addrs; ///< address of each node id
    std::map<std::string, std::string> extra_options;

    Options();
    Options(const Options&);
    Options& operator=(const Options&);
    ~Options();

    /// Reads the fields that @p obj holds; absent ones stay, and so do fields whose member is of
    /// the wrong type (which is logged as a warning).
    /// @return false when "encryption" is there but its name, "key" or "iv" does not serve; what
    ///         was read before it stays read
    bool operator<<(const std::map<std::string, json_spirit::Value>& obj);
    /// Writes the fields into @p obj, secrets included: treat the result like the key itself.
    void operator>>(std::map<std::string, json_spirit::Value>& obj) const;

    /// Sets the cipher and its key material. Algorithm 0 turns encryption off and always succeeds.
    /// @param key_len  bytes, 1 to 64
    /// @param iv_len   bytes, 0 to 16; with a NULL @p iv the IV bytes stay as they were
    /// @return false, with nothing changed, when an argument is out of its range
    bool set_encryption_from_binary(Encryption_Algorithm algorithm, const unsigned char* key,
                                    std::uint64_t key_len, const unsigned char* iv,
                                    std::uint64_t iv_len);
    /// By name: false for a name that means none. An unknown name becomes algorithm -1, which the
    /// connection refuses.
    bool set_encryption_from_binary(const char* algorithm_name, const unsigned char* key,
                                    std::uint64_t key_len, const unsigned char* iv,
                                    std::uint64_t iv_len);
    bool set_encryption_from_binary(Encryption_Algorithm algorithm, const std::string& key,
                                    const std::string& iv);
    bool set_encryption_from_binary(const char* algorithm_name, const std::string& key,
                                    const std::string& iv);

    /// The same with key and IV in base64. After a failure the lengths may have changed already.
    bool set_encryption_from_base64(const char* algorithm_name, const char* key_b64,
                                    const char* iv_b64);
    bool set_encryption_from_base64(const char* algorithm_name, const std::string& key_b64,
                                    const std::string& iv_b64);

    /// Sets an option that backends read by name; NULL arguments and an empty key are logged and
    /// change nothing.
    void set_extra_option(const char* key, const char* value);
    void set_extra_option(const char* key, const std::string& value);
    /// @return false, with @p value untouched, when there is no such option
    bool get_extra_option(const char* key, std::string& value) const;

    /// Where the D2T RPC service is reached: kept in the extra options.
    void set_d2t_rpc_host(const char* host);
    std::string get_d2t_rpc_host() const; ///< "127.0.0.1" unless set
    void set_d2t_rpc_port(unsigned short port);
    unsigned short get_d2t_rpc_port() const; ///< 50309 unless set
};
