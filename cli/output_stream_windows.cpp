#include "cli/output_stream.h"

#include "cli/interrupt_windows.h"
#include "cli/output.h"

#include <ace/OS_NS_errno.h>
#include <algorithm>
#include <string>
#include <string_view>

namespace cio
{

struct Output_Stream::Terminal
{
    Terminal(HANDLE console, DWORD mode_before);
    ~Terminal();

    bool show(std::string_view text);
    bool show_characters(std::string_view text);

    HANDLE handle;
    DWORD mode;        // before this object changed it
    std::string begun; // bytes of a character whose others are still to come
};

Output_Stream::Terminal::Terminal(HANDLE console, DWORD mode_before)
    : handle(console), mode(mode_before)
{
    // The progress line is erased by an escape sequence.
    SetConsoleMode(handle, mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

Output_Stream::Terminal::~Terminal()
{
    (void)show_characters(begun);
    SetConsoleMode(handle, mode);
}

bool Output_Stream::Terminal::show(std::string_view text)
{
    begun += text;
    const std::size_t whole = whole_characters(begun);
    if (!show_characters(std::string_view(begun).substr(0, whole)))
        return false;
    begun.erase(0, whole);
    return true;
}

// What is not UTF-8 shows as U+FFFD.
bool Output_Stream::Terminal::show_characters(std::string_view text)
{
    constexpr std::size_t most = 8192; // old consoles take no more than 64 KiB at once
    wchar_t wide[most];
    while (!text.empty()) {
        const std::size_t size = whole_characters(text.substr(0, most));
        const std::size_t taken = size > 0 ? size : text.size();
        const int count = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(taken),
                                              wide, static_cast<int>(most));
        for (DWORD shown = 0; shown < static_cast<DWORD>(count);) {
            DWORD more = 0;
            if (!WriteConsoleW(handle, wide + shown, static_cast<DWORD>(count) - shown, &more,
                               nullptr))
                return false;
            shown += more;
        }
        text.remove_prefix(taken);
    }
    return true;
}

Output_Stream::Output_Stream(ACE_HANDLE handle) : handle_(handle)
{
    DWORD mode = 0;
    if (GetConsoleMode(handle, &mode))
        terminal_ = std::make_unique<Terminal>(handle, mode);
}

Output_Stream::~Output_Stream() = default;

std::int64_t Output_Stream::write(const char* data, std::size_t size) const
{
    constexpr std::size_t most = 1U << 20U;
    DWORD written = 0;
    if (terminal_ != nullptr && terminal_->show({data, size}))
        return static_cast<std::int64_t>(size);
    if (terminal_ == nullptr) {
        const interrupt::Interruptible_Call call;
        if (WriteFile(handle_, data, static_cast<DWORD>(std::min(size, most)), &written, nullptr))
            return written;
    }
    ACE_OS::set_errno_to_last_error();
    return -1;
}

} // namespace cio
