#pragma once

#include <ace/OS_NS_unistd.h>

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <utility>

/// A handle as the splice functions take it: the one overload is for Windows, the other for POSIX.
inline void* as_pointer(void* handle)
{
    return handle;
}
inline void* as_pointer(std::intptr_t descriptor)
{
    return reinterpret_cast<void*>(descriptor);
}

/// One end of a pipe, or an open file; closed at the end at the latest.
class Util_Handle
{
public:
    explicit Util_Handle(ACE_HANDLE handle = ACE_INVALID_HANDLE) : handle_(handle) {}
    ~Util_Handle() { close(); }
    Util_Handle(Util_Handle&& other) noexcept
        : handle_(std::exchange(other.handle_, ACE_INVALID_HANDLE))
    {}
    Util_Handle& operator=(Util_Handle&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }

    ACE_HANDLE get() const { return handle_; }
    void* pointer() const { return as_pointer(handle_); }
    void close()
    {
        if (handle_ != ACE_INVALID_HANDLE)
            ACE_OS::close(std::exchange(handle_, ACE_INVALID_HANDLE));
    }

    /// Writes everything, in several steps where the pipe is full.
    bool write(const std::string& data) const
    {
        for (std::size_t done = 0; done < data.size();) {
            const ssize_t count = ACE_OS::write(handle_, data.data() + done, data.size() - done);
            if (count <= 0)
                return false;
            done += static_cast<std::size_t>(count);
        }
        return true;
    }
    /// Reads until the writer is gone.
    std::string read_all() const
    {
        std::string data;
        std::string block(65536, '\0');
        for (;;) {
            const ssize_t count = ACE_OS::read(handle_, block.data(), block.size());
            if (count <= 0)
                return data;
            data.append(block, 0, static_cast<std::size_t>(count));
        }
    }

private:
    ACE_HANDLE handle_;
};

/// An anonymous pipe of the system.
struct Util_Pipe
{
    Util_Pipe()
    {
        ACE_HANDLE ends[2] = {ACE_INVALID_HANDLE, ACE_INVALID_HANDLE};
        EXPECT_EQ(ACE_OS::pipe(ends), 0);
        reader = Util_Handle(ends[0]);
        writer = Util_Handle(ends[1]);
    }

    Util_Handle reader;
    Util_Handle writer;
};
