#pragma once

#include "client_io/client_io_base.h"

#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// One stored file, and how the layer over it behaves; outlives that layer.
struct Store
{
    std::string data;
    std::uint64_t piece = std::numeric_limits<std::uint32_t>::max(); ///< most that one read brings
    std::set<std::string> failing; ///< operations that fail: "open", "read", "write", ...
    /// Of the operation so many succeed before all fail; other operations are not counted.
    std::int64_t reads_left = std::numeric_limits<std::int64_t>::max();
    std::int64_t writes_left = std::numeric_limits<std::int64_t>::max();
    bool throws = false; ///< reads and writes that are to fail run out of memory instead
    std::string error = "the store's words";
    bool forgets_error_at_close = false;
    bool stays_open_at_failed_close = false;
    bool retriable = false;
    bool open = false;
    std::uint64_t path_size = 0; ///< answer to size(path), whatever the file holds
    std::vector<std::string> calls;
};

/// The layer over a Store. A block that a zero-copy read handed out is spoilt at the next call.
class Store_IO : public Client_IO_Base
{
public:
    explicit Store_IO(std::shared_ptr<Store> store);

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool is_connected() const override { return true; }
    void disconnect() override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool is_open() const override { return store_->open; }
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
    bool retriable() const override { return store_->retriable; }
    std::string get_config(const char* key) const override;

private:
    bool answer(const char* operation);
    bool open_file(unsigned mode);

    std::shared_ptr<Store> store_;
    std::size_t position_ = 0;
    std::vector<char> block_;
};
