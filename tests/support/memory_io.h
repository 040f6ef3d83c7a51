#pragma once

#include "client_io/client_io_base.h"
#include "tests/support/memory_file_system.h"

#include <memory>

/// Storage in memory: a backend that holds to the interface's promises without a deviation.
///
/// Several objects may share one Memory_File_System, one after the other. Texts have the form
/// "%s %s: %s".
class Memory_IO : public Client_IO_Base
{
public:
    explicit Memory_IO(std::shared_ptr<Memory_File_System> files);

    using Client_IO_Base::open;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
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

private:
    bool fail(const char* text);
    bool fail(const char* what, const std::string& path, int number);
    bool check_open(bool writing);

    std::shared_ptr<Memory_File_System> files_;
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
