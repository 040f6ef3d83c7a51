#pragma once

#include "platform/json/yajl_printer.h"

#include <cstddef>
#include <cstring>

/// Collects the small pieces of a JSON text in a buffer of @p N bytes, a power of two.
///
/// A derived class takes the bytes in overflow(): what the buffer holds when a piece does not fit
/// any more, and of a piece that is larger than the buffer a multiple of N at once. Its
/// destructor has to call flush(): that of this class is too late for it, and the bytes would be
/// lost.
template <std::size_t N>
class YAJL_Buffered_Printer_T : public YAJL_Printer
{
    static_assert(N > 0 && (N & (N - 1)) == 0);

public:
    using YAJL_Printer::YAJL_Printer;

    /// A piece that does not fit goes out without being copied, but for what exceeds a multiple
    /// of N.
    void print(const char* data, std::size_t size) override
    {
        if (data == nullptr || size == 0)
            return;
        if (size > free()) {
            flush();
            if (size > N) {
                const std::size_t whole = size & ~(N - 1);
                overflow(data, whole);
                data += whole;
                size -= whole;
            }
        }
        std::memcpy(cur_, data, size);
        cur_ += size;
    }

    /// Where the buffer goes, and large pieces.
    virtual void overflow(const char* data, std::size_t size) = 0;

    /// Passes on what is in the buffer.
    void flush()
    {
        if (cur_ == buf_)
            return;
        overflow(buf_, static_cast<std::size_t>(cur_ - buf_));
        cur_ = buf_;
    }

private:
    std::size_t free() const { return static_cast<std::size_t>(buf_ + N - cur_); }

    char buf_[N];
    char* cur_ = buf_; ///< the first byte that is free
};
