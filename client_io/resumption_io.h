#pragma once

#include "client_io/pipe_io.h"
#include "platform/runtime/circular_buffer.h"

#include <limits>

/// Makes the connection to a target survive transient failures. The lowest transform of a stack.
///
/// When an operation fails and the layer below says that repeating may help, it waits (10 s, 20 s,
/// ... 60 s, 60 s, ...), reconnects, opens the current file again where it was, and repeats the
/// operation, for at most the options' max_retry seconds (whatever is being tried then is
/// finished). Retried are connect (whatever the failure), both opens, both reads, size(path),
/// get_dir, and while a file is open for writing write, flush and close. The caller's thread sleeps
/// meanwhile.
///
/// **Reading** goes on at the byte behind the last one handed out and ends where the caller's limit
/// says. When the file's size or its get_config("file_version") is another one after the reopening,
/// the read fails ("Failed to resume read, ...") rather than joining two files.
///
/// **Writing.** The most recent bytes are kept. In write and append mode the size that the target
/// reports after the reopening tells which bytes it holds (the breakpoint); what lies behind it is
/// sent again. Where sizes tell nothing, in random-write mode and after a seek, everything since
/// the open or the last seek is sent again at its offset. If that is not in the buffer any more, or
/// the target holds more than was written, the operation fails ("Failed to resume write, ..."): it
/// never reports success for bytes that the target cannot be shown to hold. In random-write mode
/// what stands outside the writes is somebody else's. A write that failed for good leaves a tail of
/// unknown length in the file, so nothing is resumed after it until the next open; and when a
/// resumption breaks off with the file open, every write, flush and close of that file fails. A
/// file that is still open for writing is closed, with retries, before the next one is opened.
///
/// What it relies on below: after an open, size() is the size of the whole file as the target holds
/// it, or unknown; an open that replaces a file has done so when it succeeds; a seek in a write
/// mode succeeds only when the target has what was written before, and goes to its offset also in a
/// file that was opened for append.
///
/// After a failed retry error() is the text of the first failure, unless a text of its own says why
/// the retry ended. Notices go to the log.
///
/// One object serves one thread. Memory: the buffer, taken at construction.
class Resumption_IO : public Pipe_IO
{
public:
    /// @param io           layer below; owned from now on
    /// @param buffer_size  bytes of the most recent writes that are kept
    Resumption_IO(std::unique_ptr<Client_IO_Base> io, std::uint64_t buffer_size);
    ~Resumption_IO() override;

    using Pipe_IO::size;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    bool connect(const URI& uri, const Options& options) override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    /// A failed close of a file that was open for reading is reported as success.
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;
    std::uint64_t size(const char* path) override;
    /// Entries of a listing that failed half-way are taken back.
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;

private:
    static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

    /// How it is found out after a reopening what the target lacks of the written bytes.
    enum class Evidence
    {
        size,    ///< the file ends with the last byte that arrived
        none,    ///< everything since stretch_ is sent again at its offset
        useless, ///< offsets in the file are not known: nothing can be sent again
    };

    bool begin_operation();
    void remember_file(const char* path, unsigned mode, std::uint64_t offset);
    void reset_buffer(unsigned mode, std::uint64_t offset);
    bool reopen_for_reading();
    bool check_same_file();
    void advance(std::uint64_t n);
    template <class Operation>
    bool open_with(Operation open_lower, const char* path, unsigned mode, std::uint64_t offset,
                   std::uint64_t size);
    template <class Operation>
    bool retry(Operation operation, const char* what);
    template <class Operation>
    bool retry_write(Operation operation, const void* data, std::uint64_t size);
    template <class Operation>
    bool complete_write(Operation operation, const void* data, std::uint64_t size,
                        std::uint64_t held);
    std::int64_t resume(std::uint64_t size);
    bool check_target();

    std::string path_;
    bool write_mode_ = false;
    std::uint32_t mode_ = 0;                 ///< for reopening
    std::uint64_t max_seconds_retry_ = 0;    ///< 0: nothing is retried
    std::uint64_t position_ = 0;             ///< file offset up to which the caller has read
    Circular_Buffer buffer_;                 ///< last bytes written, by file offset
    std::int64_t breakpoint_ = 0;            ///< file size reported at the last resumption
    std::uint64_t left_ = unlimited;         ///< bytes until the caller's read limit
    std::uint64_t file_size_ = size_unknown; ///< of the file open for reading
    std::string file_version_;               ///< likewise
    bool replaced_ = false;                  ///< it turned out to be another file
    Evidence evidence_ = Evidence::size;
    std::uint64_t stretch_ = 0; ///< file offset where the present stretch of writing began
    /// Size that the file had at most before the present stretch; unlimited where others may write
    std::uint64_t extent_ = unlimited;
    bool write_failed_ = false;      ///< for good, since the last open
    bool incomplete_ = false;        ///< reopened, and not all sent again that the target lacks
    std::uint64_t foreign_tail_ = 0; ///< bytes that the target holds behind what was written
};
