#include "client_io/client_io_ostreambuf.h"

#include "platform/runtime/unexpected.h"

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include <new>

Client_IO_ostreambuf::Client_IO_ostreambuf(Client_IO& io, std::uint64_t size)
    : io_(&io), size_(size)
{
    if (size_ == 0) {
        log_unexpected_values("Unexpected error in %N:%l, size_%s <= 0%s:\n%?\n", "=0", "");
        return;
    }
    buf_.reset(new (std::nothrow) char[size_]);
    if (buf_ == nullptr) {
        ACE_OS::last_error(ENOMEM);
        log_unexpected("Unexpected error in %N:%l, buf_ is NULL:\n%?\n");
        return;
    }
    setp(buf_.get(), buf_.get() + size_);
}

Client_IO_ostreambuf::~Client_IO_ostreambuf() = default;

int Client_IO_ostreambuf::sync()
{
    const auto n = static_cast<std::uint64_t>(pptr() - pbase());
    if (n == 0)
        return 0;
    if (!io_->write(pbase(), n)) {
        ACE_ERROR((LM_ERROR, "Failed to write to client io, %s\n", io_->error().c_str()));
        return -1;
    }
    // Not pbump(), which counts in int.
    setp(buf_.get(), buf_.get() + size_);
    return 0;
}

Client_IO_ostreambuf::int_type Client_IO_ostreambuf::overflow(int_type c)
{
    if (pptr() == epptr() && sync() == -1)
        return traits_type::eof();
    // Without a buffer there is no room after a successful sync either.
    if (traits_type::eq_int_type(c, traits_type::eof()) || pptr() == epptr())
        return traits_type::eof();
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
}
