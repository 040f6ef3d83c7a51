#pragma once

#include "cli/command.h"

namespace cio
{

/// Serves a directory over HTTP until the program is asked to end.
void serve_http(const Invocation& invocation);

/// Writes the line of the users file for a user, whose secret is read from standard input.
void serve_user(const Invocation& invocation, const std::string& name);

} // namespace cio
