#pragma once

#include "client_io/client_io.h"
#include "client_io/pipe_io.h"
#include "tests/support/recording_io.h"

#include <memory>

/// A Client_IO whose inner state tests may see and change.
class Open_Facade : public Client_IO
{
public:
    using Client_IO::auto_compression_;
    using Client_IO::bytes_written_;
    using Client_IO::check_random_write;
    using Client_IO::Client_IO;
    using Client_IO::compression_;
    using Client_IO::compression_level_;
    using Client_IO::connect_stack;
    using Client_IO::encryption_;
    using Client_IO::error_;
    using Client_IO::get_file_i;
    using Client_IO::io_;
    using Client_IO::position_;
    using Client_IO::prepare_open;
    using Client_IO::protocol_;
    using Client_IO::set_error;
    using Client_IO::write_mode_;

    /// Connects to @p backend with no transform above it.
    bool connect_plain(std::unique_ptr<Client_IO_Base> backend, Protocol protocol = PROTOCOL_FILE,
                       const URI& uri = {})
    {
        Options options;
        options.max_retry = 0;
        return connect_stack(std::move(backend), protocol, uri, options, options);
    }
};

/// A facade over a recording double, both ready for use.
struct Recorded_Facade
{
    explicit Recorded_Facade(Client_IO::Protocol protocol = Client_IO::PROTOCOL_FILE)
    {
        connected = io.connect_plain(std::make_unique<Recording_IO>(log), protocol);
        log->calls.clear();
    }

    std::shared_ptr<Recording> log = std::make_shared<Recording>();
    Open_Facade io;
    bool connected = false;
};

/// A transform that stores every byte twice, so that its sizes differ from the user's.
class Doubling_IO : public Pipe_IO
{
public:
    using Pipe_IO::Pipe_IO;
    using Pipe_IO::read;
    using Pipe_IO::size;

    bool write(const void* buf, std::uint64_t size) override
    {
        const char* bytes = static_cast<const char*>(buf);
        std::string doubled;
        for (std::uint64_t i = 0; i < size; ++i)
            doubled.append(2, bytes[i]);
        return Pipe_IO::write(doubled.data(), doubled.size());
    }

    /// Records a failure of its own.
    void fail(const std::string& text) { error_ = text; }
};
