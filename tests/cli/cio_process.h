#pragma once

#include <string>
#include <utility>
#include <vector>

/// Stands in an exit code for the end by a signal, whose number is added.
constexpr int ended_by_signal = 1000;

/// What a finished run of the program left.
struct Cio_Result
{
    int code = -1; ///< exit code, or ended_by_signal + number
    std::string out;
    std::string err;
};

/// Settings of a run.
struct Cio_Settings
{
    std::string directory{};                                        ///< to run in; "" = the test's
    std::vector<std::pair<std::string, std::string>> environment{}; ///< added to the test's
    std::string input{};                                            ///< on standard input
    bool powerless = false; ///< without root's power to read and write what is not permitted
    std::string out_file{}; ///< standard output goes to this file; "" = to the result
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
    void send_signal(int number);
    /// Waits for its end without reading what it writes. @return the exit code
    int wait_for_end();
    /// Waits for its end and takes all output.
    Cio_Result wait();

private:
    int pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    int err_ = -1;
    Cio_Result result_;
};
