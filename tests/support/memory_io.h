#pragma once

#include "client_io/client_io_base.h"
#include "tests/support/memory_file_system.h"

#include <memory>

/// Storage in memory: a backend that holds to the interface's promises without a deviation.
///
/// Several objects may share one Memory_File_System, one after the other. Texts have the form
/// "%s %s: %s". get_config("file_version") of an open file changes when the file is replaced.
///
/// In strict mode it also takes down every call that the interface does not provide for at that
/// moment (before it answers as ever): anything before connect() or without a connection, reading,
/// writing, flushing, seeking or closing without an open file, writing or flushing what is open for
/// reading and the other way round, and opening a file or working on paths while a file is open.
class Memory_IO : public Client_IO_Base
{
public:
    /// What strict mode found, in words.
    using Violations = std::vector<std::string>;

    /// @param violations  turns strict mode on
    explicit Memory_IO(std::shared_ptr<Memory_File_System> files,
                       std::shared_ptr<Violations> violations = nullptr);

    using Client_IO_Base::open;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    /// Ends an open file, as a new connection does.
    bool reconnect() override;
    bool is_connected() const override { return connected_; }
    /// Ends an open file.
    void disconnect() override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool is_open() const override { return open_; }
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;

    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;
    bool make_dir(const char* path, unsigned short mode) override;
    bool truncate(const char* path, std::uint64_t size) override;
    bool remove(const char* path) override;
    bool copy(const char* src, const char* dst, bool overwrite) override;
    bool rename(const char* src, const char* dst, bool overwrite) override;
    std::string get_config(const char* key) const override;

private:
    /// What has to stand before an operation.
    enum class Needs
    {
        no_file,
        file,
        file_to_read,
        file_to_write,
    };

    void check_order(const char* operation, Needs needs) const;
    bool fail(const char* text);
    bool fail(const char* what, const std::string& path, int number);
    bool check_open(bool writing);

    std::shared_ptr<Memory_File_System> files_;
    std::shared_ptr<Violations> violations_; ///< NULL: not strict
    bool connected_ = false;
    bool was_connected_ = false;
    bool overwrite_ = false;
    bool open_ = false;
    bool writing_ = false;
    std::string path_;
    std::uint64_t position_ = 0;
    std::uint64_t end_ = 0; ///< no byte at or behind it is read
    std::string block_;
};
