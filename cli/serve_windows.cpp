#include "cli/serve.h"

namespace cio
{

void serve_http(const Invocation& /*invocation*/)
{
    throw Usage_Error("the server runs on Linux only");
}

void serve_user(const Invocation& /*invocation*/, const std::string& /*name*/)
{
    throw Usage_Error("the server runs on Linux only");
}

} // namespace cio
