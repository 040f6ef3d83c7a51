#include "client_io/evp_io.h"
#include "tests/fuzz/read_both_ways.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // One block cipher with padding, one stream mode.
    static constexpr unsigned char key[32] = "not so secret";
    static constexpr unsigned char iv[16] = "nor is this";
    static const Read_Both_Ways cbc([](std::unique_ptr<Client_IO_Base> io) {
        return std::make_unique<EVP_IO>(std::move(io), "aes-256-cbc", key, 32, iv, 16);
    });
    static const Read_Both_Ways ctr([](std::unique_ptr<Client_IO_Base> io) {
        return std::make_unique<EVP_IO>(std::move(io), "aes-256-ctr", key, 32, iv, 16);
    });
    cbc(data, size);
    ctr(data, size);
    return 0;
}
