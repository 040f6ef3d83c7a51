#pragma once

#include <algorithm>
#include <cerrno>
#include <initializer_list>
#include <string>

/// The system's error numbers that this code tests for or gives itself. They are those of errno on
/// POSIX and those of GetLastError() on Windows; ACE_OS::last_error() holds the one or the other,
/// and POSIX_Error has their texts.
namespace os_error
{

#if defined(_WIN32)

constexpr int no_such_file = 2;      // ERROR_FILE_NOT_FOUND
constexpr int no_such_directory = 3; // ERROR_PATH_NOT_FOUND
constexpr int access_denied = 5;     // ERROR_ACCESS_DENIED
constexpr int bad_handle = 6;        // ERROR_INVALID_HANDLE
constexpr int out_of_memory = 8;     // ERROR_NOT_ENOUGH_MEMORY
constexpr int file_exists = 80;      // ERROR_FILE_EXISTS
constexpr int invalid_argument = 87; // ERROR_INVALID_PARAMETER
constexpr int broken_pipe = 109;     // ERROR_BROKEN_PIPE
constexpr int invalid_name = 123;    // ERROR_INVALID_NAME
constexpr int seek_on_device = 132;  // ERROR_SEEK_ON_DEVICE
constexpr int busy = 170;            // ERROR_BUSY
constexpr int already_exists = 183;  // ERROR_ALREADY_EXISTS
constexpr int name_too_long = 206;   // ERROR_FILENAME_EXCED_RANGE
constexpr int file_too_large = 223;  // ERROR_FILE_TOO_LARGE
constexpr int pipe_closing = 232;    // ERROR_NO_DATA
constexpr int not_a_directory = 267; // ERROR_DIRECTORY
constexpr int is_a_directory = 336;  // ERROR_DIRECTORY_NOT_SUPPORTED
constexpr int write_fault = 29;      // ERROR_WRITE_FAULT
constexpr int interrupted = 995;     // ERROR_OPERATION_ABORTED

#else

constexpr int no_such_file = ENOENT;
constexpr int no_such_directory = ENOENT;
constexpr int access_denied = EACCES;
constexpr int bad_handle = EBADF;
constexpr int out_of_memory = ENOMEM;
constexpr int file_exists = EEXIST;
constexpr int invalid_argument = EINVAL;
constexpr int broken_pipe = EPIPE;
constexpr int invalid_name = EINVAL;
constexpr int seek_on_device = ESPIPE;
constexpr int busy = EBUSY;
constexpr int already_exists = EEXIST;
constexpr int name_too_long = ENAMETOOLONG;
constexpr int file_too_large = EFBIG;
constexpr int pipe_closing = EPIPE;
constexpr int not_a_directory = ENOTDIR;
constexpr int is_a_directory = EISDIR;
constexpr int write_fault = EIO;
constexpr int interrupted = EINTR;

#endif

constexpr bool one_of(int number, std::initializer_list<int> numbers)
{
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

/// Whether a path leads to nothing.
constexpr bool is_missing(int number)
{
    return one_of(number, {no_such_file, no_such_directory});
}

/// Whether a name is taken already.
constexpr bool is_taken(int number)
{
    return one_of(number, {file_exists, already_exists});
}

/// Whether nobody reads the other end of a pipe any more.
constexpr bool is_reader_gone(int number)
{
    return one_of(number, {broken_pipe, pipe_closing});
}

/// The system's text of an error number; "Unknown error NUMBER" where it has none. The system error
/// number stays as it was.
std::string text(int number);

} // namespace os_error
