#pragma once

#include <cerrno>
#include <unistd.h>
#include <utility>

/// A descriptor that is closed at the end of its scope; errno stays as it was.
class File_Handle
{
public:
    File_Handle() = default;
    explicit File_Handle(int handle) : handle_(handle) {}
    ~File_Handle() { close(); }
    File_Handle(File_Handle&& other) noexcept : handle_(other.release()) {}
    File_Handle& operator=(File_Handle&& other) noexcept
    {
        if (this != &other) {
            close();
            handle_ = other.release();
        }
        return *this;
    }

    explicit operator bool() const { return handle_ >= 0; }
    int get() const { return handle_; }
    int release() { return std::exchange(handle_, -1); }

private:
    void close()
    {
        if (handle_ < 0)
            return;
        const int reason = errno;
        ::close(release());
        errno = reason;
    }

    int handle_ = -1;
};
