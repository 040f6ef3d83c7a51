#pragma once

#include <ace/Basic_Types.h>
#include <string>
#include <utility>
#include <vector>

/// What a finished run of the program left.
struct Cio_Result
{
    int code = -1; ///< exit code; -1 when a signal ended it
    std::string out;
    std::string err;
};

/// Settings of a run.
struct Cio_Settings
{
    std::string directory{};                                        ///< to run in; "" = the test's
    std::vector<std::pair<std::string, std::string>> environment{}; ///< added to the test's
    std::string input{};                                            ///< on standard input
    bool powerless = false; ///< without root's power over what is not permitted; not on Windows
    /// Standard output is this file, opened for reading only; "" = it goes to the result.
    std::string read_only_output{};
};

/// Runs cio to its end.
Cio_Result run_cio(const std::vector<std::string>& arguments, const Cio_Settings& settings = {});

/// A run that the test talks to. The program is killed when the object goes.
class Cio_Process
{
public:
    explicit Cio_Process(const std::vector<std::string>& arguments,
                         const Cio_Settings& settings = {});
    ~Cio_Process();
    Cio_Process(const Cio_Process&) = delete;
    Cio_Process& operator=(const Cio_Process&) = delete;

    /// Writes to its standard input; returns when the program (or the pipe) took everything.
    void write(const std::string& data);
    void close_input();
    /// Reads its standard output up to a line that contains @p text.
    /// @return false when the output ended before
    bool wait_for_output(const std::string& text);
    /// Reads so many bytes of its standard output. @return false when it ended before
    bool read_output(std::size_t size);
    /// Waits until so many bytes of output wait to be read.
    void wait_until_output_waits(int size);
    void close_output();
    /// Asks it to end as a user does: Ctrl-C, on Windows Ctrl-Break.
    void ask_to_end();
    /// Waits for its end without reading what it writes. @return the exit code
    int wait_for_end();
    /// Waits for its end and takes all output.
    Cio_Result wait();

    /// The number of the process.
    int pid() const { return pid_; }

private:
    int pid_ = -1;
    ACE_HANDLE process_ = ACE_INVALID_HANDLE; // on Windows
    ACE_HANDLE in_ = ACE_INVALID_HANDLE;
    ACE_HANDLE out_ = ACE_INVALID_HANDLE;
    ACE_HANDLE err_ = ACE_INVALID_HANDLE;
    Cio_Result result_;
};
