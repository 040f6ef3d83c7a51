#include "client_io/client_io_base.h"
#include "platform/json/json_value.h"

#include <cstdio>
#include <cstdlib>

/// Options that were read from any text can be written, and reading that back writes the same.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    json_spirit::Value value;
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (!loads_json(text, value) || !value.is_object())
        return 0;
    Client_IO_Base::Options options;
    if (!(options << value.get<json_spirit::Object>()))
        return 0;
    json_spirit::Object written;
    options >> written;
    // An algorithm or method without a name cannot be written.
    if (encryption_value_to_name(options.encryption_algorithm, false) == nullptr ||
        compression_value_to_name(options.compression) == nullptr)
        return 0;
    Client_IO_Base::Options again;
    json_spirit::Object rewritten;
    if (again << written)
        again >> rewritten;
    if (written != rewritten) {
        std::fprintf(stderr, "options change when written and read again\n");
        std::abort();
    }
    return 0;
}
