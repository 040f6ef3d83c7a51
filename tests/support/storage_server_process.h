#pragma once

#include "tests/support/temp_directory.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A real `cio serve http` over a folder of its own, on a free loopback port.
///
/// Killed when the object goes. One that cannot be started fails the test.
class Storage_Server_Process
{
public:
    /// @param arguments  beside --root and --listen
    explicit Storage_Server_Process(std::vector<std::string> arguments = {});
    ~Storage_Server_Process();
    Storage_Server_Process(const Storage_Server_Process&) = delete;
    Storage_Server_Process& operator=(const Storage_Server_Process&) = delete;

    /// The same for all of its life, restarts included.
    unsigned short port() const { return port_; }
    /// "http://127.0.0.1:PORT" and @p path.
    std::string uri(const std::string& path = "/", const std::string& scheme = "http") const;
    /// Where a path of the server lies.
    std::string file(const std::string& path) const { return root_ / path; }

    /// Ends it as a power cut of the process does.
    void kill();
    /// Starts it again, after kill() or end().
    void start();
    /// Asks it to end. @return the exit code
    int end();
    /// Sends it a signal.
    void signal(int number) const;
    /// Waits for its end. @return the exit code; -1 when a signal ended it
    int wait();

private:
    Temp_Directory root_;
    std::vector<std::string> arguments_;
    unsigned short port_ = 0;
    pid_t pid_ = -1;
};
