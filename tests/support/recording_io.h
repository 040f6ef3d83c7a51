#pragma once

#include "client_io/client_io_base.h"

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

/// What a Recording_IO was asked and what it answers; outlives it.
struct Recording
{
    /// Every call in order: "open(a, 2, 100, 0)". Buffers are written as their addresses.
    std::vector<std::string> calls;

    /// Operations that fail, by name: "close", "open", ...
    std::set<std::string> failing;
    std::string error;
    int errnum = 0;
    bool retriable = false;
    bool connected = false;
    bool open = false;
    std::uint64_t stream_size = 0;
    std::uint64_t original = 0;
    std::uint64_t storage = 0;
    std::uint64_t path_size = 0;
    std::deque<std::string> blocks; ///< what the reads hand out, one each
    std::string block;              ///< the one handed out last
    std::string written;
    std::map<std::string, std::vector<Client_IO_Base::Directory_Entry>> directories;
    std::string config;
    bool destroyed = false;

    /// The calls without questions about the state (is_connected, error, ...).
    std::vector<std::string> actions() const;
    /// How many calls begin with @p start.
    std::size_t count(const std::string& start) const;
};

/// A layer that does nothing but note how it was called, and answers as the Recording says.
class Recording_IO : public Client_IO_Base
{
public:
    explicit Recording_IO(std::shared_ptr<Recording> recording);
    ~Recording_IO() override;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool is_connected() const override;
    void disconnect() override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool is_open() const override;
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;
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

private:
    bool answer(const std::string& name) const { return !recording_->failing.contains(name); }
    template <class... Arguments>
    void note(const char* name, const Arguments&... arguments) const;

    std::shared_ptr<Recording> recording_;
};

/// The text by which a Recording notes a call.
template <class... Arguments>
std::string call_text(const char* name, const Arguments&... arguments)
{
    std::ostringstream text;
    [[maybe_unused]] const char* separator = "";
    text << std::boolalpha << name << '(';
    ((text << separator << arguments, separator = ", "), ...);
    text << ')';
    return text.str();
}
