#include "cli/output.h"

#include "cli/interrupt.h"
#include "platform/json/json_value.h"
#include "platform/runtime/base64.h"
#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>
#include <array>
#include <chrono>

namespace cio
{
namespace
{

constexpr std::size_t buffer_size = 65536;

} // namespace

Output::Output(ACE_HANDLE handle) : stream_(handle)
{
    buffer_.reserve(buffer_size);
}

Output::~Output()
{
    flush();
}

void Output::write(std::string_view text)
{
    if (buffer_.size() + text.size() > buffer_size)
        flush();
    if (text.size() >= buffer_size)
        write_through(text.data(), text.size());
    else
        buffer_ += text;
}

void Output::write_line(const json_spirit::Object& object)
{
    write(JSON_Dump(json_spirit::Value(object), false));
    write("\n");
}

void Output::flush()
{
    write_through(buffer_.data(), buffer_.size());
    buffer_.clear();
}

void Output::write_through(const char* data, std::size_t size)
{
    while (size > 0 && !failed()) {
        const std::int64_t written = stream_.write(data, size);
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (written == 0 || ACE_OS::last_error() != os_error::interrupted) {
            error_number_ = written == 0 ? os_error::write_fault : ACE_OS::last_error();
        }
        // A signal cuts a write short. Whoever reads may not read on for a long time, and an
        // interruption does not wait for it.
        if (size > 0 && !failed() && interrupt::requested())
            error_number_ = os_error::interrupted;
    }
}

std::string Output::printable(std::string_view name) const
{
    std::string result(name);
    if (is_terminal())
        for (std::size_t i = 0; i < result.size(); ++i) {
            const auto c = static_cast<unsigned char>(result[i]);
            // U+0080 to U+009F steer terminals as well; in UTF-8 they follow a C2 byte.
            const bool c1 = c >= 0x80 && c < 0xA0 && i > 0 && result[i - 1] == '\xC2';
            if (c < 0x20 || c == 0x7F || c1)
                result[i] = '?';
            if (c1)
                result[i - 1] = '?';
        }
    return result;
}

void add_bytes(json_spirit::Object& object, const std::string& member, std::string_view bytes)
{
    object[member] = std::string(bytes);
    if (!is_utf8(bytes))
        object[member + "_base64"] = Base64_Encoder::encode(bytes.data(), bytes.size());
}

bool is_utf8(std::string_view text)
{
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = [&](std::size_t at) {
            return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
        };
        const unsigned first = byte(i);
        if (first < 0x80) {
            ++i;
            continue;
        }
        const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        if (first < 0xC2 || first > 0xF4)
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((byte(i + k) & 0xC0U) != 0x80)
                return false;
        const unsigned second = byte(i + 1);
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
            (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F))
            return false;
        i += length;
    }
    return true;
}

std::size_t whole_characters(std::string_view text)
{
    constexpr std::size_t longest = 4;
    for (std::size_t back = 1; back < longest && back <= text.size(); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0U) == 0x80)
            continue;
        const std::size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? text.size() - back : text.size();
    }
    return text.size();
}

std::string format_time(std::int64_t posix_seconds)
{
    using namespace std::chrono;
    // Years beyond four digits cannot be written in this form.
    constexpr std::int64_t earliest = -62'135'596'800;
    constexpr std::int64_t latest = 253'402'300'799;
    if (posix_seconds < earliest || posix_seconds > latest)
        return "-";
    const sys_seconds time{seconds{posix_seconds}};
    const auto day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock{time - day};
    std::string text = "0000-00-00T00:00:00Z";
    const auto put = [&text](std::size_t end, unsigned value) {
        for (; value > 0; value /= 10)
            text[--end] = static_cast<char>('0' + value % 10);
    };
    put(4, static_cast<unsigned>(static_cast<int>(date.year())));
    put(7, static_cast<unsigned>(date.month()));
    put(10, static_cast<unsigned>(date.day()));
    put(13, static_cast<unsigned>(clock.hours().count()));
    put(16, static_cast<unsigned>(clock.minutes().count()));
    put(19, static_cast<unsigned>(clock.seconds().count()));
    return text;
}

std::string format_bytes(std::uint64_t bytes)
{
    static constexpr std::array units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024)
        return std::to_string(bytes) + " B";
    std::size_t unit = 0;
    std::uint64_t rest = bytes;
    // Tenths of the next unit are kept, so stop while one more division would lose them.
    while (rest >= 1ULL << 20U) {
        rest /= 1024;
        ++unit;
    }
    const std::uint64_t tenths = rest * 10 / 1024;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " " + units[unit];
}

} // namespace cio
