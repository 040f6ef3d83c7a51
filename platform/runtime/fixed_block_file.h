#pragma once

#include "platform/runtime/export.h"

#include <ace/os_include/os_fcntl.h>

#include <ace/Basic_Types.h>
#include <cstdint>
#include <memory>

/// How a local file is read or written in blocks. A zero in any field means the default that is
/// named there, so `File_Options{}` is a plain buffered file.
struct File_Options
{
    /// Bytes of one transfer between the file and memory; 0 = 65536, at most 64 MiB.
    std::uint64_t block_size = 0;

    /// Readers: how many bytes ahead of the position the system is asked to fetch once a file
    /// turns out to be read in sequence; 0 = leave it to the system.
    std::uint64_t read_ahead = 0;

    /// Whether data that this file will not touch again leaves the page cache, so that a backup
    /// of a terabyte does not push everything else out of memory. Files that are smaller than one
    /// window (write_behind, or read_ahead for readers) stay cached.
    bool drop_behind = false;

    /// Writers: how many windows of written data stay in the page cache behind the one that is
    /// being filled before they are dropped, which gives the disk that long to store them; data
    /// that is not stored by then stays cached. Nothing waits. 0 = 1.
    unsigned windows_kept = 0;

    /// Writers: window of bytes after which the system is told to start storing what was
    /// written; 0 = leave it to the system (and drop nothing).
    std::uint64_t write_behind = 0;
};

/// One block of memory for a file's data, aligned for fast transfers.
template <class Char>
class File_Buffer_T
{
public:
    static constexpr std::uint64_t max_size = 64U << 20U;

    /// Makes room for @p size elements; the contents are undefined afterwards.
    /// @return false (ACE_OS::last_error()) when that is not to be had
    [[nodiscard]] bool resize(std::uint64_t size);

    Char* data() { return data_.get(); }
    const Char* data() const { return data_.get(); }
    std::uint64_t size() const { return size_; }

private:
    struct Free
    {
        void operator()(Char* data) const;
    };
    std::unique_ptr<Char, Free> data_;
    std::uint64_t size_ = 0;
};

/// Reads a local file block by block; hands out its own buffer instead of copying.
/// One object serves one thread. Failures leave their reason in last_error().
template <class Char, class Buffer>
class CLIENT_IO_EXPORT Fixed_Block_File_Reader_T
{
public:
    Fixed_Block_File_Reader_T() = default;
    ~Fixed_Block_File_Reader_T();
    Fixed_Block_File_Reader_T(const Fixed_Block_File_Reader_T&) = delete;
    Fixed_Block_File_Reader_T& operator=(const Fixed_Block_File_Reader_T&) = delete;

    /// Opens a file at its start; one that is open already is closed first.
    /// @param flags     the system's open flags; O_RDONLY is implied, and flags that would make or
    ///                  change the file are left out
    /// @param share     sharing on Windows: 1 read, 2 write, 4 delete, added up; unused on POSIX
    /// @param prefetch  true: ask for the first read_ahead bytes at once instead of waiting
    ///                  until the file is read in sequence
    [[nodiscard]] bool open(const char* path, int flags, const File_Options& options, int share,
                            bool prefetch);

    /// Reads the next block into the buffer, which is overwritten.
    /// @param data  the block, in the buffer; valid until the next call. Callers may change it.
    /// @param size  elements in it, 0 at the end of the file, -1 on failure. A block shorter
    ///              than buffer_size() is the last one of a regular file (which may still grow).
    [[nodiscard]] bool read(Char*& data, std::int64_t& size);
    /// Reads the next @p size elements to @p data; what is in the buffer stays there.
    /// @return elements, fewer only at the end of the file, -1 on failure
    [[nodiscard]] std::int64_t read(Char* data, std::uint64_t size);

    /// @return the new position in bytes, -1 on failure
    std::int64_t seek(std::int64_t offset, int whence);

    /// @return false when the system reported a failure; the file is closed either way
    bool close();

