#pragma once

#include "client_io/client_io.h"
#include "client_io/yajl_buffered_printer.h"

#include <cstddef>
#include <cstdint>

/// Writes a JSON text to the open file of a Client_IO, with about one write for every
/// 2048 bytes.
///
/// After a write that failed everything that follows is dropped, without a further write. The
/// operations of YAJL_Printer do not tell: flush() and ask this object itself when the document is
/// complete().
///
/// One object serves one thread.
class CLIENT_IO_EXPORT YAJL_Client_IO_Printer : public YAJL_Buffered_Printer_T<2048>
{
public:
    /// @param io      open for writing; not owned, and used as long as this object is. NULL is
    ///                logged at emergency priority when there is something to write, which fails.
    YAJL_Client_IO_Printer(Client_IO* io);
    /// @param pretty  see YAJL_Printer
    YAJL_Client_IO_Printer(Client_IO* io, bool pretty);
    /// Flushes; flush() before, to know whether that went well.
    ~YAJL_Client_IO_Printer() override;

    void overflow(const char* data, std::size_t size) override;

    /// Whether no write has failed so far.
    operator bool() const { return ok_; }
    /// Bytes written successfully; what is still in the buffer is not counted.
    std::uint64_t size() const { return size_; }

private:
    Client_IO* io_;
    bool ok_ = true;
    std::uint64_t size_ = 0;
};
