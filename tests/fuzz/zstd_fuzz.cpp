#include "client_io/zstd_io.h"
#include "tests/fuzz/read_both_ways.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Read_Both_Ways read([](std::unique_ptr<Client_IO_Base> io) {
        return std::make_unique<ZSTD_IO>(std::move(io), 1);
    });
    read(data, size);
    return 0;
}
