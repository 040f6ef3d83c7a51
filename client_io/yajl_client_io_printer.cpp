#include "client_io/yajl_client_io_printer.h"

#include "platform/runtime/unexpected.h"

YAJL_Client_IO_Printer::YAJL_Client_IO_Printer(Client_IO* io) : YAJL_Client_IO_Printer(io, false) {}

YAJL_Client_IO_Printer::YAJL_Client_IO_Printer(Client_IO* io, bool pretty)
    : YAJL_Buffered_Printer_T<2048>(pretty), io_(io)
{}

YAJL_Client_IO_Printer::~YAJL_Client_IO_Printer()
{
    flush();
}

void YAJL_Client_IO_Printer::overflow(const char* data, std::size_t size)
{
    if (!ok_)
        return;
    if (io_ == nullptr)
        log_unexpected("Unexpected error in %N:%l, io_ is NULL:\n%?\n");
    ok_ = io_ != nullptr && io_->write(data, size);
    if (ok_)
        size_ += size;
}
