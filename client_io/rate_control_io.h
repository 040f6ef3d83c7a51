#pragma once

#include "client_io/pipe_io.h"
#include "platform/runtime/rate_controller.h"

/// Limits the bandwidth of the data path.
///
/// Sits directly above the resumption layer, so it paces bytes in the form in which the target
/// stores them (compressed, encrypted). Pacing happens after a successful transfer, on the caller's
/// thread; failures and end of file are never delayed. Metadata operations, flush, seek and close
/// are not paced. Rate_Controller says how smooth it is.
///
/// One object serves one thread.
class Rate_Control_IO : public Pipe_IO
{
public:
    /// @param bytes_per_second  limit outside all periods, 0 = unlimited
    /// @param schedule          periods of the day with limits of their own
    /// @param io                layer below; owned from now on
    Rate_Control_IO(std::uint64_t bytes_per_second, const std::vector<Rate_Control_Entry>& schedule,
                    std::unique_ptr<Client_IO_Base> io);
    ~Rate_Control_IO() override;

    using Pipe_IO::size;

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    bool read(const void*& data, std::uint64_t& size) override;

private:
    Rate_Controller controller_;
};
