#include "client_io/client_io_istreambuf.h"

#include "platform/runtime/unexpected.h"

#include <ace/OS_NS_errno.h>

#include <new>

Client_IO_istreambuf::Client_IO_istreambuf(Client_IO& io, std::uint64_t size)
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
    setg(buf_.get(), buf_.get(), buf_.get());
}

Client_IO_istreambuf::~Client_IO_istreambuf() = default;

std::int64_t Client_IO_istreambuf::set_cur_position(std::int64_t off)
{
    if (off < 0)
        return -1;
    while (off > egptr() - gptr()) {
        off -= egptr() - gptr();
        setg(eback(), egptr(), egptr());
        if (!fill())
            return -1;
    }
    // Not gbump(), which counts in int.
    setg(eback(), gptr() + off, egptr());
    return pos_ - (egptr() - gptr());
}

Client_IO_istreambuf::pos_type Client_IO_istreambuf::seekoff(off_type off,
                                                             std::ios_base::seekdir dir,
                                                             std::ios_base::openmode mode)
{
    if ((mode & std::ios_base::in) == 0 || dir != std::ios_base::cur)
        return off_type(-1);
    return set_cur_position(off);
}

Client_IO_istreambuf::int_type Client_IO_istreambuf::underflow()
{
    if (gptr() == egptr() && !fill())
        return traits_type::eof();
    return traits_type::to_int_type(*gptr());
}

/// Reads the next bytes into the buffer, whose last ones have all been taken.
bool Client_IO_istreambuf::fill()
{
    const std::int64_t n = buf_ == nullptr ? 0 : io_->read(buf_.get(), size_);
    // The get area of a negative count would end before the buffer begins.
    if (n <= 0)
        return false;
    pos_ += n;
    setg(buf_.get(), buf_.get(), buf_.get() + n);
    return true;
}
