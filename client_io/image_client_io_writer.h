#pragma once

#include "client_io/client_io.h"
#include "platform/image/image_writer.h"

/// Writes a block image into the open file of a Client_IO.
class CLIENT_IO_EXPORT Image_Client_IO_Writer : public qovr::Image_Writer
{
public:
    /// @param io  connected, with a file open for writing; not owned, never closed by the writer.
    ///            NULL is logged, and every write fails.
    explicit Image_Client_IO_Writer(Client_IO* io);
    ~Image_Client_IO_Writer() override;

    /// Client_IO::write(), unchanged.
    bool overflow(const void* data, std::uint64_t size) override;

protected:
    Client_IO* io_;
};
