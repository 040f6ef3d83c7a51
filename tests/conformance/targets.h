#pragma once

#include "tests/conformance/member.h"

#include <functional>
#include <memory>

/// What stands between the suite and a place to store files in.
struct Stack
{
    using Layer = std::unique_ptr<Client_IO_Base>;
    using Wrap = std::function<Layer(Layer)>;

    Wrap wrap;                       ///< puts layers above a backend
    Client_IO_Base::Options options; ///< to connect with
    /// Above them stands the facade, which puts its own layers there as the options say.
    bool beneath_facade = false;
};

using Make_Target = std::function<std::unique_ptr<Target>()>;

/// In memory that takes down what the interface does not provide for.
Make_Target memory_target(const Stack& stack);
/// The same; faults befall it at random. A retrying layer has to be in the stack.
Make_Target faulty_memory_target(const Stack& stack);
/// In a directory.
Make_Target file_target(const Stack& stack);
/// In a directory, as applications connect to one: by its URI.
Make_Target file_uri_target(const Client_IO_Base::Options& options);

/// Whether our storage server runs on this system; without it there are no targets behind it.
extern const bool storage_server_runs_here;
/// In a directory of our storage server.
Make_Target http_target(const Stack& stack);
/// The same, as applications connect to one: by its URI.
Make_Target http_uri_target(const Client_IO_Base::Options& options);
/// In a directory of a WebDAV server that others wrote.
/// @param program  "nginx" or "apache"
Make_Target dav_target(const std::string& program);
