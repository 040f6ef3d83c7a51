#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

/// One served request.
struct Access_Record
{
    std::string_view address;
    std::string_view user; ///< "" = nobody known
    std::string_view method;
    std::string_view target;
    std::string_view version; ///< "HTTP/1.1"
    unsigned status = 0;
    std::uint64_t sent = 0;     ///< bytes of the answer's body
    std::uint64_t received = 0; ///< bytes of the request's body
    std::chrono::nanoseconds duration{};
};

/// A line of the common log format, followed by the seconds that the request took and the bytes of
/// its body. Bytes that could be taken for another line or field are shown as \xHH.
std::string access_line(const Access_Record& record, std::int64_t posix_seconds);

/// A log file with a line for each request. Writing never waits for the disk: a thread of the
/// object's own does; when it falls behind by several megabytes lines are left out, and their
/// number is written instead. One object serves any number of threads.
class Access_Log
{
public:
    /// @return NULL when the file cannot be opened (errno)
    static std::unique_ptr<Access_Log> open(const std::string& path);
    ~Access_Log();
    Access_Log(const Access_Log&) = delete;
    Access_Log& operator=(const Access_Log&) = delete;

    void write(const Access_Record& record);
    /// Goes on in a new file of the same name, after somebody has moved the old one.
    /// @return false when that fails (errno); the old one stays in use
    bool reopen();

private:
    Access_Log(std::string path, int file);
    void run();
    void write_out(const std::string& lines) const;

    std::string path_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string lines_; ///< not yet written
    std::uint64_t left_out_ = 0;
    int file_;
    int next_file_ = -1; ///< opened anew, to be taken over by the thread
    bool ends_ = false;
    std::thread thread_;
};
