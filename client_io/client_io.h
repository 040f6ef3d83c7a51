#pragma once

#include "client_io/client_io_base.h"

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

/// The class that applications use: connects to a target of any kind and works on its files.
///
/// A Client_IO owns a stack of layers: a storage backend at the bottom and above it the
/// transforms that the options ask for (retries, rate control, encryption, compression). Every
/// operation checks the facade's own state, then goes through the stack.
///
/// A dropped connection is established again by the next operation that is not const ("Not
/// connected" when that fails). One file is open at a time; operations on paths are refused while
/// one is ("A file is already open").
///
/// Out of memory sets the system error number to ENOMEM and fails without a text.
///
/// error() tells what failed: the facade's own text for failures of state, else the text of the
/// layer that failed. Broken preconditions (NULL buffers, empty paths, reads of no bytes) are
/// logged at emergency priority instead and make the operation fail.
///
/// One object serves one thread. Different objects may be used on different threads.
class CLIENT_IO_EXPORT Client_IO : public Client_IO_Base
{
public:
    /// The numbers are part of the interface.
    enum Protocol : unsigned
    {
        PROTOCOL_HTTP = 0,
        PROTOCOL_FTP = 1,
        PROTOCOL_DEDUP = 2,
        PROTOCOL_D2T = 3,
        PROTOCOL_MTF = 4,
        PROTOCOL_FILE = 5,
        PROTOCOL_S3 = 6,
        PROTOCOL_OSS = 7,
        PROTOCOL_KSS = 8,
        PROTOCOL_UFILE = 9,
        PROTOCOL_COS = 10,
        PROTOCOL_SCS = 11,
        PROTOCOL_BTRFS = 12,
        PROTOCOL_LANFREE = 13,
        PROTOCOL_SDFS = 14,
        PROTOCOL_BLOB = 15,
        PROTOCOL_S3V4 = 16,
        PROTOCOL_HBR = 17,
        PROTOCOL_OBS = 18,
        PROTOCOL_BTRFS_HTTP = 19,
    };

    /// Told the bytes of each step of a transfer (increments, not totals). One that throws makes
    /// the transfer fail.
    using Progress = std::function<void(std::uint64_t)>;
    /// Told each file of a walk with the path of its directory; false stops.
    using Walk_Callback = std::function<bool(const char*, const Directory_Entry&)>;

    Client_IO();
    /// Connects at once; is_connected() tells the result.
    Client_IO(const char* uri, const Options& options);
    Client_IO(Protocol protocol, const char* host, unsigned short port, bool ssl, const char* path,
              const Options& options);
    /// Disconnects, which closes an open file without reporting the result: close() it before.
    ~Client_IO() override;

    using Client_IO_Base::size;

    /// @return bytes read, 0 at the end, -1 on failure. A read of no bytes is a failure.
    std::int64_t read(void* buf, std::uint64_t size) override;
    /// A write of no bytes succeeds and does nothing.
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    /// Fails with "Invalid URI" (scheme or path empty), "Protocol not supported", "Unknown
    /// compression method %d", "lzop is not supported by this build", or the text of the layer that
    /// cannot be had or cannot connect. After one that could not even be tried there is nothing
    /// left that reconnect() could come back to.
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool is_connected() const override;
    /// Closes an open file (result ignored) and disconnects; reconnect() comes back. Closing may
    /// take as long as the options' max_retry, like every close().
    void disconnect() override;
    /// Opens a file; one that is open already is closed first, and when that fails the new one is
    /// not opened ("Failed to close previous file: " and the reason). Nor is it, once, when the one
    /// before was open for writing and went with its connection.
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool is_open() const override;
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;
    /// After a file was opened for writing: the user bytes written, also after close().
    std::uint64_t original_size() const override;
    std::uint64_t storage_size() const override;

    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;
    bool make_dir(const char* path, unsigned short mode) override;
    bool truncate(const char* path, std::uint64_t size) override;
    bool remove(const char* path) override;
    bool copy(const char* src, const char* dst, bool overwrite) override;
    bool rename(const char* src, const char* dst, bool overwrite) override;

    int errnum() const override;
    const std::string& error() const override;
    bool retriable() const override;
    std::string get_config(const char* key) const override;

    /// Connects to a URI written as text; "Invalid URI" when it is NULL or cannot be parsed.
    virtual bool connect(const char* uri, const Options& options);
    /// Connects to the URI that generate_uri() builds.
    virtual bool connect(Protocol protocol, const char* host, unsigned short port, bool ssl,
                         const char* path, const Options& options);

