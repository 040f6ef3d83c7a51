#include "client_io/image_client_io_writer.h"

#include "platform/runtime/unexpected.h"

namespace
{

constexpr char no_io[] = "Unexpected error in %N:%l, io_ is NULL:\n%?\n";

} // namespace

Image_Client_IO_Writer::Image_Client_IO_Writer(Client_IO* io) : io_(io)
{
    if (io_ == nullptr)
        log_unexpected(no_io);
}

Image_Client_IO_Writer::~Image_Client_IO_Writer() = default;

bool Image_Client_IO_Writer::overflow(const void* data, std::uint64_t size)
{
    if (io_ == nullptr) {
        log_unexpected(no_io);
        return false;
    }
    return io_->write(data, size);
}
