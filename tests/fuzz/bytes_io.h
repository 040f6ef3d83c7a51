#pragma once

#include "client_io/client_io_base.h"

#include <algorithm>

/// A file of given bytes, for reading: hands out pieces of the length it is told.
class Bytes_IO : public Client_IO_Base
{
public:
    Bytes_IO(const std::uint8_t* data, std::size_t size, std::size_t piece)
        : bytes_(data, data + size), piece_(std::max<std::size_t>(piece, 1))
    {}

    using Client_IO_Base::open;

    std::int64_t read(void* buf, std::uint64_t size) override
    {
        const std::size_t n = std::min<std::size_t>(size, bytes_.size() - position_);
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(position_), n,
                    static_cast<std::uint8_t*>(buf));
        position_ += n;
        return static_cast<std::int64_t>(n);
    }
    bool write(const void*, std::uint64_t) override { return false; }
    std::uint64_t size() const override { return bytes_.size(); }
    bool connect(const URI&, const Options&) override { return true; }
    bool reconnect() override { return true; }
    bool is_connected() const override { return true; }
    void disconnect() override {}
    bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override
    {
        position_ = 0;
        return true;
    }
    bool is_open() const override { return true; }
    bool close() override { return true; }
    bool read(const void*& data, std::uint64_t& size) override
    {
        // A copy of its own size, so that a sanitizer sees reads behind it.
        block_.assign(bytes_.begin() + static_cast<std::ptrdiff_t>(position_),
                      bytes_.begin() +
                          static_cast<std::ptrdiff_t>(std::min(position_ + piece_, bytes_.size())));
        block_.shrink_to_fit();
        position_ += block_.size();
        data = block_.data();
        size = block_.size();
        return true;
    }
    bool flush() override { return true; }
    std::uint64_t size(const char*) override { return bytes_.size(); }
    bool get_dir(const char*, std::vector<Directory_Entry>&) override { return false; }
    bool make_dir(const char*, unsigned short) override { return false; }
    bool remove(const char*) override { return false; }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t piece_;
    std::size_t position_ = 0;
    std::vector<std::uint8_t> block_;
};
