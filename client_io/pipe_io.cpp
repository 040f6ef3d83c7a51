#include "client_io/pipe_io.h"

#include <algorithm>
#include <cstring>
#include <utility>

Pipe_IO::Pipe_IO(std::unique_ptr<Client_IO_Base> io) : _io(std::move(io)) {}

Pipe_IO::~Pipe_IO() = default;

std::int64_t Pipe_IO::read(void* buf, std::uint64_t size)
{
    Client_IO_Base* const io = below();
    return io != nullptr ? io->read(buf, size) : -1;
}

bool Pipe_IO::write(const void* buf, std::uint64_t size)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->write(buf, size);
}

std::uint64_t Pipe_IO::size() const
{
    return _io ? _io->size() : size_unknown;
}

bool Pipe_IO::connect(const URI& uri, const Options& options)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->connect(uri, options);
}

bool Pipe_IO::reconnect()
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->reconnect();
}

bool Pipe_IO::is_connected() const
{
    return _io && _io->is_connected();
}

void Pipe_IO::disconnect()
{
    if (Client_IO_Base* const io = below())
        io->disconnect();
}

bool Pipe_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->open(path, mode, offset, size);
}

bool Pipe_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->open(path, mode, extra);
}

bool Pipe_IO::is_open() const
{
    return _io && _io->is_open();
}

bool Pipe_IO::close()
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->close();
}

bool Pipe_IO::read(const void*& data, std::uint64_t& size)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->read(data, size);
}

bool Pipe_IO::flush()
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->flush();
}

bool Pipe_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->seek(offset, length);
}

std::uint64_t Pipe_IO::size(const char* path)
{
    Client_IO_Base* const io = below();
    return io != nullptr ? io->size(path) : size_unknown;
}

bool Pipe_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->get_dir(path, entries);
}

bool Pipe_IO::make_dir(const char* path, unsigned short mode)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->make_dir(path, mode);
}

bool Pipe_IO::truncate(const char* path, std::uint64_t size)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->truncate(path, size);
}

bool Pipe_IO::remove(const char* path)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->remove(path);
}

bool Pipe_IO::copy(const char* src, const char* dst, bool overwrite)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->copy(src, dst, overwrite);
}

bool Pipe_IO::rename(const char* src, const char* dst, bool overwrite)
{
    Client_IO_Base* const io = below();
    return io != nullptr && io->rename(src, dst, overwrite);
}

int Pipe_IO::errnum() const
{
    return _io ? _io->errnum() : 0;
}

const std::string& Pipe_IO::error() const
{
    return error_.empty() && _io ? _io->error() : error_;
}

bool Pipe_IO::retriable() const
{
    return _io && _io->retriable();
}

std::string Pipe_IO::get_config(const char* key) const
{
    return _io ? _io->get_config(key) : std::string();
}

std::unique_ptr<Client_IO_Base> Pipe_IO::release()
{
    return std::move(_io);
}

std::int64_t Pipe_IO::skip(std::uint64_t n)
{
    if (n == 0)
        return 0;
    const void* data = nullptr;
    std::uint64_t size = 0;
    for (;;) {
        if (!read(data, size) || size == 0)
            return -1;
        if (n <= size)
            break;
        n -= size;
    }
    const std::uint64_t left = size - n;
    // A zero-copy block lies in memory of the layer that handed it out, which lets its reader
    // change it until the next call.
    auto* block = static_cast<char*>(const_cast<void*>(data));
    std::memmove(block, block + n, left);
    return static_cast<std::int64_t>(left);
}

bool Pipe_IO::skip(std::uint64_t n, void* buffer, std::uint64_t buffer_size)
{
    if (n != 0 && buffer_size == 0)
        return false; // no read would bring it nearer to its end
    while (n != 0) {
        const std::uint64_t part = std::min(n, buffer_size);
        const std::int64_t got = read(buffer, part);
        if (got < 0 || static_cast<std::uint64_t>(got) < part)
            return false;
        n -= part;
    }
    return true;
}

Client_IO_Base* Pipe_IO::below()
{
    error_.clear();
    return _io.get();
}
