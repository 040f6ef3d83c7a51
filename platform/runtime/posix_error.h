#pragma once

#include "platform/runtime/export.h"

#include <string>

/// The text of an operating-system error number, safe to build on any thread.
class CLIENT_IO_EXPORT POSIX_Error
{
public:
    /// @param errnum     error number of the C library (errno)
    /// @param text_only  non-zero: the text alone ("No such file or directory");
    ///                   0: followed by the number (" (errno 2)")
    explicit POSIX_Error(int errnum, int text_only = 0);

    const std::string& str() const { return text_; }
    const char* c_str() const { return text_.c_str(); }

private:
    std::string text_;
};