    /// Downloads a file.
    /// @param local_flags  the system's open flags for the local file (O_CREAT, O_TRUNC, ...).
    ///     With O_APPEND the download goes on where an existing local file ends.
    /// @param file_option  bytes of one local transfer, 0 = 65536
    virtual bool get_file(const char* remote, const char* local, int local_flags,
                          std::uint64_t file_option, Progress progress);
    /// Uploads a local file.
    virtual bool put_file(const char* remote, const char* local, bool overwrite, int local_flags,
                          std::uint64_t file_option, Progress progress);
    /// Uploads what a stream holds from its present position to its end.
    virtual bool put_stream(std::istream& in, const char* remote, bool overwrite);
    /// Whether the current or last file was opened in a write mode.
    virtual bool writable() const;
    /// Reads a whole file; after a failed read @p out holds what was read before.
    virtual bool get_contents(const char* path, std::string& out);
    virtual bool put_contents(const char* path, const std::string& data, bool overwrite);
    virtual bool put_contents(const char* path, const void* data, std::uint64_t size,
                              bool overwrite);
    /// Puts a compression transform on top of the stack in place of the present one.
    /// COMPRESSION_AUTO changes nothing, and nothing is changed while a file is open (the text is
    /// "A file is already open" then). Out of memory ends the connection and drops the stack, so
    /// that nothing is stored otherwise than was asked for.
    virtual void set_compression(Compression_Method method);
    /// The same with the method that the suffix of a file name asks for.
    virtual void set_compression(const std::string& file_name);
    /// Puts an encryption transform into the stack, beneath a compression, in place of the present
    /// one; the present algorithm again changes nothing, whatever the key. Refused while a file is
    /// open ("A file is already open").
    /// @return false ("Unknown encryption algorithm %d") for a number that names no cipher; false
    /// as
    ///     well when memory runs out, which ends the connection and drops the stack. A key or IV
    ///     that does not suit the cipher shows at the next open.
    virtual bool set_encryption(Encryption_Algorithm algorithm, const unsigned char* key,
                                int key_len, const unsigned char* iv, int iv_len);

    /// Offset of the stream in user bytes, -1 when no file is open. In append mode it counts from
    /// the size that the target shows, which is that of the stored form.
    std::int64_t tell() const { return position_; }
    /// Protocol of the last connection.
    Protocol protocol() const { return protocol_; }
    /// Whether the protocol can write at any offset.
    bool allow_random_write() const;

    /// Builds the URI of a target from its parts.
    /// @param host  may be NULL for PROTOCOL_FILE only, like a @p port of 0
    /// @return false with "Invalid URI" when a part is missing
    bool generate_uri(Protocol protocol, const char* host, unsigned short port, bool ssl,
                      const char* path, URI& uri);

    /// Calls @p callback for every file below a directory, depth first, in the order in which the
    /// target lists them. A callback that returns false ends the walk of its directory only;
    /// subdirectories that cannot be listed are passed over.
    /// @param path  NULL or "" is the target's root
    /// @return false when @p path cannot be listed or its own files' callback returned false
    bool walk_directory(const char* path, const Walk_Callback& callback);

protected:
    bool check_random_write(unsigned mode);
    bool prepare_open(const char* path, unsigned mode);
    /// Words a failure of the system: "%s %s: %s".
    void set_error(const char* what, const char* path);
    /// The copy loop of get_file(): from the open file into @p local.
    bool get_file_i(const char* local, int local_flags, std::uint64_t file_option,
                    const Progress& progress);

    /// Replaces the stack by one over @p backend and connects it; every connection ends here.
    /// Subclasses may bring a backend of their own.
    /// @param stack_options  options the stack is built from
    /// @param options        the caller's own, which the layers read
    bool connect_stack(std::unique_ptr<Client_IO_Base> backend, Protocol protocol, const URI& uri,
                       const Options& stack_options, const Options& options);

    Protocol protocol_ = PROTOCOL_HTTP;
    bool write_mode_ = false;
    std::unique_ptr<Client_IO_Base> io_; ///< top of the stack
    Compression_Method compression_ = COMPRESSION_NONE;
    int compression_level_ = 1;
    bool auto_compression_ = false;
    Encryption_Algorithm encryption_ = ENCRYPTION_NONE;
    std::int64_t bytes_written_ = -1; ///< user bytes since the open for writing
    std::int64_t position_ = -1;

private:
    bool check_connected();
    bool check_open();
    bool check_no_file_open();
    template <class Operation>
    bool forward(Operation operation);
    bool refuse_connection(const std::string& reason);
    void take_off_transform();
    bool refuse_same_file(const char* remote, const char* local);
    bool close_after_failure();
    bool out_of_memory() noexcept;

    bool unclosed_ = false;  ///< a file was opened for writing and close() not called since
    std::string local_root_; ///< of a target that is a directory here, else empty
};
