#include "client_io/util.h"

#include "platform/json/json_value.h"
#include "platform/runtime/native_handle.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/unexpected.h"

#include <ace/INET_Addr.h>
#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

namespace
{

/// A text made by vsnprintf: in place when it is short, on the heap when it is not.
class Formatted_Text
{
public:
    Formatted_Text(const char* format, va_list args)
    {
        va_list again;
        va_copy(again, args);
        // Not ACE's, which on Windows is that of the C runtime and knows other directives.
        size_ = checked(std::vsnprintf(in_place_, sizeof in_place_, format, args));
        if (size_ >= sizeof in_place_) {
            on_heap_.reset(new (std::nothrow) char[size_ + 1]);
            size_ = on_heap_ != nullptr
                        ? checked(std::vsnprintf(on_heap_.get(), size_ + 1, format, again))
                        : 0;
        }
        va_end(again);
    }

    const char* data() const { return on_heap_ != nullptr ? on_heap_.get() : in_place_; }
    std::size_t size() const { return size_; }

private:
    static std::size_t checked(int length) { return static_cast<std::size_t>(std::max(length, 0)); }

    char in_place_[260] = "";
    std::unique_ptr<char[]> on_heap_;
    std::size_t size_ = 0;
};

void log_failed_write(const char* path, const Client_IO& io)
{
    ACE_ERROR((LM_ERROR, "Failed to write to %s by client io, %s\n", path, io.error().c_str()));
}

void log_failed_read(const char* path, const Client_IO& io)
{
    ACE_ERROR((LM_ERROR, "Failed to read from %s by client io, %s\n", path, io.error().c_str()));
}

/// @return false, for the function to return
bool out_of_memory() noexcept
{
    ACE_OS::last_error(ENOMEM);
    return false;
}

/// Writes all of a block, in as many steps as the system takes.
bool write_whole(void* handle, const void* data, std::uint64_t size)
{
    const char* rest = static_cast<const char*>(data);
    while (size > 0) {
        const std::int64_t count = native_handle::write(handle, rest, size);
        if (count == 0) // no failure to the system, so it names no reason
            ACE_OS::last_error(os_error::write_fault);
        if (count <= 0)
            return false;
        rest += count;
        size -= static_cast<std::uint64_t>(count);
    }
    return true;
}

bool can_be_resolved(const std::string& address)
{
    constexpr u_short no_port = 0;
    return ACE_INET_Addr().set(no_port, address.c_str(), 1, AF_UNSPEC) == 0;
}

} // namespace

bool client_io_write_format(Client_IO& io, const char* path, const char* format, ...)
{
    if (format == nullptr) {
        log_unexpected("Unexpected error in %N:%l, format is NULL:\n%?\n");
        return false;
    }
    va_list args;
    va_start(args, format);
    const Formatted_Text text(format, args);
    va_end(args);
    if (io.put_contents(path, text.data(), text.size(), true))
        return true;
    log_failed_write(path, io);
    return false;
}

bool client_io_write_json(Client_IO& io, const char* path, const json_spirit::Value& value)
try {
    if (io.put_contents(path, JSON_Dump(value, false), true))
        return true;
    log_failed_write(path, io);
    return false;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}

bool client_io_read_json(Client_IO& io, const char* path, json_spirit::Value& value)
{
    std::string text;
    if (!io.get_contents(path, text)) {
        log_failed_read(path, io);
        return false;
    }
    return loads_json(text, value);
}

bool client_io_read_int(Client_IO& io, const char* path, int& value)
{
    std::string text;
    if (!io.get_contents(path, text)) {
        ACE_ERROR((LM_ERROR, "%s\n", io.error().c_str()));
        return false;
    }
    // Like atoi, but with an answer to every number.
    using Limits = std::numeric_limits<int>;
    const long long number = std::strtoll(text.c_str(), nullptr, 10);
    value = static_cast<int>(std::clamp<long long>(number, Limits::min(), Limits::max()));
    return true;
}

bool client_io_splice_from(Client_IO& io, void* handle)
{
    char buffer[8192];
    for (;;) {
        const std::int64_t count = native_handle::read(handle, buffer, sizeof buffer);
        if (count == 0)
            return true;
        if (count < 0) {
            const int reason = ACE_OS::last_error();
            ACE_ERROR((LM_ERROR, "Failed to read handle, errno=%d, %m\n", reason));
            return false;
        }
        if (!io.write(buffer, static_cast<std::uint64_t>(count))) {
            ACE_ERROR((LM_ERROR, "Failed to write client io, %s\n", io.error().c_str()));
            return false;
        }
    }
}

bool client_io_splice_to(Client_IO& io, void* handle)
{
    const void* data = nullptr;
    std::uint64_t size = 0;
    bool ok = false;
    while ((ok = io.read(data, size)) && size > 0) {
        if (!write_whole(handle, data, size)) {
            const int reason = ACE_OS::last_error();
            ACE_ERROR((LM_ERROR, "Failed to write pipe, errno=%d, %m\n", reason));
            return false;
        }
    }
    if (!ok)
        ACE_ERROR((LM_ERROR, "Failed to read from client io, %s\n", io.error().c_str()));
    return ok;
}

bool set_options_by_pool(Client_IO_Base::Options& options, const Pool_Info& pool)
try {
    if (!options.set_encryption_from_binary(pool.crypt_algorithm, pool.crypt_key, pool.crypt_iv))
        return false;
    if (!pool.dedup_backend_type.empty())
        options.set_extra_option("dedup_backend_type", pool.dedup_backend_type);
    for (const auto& [key, value] : pool.options) {
        if (key == "access_key")
            options.access_key = value;
        else if (key == "secret_key")
            options.secret_key = value;
        else
            options.set_extra_option(key.c_str(), value);
    }
    options.node_addrs = pool.node_addrs;
    const std::string& address = pool.preferred_source_address;
    if (address.empty())
        return true;
    if (can_be_resolved(address))
        options.preferred_source_address = address;
    else
        ACE_ERROR((LM_WARNING,
                   "Failed to resolve preferred_source_address: '%s', use default address.\n",
                   address.c_str()));
    return true;
} catch (const std::bad_alloc&) {
    return out_of_memory();
}
