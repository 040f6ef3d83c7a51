#include "tests/conformance/targets.h"

const bool storage_server_runs_here = false;

Make_Target http_target(const Stack&)
{
    return {};
}

Make_Target http_uri_target(const Client_IO_Base::Options&)
{
    return {};
}

Make_Target dav_target(const std::string&)
{
    return {};
}
