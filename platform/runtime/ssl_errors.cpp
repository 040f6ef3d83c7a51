#include "platform/runtime/ssl_errors.h"

#include <array>
#include <openssl/err.h>

SSL_Errors::SSL_Errors()
{
    std::array<char, 256> text{}; // OpenSSL's own bound
    while (const unsigned long code = ERR_get_error()) {
        ERR_error_string_n(code, text.data(), text.size());
        text_ += ": ";
        text_ += text.data();
    }
}