    /// Whether a file is open.
    explicit operator bool() const { return handle_ != ACE_INVALID_HANDLE; }
    ACE_HANDLE handle() const { return handle_; }
    Char* buffer() { return buffer_.data(); }
    std::uint64_t buffer_size() const { return buffer_.size(); }
    /// System error number of the last failure, 0 when nothing failed yet.
    int last_error() const { return last_error_; }

private:
    bool fail();
    void advise();

    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
    Buffer buffer_;
    File_Options options_;
    std::uint64_t position_ = 0;   // in the file, behind the last block read
    std::uint64_t sequential_ = 0; // bytes read since the last seek
    std::uint64_t advised_ = 0;    // the system was asked to fetch up to here
    std::uint64_t dropped_ = 0;    // the page cache was asked to forget up to here
    int last_error_ = 0;
};

/// Writes a local file; gathers small writes into blocks and passes large ones straight on.
/// One object serves one thread. Failures leave their reason in last_error().
///
/// After a failed write the file is in an unknown state, so every further write, flush and close
/// fails with the same reason: what was given to a writer is in the file only if close() says so.
template <class Char, class Buffer>
class CLIENT_IO_EXPORT Fixed_Block_File_Writer_T
{
public:
    Fixed_Block_File_Writer_T() = default;
    /// Closes the file and forgets what is still in the buffer; close() is what stores it.
    ~Fixed_Block_File_Writer_T();
    Fixed_Block_File_Writer_T(const Fixed_Block_File_Writer_T&) = delete;
    Fixed_Block_File_Writer_T& operator=(const Fixed_Block_File_Writer_T&) = delete;

    /// Opens a file; one that is open already is closed first, without storing its buffer.
    /// @param flags     the system's open flags (O_CREAT, O_TRUNC, O_APPEND, O_EXCL);
    ///                  O_WRONLY is implied. New files get mode 0666 less the umask.
    /// @param buffered  false: every write goes to the system at once
    /// @param share     sharing on Windows: 1 read, 2 write, 4 delete, added up; unused on POSIX
    [[nodiscard]] bool open(const char* path, int flags, bool buffered, int share,
                            const File_Options& options);

    /// Writes @p size elements.
    /// @param accepted  receives how many were taken before a failure; may be NULL
    [[nodiscard]] bool write(const Char* data, std::uint64_t size, std::uint64_t* accepted);

    /// Hands what the buffer holds to the system.
    [[nodiscard]] bool flush();

    /// Flushes, then moves the position. A file opened with O_APPEND is written at its end anyway.
    /// @return the new position in bytes, -1 on failure
    std::int64_t seek(std::int64_t offset, int whence);

    /// Flushes and closes the file, which is closed whatever happens.
    /// @return true only when everything that was written since open() reached the system
    [[nodiscard]] bool close();

    explicit operator bool() const { return handle_ != ACE_INVALID_HANDLE; }
    ACE_HANDLE handle() const { return handle_; }
    std::uint64_t buffer_size() const { return buffer_.size(); }
    int last_error() const { return last_error_; }

private:
    bool fail();
    void go_to_end();
    bool store(const Char* data, std::uint64_t size);
    void advise();

    ACE_HANDLE handle_ = ACE_INVALID_HANDLE;
    Buffer buffer_;
    File_Options options_;
    std::uint64_t buffered_ = 0; // elements waiting in the buffer
    std::uint64_t position_ = 0; // in the file, behind the last byte stored
    std::uint64_t window_ = 0;   // start of the window that is being filled
    bool buffering_ = true;
    bool appending_ = false;
    bool failed_ = false;
    int last_error_ = 0;
};

using File_Reader = Fixed_Block_File_Reader_T<char, File_Buffer_T<char>>;
using File_Writer = Fixed_Block_File_Writer_T<char, File_Buffer_T<char>>;

extern template class CLIENT_IO_EXPORT Fixed_Block_File_Reader_T<char, File_Buffer_T<char>>;
extern template class CLIENT_IO_EXPORT Fixed_Block_File_Writer_T<char, File_Buffer_T<char>>;
