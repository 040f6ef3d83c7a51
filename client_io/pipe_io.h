#pragma once

#include "client_io/client_io_base.h"

#include <memory>

/// The layer from which every stream transform derives: owns the layer below it and forwards
/// every operation to it unchanged. A transform overrides what it changes and nothing else.
///
/// Without a lower layer every operation fails (false, -1, empty). error() is the layer's own
/// text when it has one, else the lower layer's; errnum() and retriable() are the lower layer's. An
/// operation that is forwarded forgets the layer's own text first, so that a failure of the lower
/// layer is not hidden by an older one.
class Pipe_IO : public Client_IO_Base
{
public:
    /// @param io  layer below; owned from now on; may be NULL
    explicit Pipe_IO(std::unique_ptr<Client_IO_Base> io);
    ~Pipe_IO() override;

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

    /// Gives up the lower layer: the caller owns it, and this layer has none from then on.
    virtual std::unique_ptr<Client_IO_Base> release();

    /// Discards @p n bytes of this layer's output through its zero-copy read.
    ///
    /// Bytes of the last block that stand behind the skipped ones are moved to the start of that
    /// block (the one that the last zero-copy read handed out).
    /// @return how many such bytes there are; -1 when a read failed or the input ended before
    virtual std::int64_t skip(std::uint64_t n);

    /// Discards @p n bytes by reading them into @p buffer.
    /// @return false when a read brought fewer bytes than asked for
    virtual bool skip(std::uint64_t n, void* buffer, std::uint64_t buffer_size);

protected:
    std::unique_ptr<Client_IO_Base> _io;

private:
    Client_IO_Base* below();
};
