#include "platform/http/tls_context.h"

bool use_system_certificates(SSL_CTX* context)
{
    return SSL_CTX_set_default_verify_paths(context) == 1;
}
