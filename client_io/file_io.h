#pragma once

#include "client_io/client_io_base.h"
#include "platform/runtime/fixed_block_file.h"

/// Storage that is a directory of the local file system.
///
/// Paths are relative to the base directory that the URI's path names; `/` in them stands for the
/// system's separator. The base directory and the directories of a file that is opened for
/// writing are created when they are missing.
///
/// Failures of the system read "%s %s, errno=%d: %s": what failed, the full path, the number, its
/// text. retriable() is always false.
///
/// Pipes are refused, since opening one waits for its other end. A failed read leaves the stream
/// where it was.
///
/// One object serves one thread. Objects on several threads do not disturb each other.
class File_IO : public Client_IO_Base
{
public:
    File_IO();
    ~File_IO() override;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    /// Reading: the file's size at open. Writing: the highest position written so far, which in
    /// append mode counts from the open.
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool is_connected() const override;
    /// Forgets the base directory; an open file stays open.
    void disconnect() override;
    /// @param size  in read mode the stream ends after so many bytes, 0 = no limit
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    /// @param extra  an object may hold "X-Mode-Creation-Mask", an integer: the permission bits
    ///     that missing directories on the way do not get
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool is_open() const override;
    /// Stores what is still in memory; true only when every byte written reached the system.
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    /// Does nothing: buffered data goes to the system at close().
    bool flush() override;
    /// In append mode writes go to the end of the file all the same.
    /// @param length  in read mode a limit as for open()
    bool seek(std::uint64_t offset, std::uint64_t length) override;

    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;
    bool make_dir(const char* path, unsigned short mode) override;
    bool truncate(const char* path, std::uint64_t size) override;
    /// An empty directory is removed; one with entries is an error, and so is the base directory.
    bool remove(const char* path) override;
    bool copy(const char* src, const char* dst, bool overwrite) override;
    bool rename(const char* src, const char* dst, bool overwrite) override;

private:
    std::string full_path(const char* path) const;
    bool create_directory(const std::string& path, unsigned short mode);
    bool open_file(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size,
                   unsigned short creation_mode);
    bool next_block(char*& data, std::int64_t& size);
    bool set_read_error();
    bool set_error(const char* what, const std::string& path);

    bool writing_ = false;
    bool overwrite_ = false;
    std::string root_;
    std::string path_;
    File_Reader reader_;
    File_Writer writer_;
    std::uint64_t buffer_pos_ = 0; ///< in the reader's buffer; 0 = nothing pending
    std::int64_t remaining_ = 0;   ///< bytes that may still be read, -1 = no limit
    std::int64_t size_ = 0;
    std::uint64_t position_ = 0;
};
