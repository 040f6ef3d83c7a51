#include "client_io/client_io_base.h"

Client_IO_Base::~Client_IO_Base() = default;

bool Client_IO_Base::open(const char* path, unsigned mode, const json_spirit::Value& /*extra*/)
{
    return open(path, mode, 0, 0);
}

bool Client_IO_Base::seek(std::uint64_t /*offset*/, std::uint64_t /*length*/)
{
    return false;
}

std::uint64_t Client_IO_Base::original_size() const
{
    return size();
}

std::uint64_t Client_IO_Base::storage_size() const
{
    return size();
}

bool Client_IO_Base::truncate(const char* /*path*/, std::uint64_t /*size*/)
{
    return false;
}

bool Client_IO_Base::copy(const char* /*src*/, const char* /*dst*/, bool /*overwrite*/)
{
    return false;
}

bool Client_IO_Base::rename(const char* /*src*/, const char* /*dst*/, bool /*overwrite*/)
{
    return false;
}

int Client_IO_Base::errnum() const
{
    return errnum_;
}

const std::string& Client_IO_Base::error() const
{
    return error_;
}

bool Client_IO_Base::retriable() const
{
    return false;
}

std::string Client_IO_Base::get_config(const char* /*key*/) const
{
    return {};
}
