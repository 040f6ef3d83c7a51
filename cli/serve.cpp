#include "cli/serve.h"

namespace cio
{
namespace
{

void run_serve(Invocation& invocation)
{
    const std::vector<std::string>& arguments = invocation.arguments;
    if (arguments[0] == "http" && arguments.size() == 1)
        serve_http(invocation);
    else if (arguments[0] == "user" && arguments.size() == 2)
        serve_user(invocation, arguments[1]);
    else
        throw Usage_Error("usage: cio serve http [OPTION...], or cio serve user [OPTION...] NAME");
}

} // namespace

const Command serve_command = {
    "serve",
    "http | user NAME",
    "Serve a directory over HTTP, or make a line of the users file from a secret on standard input",
    "cio serve http --root /srv/backup --listen 127.0.0.1:8080",
    takes_server,
    1,
    2,
    run_serve,
};

} // namespace cio
