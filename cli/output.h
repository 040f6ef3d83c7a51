#pragma once

#include "cli/output_stream.h"
#include "platform/json/json_spirit.h"

#include <string>
#include <string_view>

namespace cio
{

/// Buffered writer of one of the process's standard streams. One object serves one thread at a
/// time. After a failure nothing more is written and failed() stays true.
class Output
{
public:
    explicit Output(ACE_HANDLE handle);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view text);
    /// One JSON object on a line of its own.
    void write_line(const json_spirit::Object& object);
    void flush();

    bool failed() const { return error_number_ != 0; }
    /// os_error::is_reader_gone() tells the one that needs no message.
    int error_number() const { return error_number_; }
    bool is_terminal() const { return stream_.is_terminal(); }
    /// A name as this stream shows it: raw bytes, but with '?' for each control character on a
    /// terminal, which a hostile name could steer.
    std::string printable(std::string_view name) const;

private:
    void write_through(const char* data, std::size_t size);

    Output_Stream stream_;
    int error_number_ = 0;
    std::string buffer_;
};

/// Adds a name of any bytes to an object. One that is not UTF-8 shows U+FFFD in @p member and its
/// bytes in a second member, "<member>_base64".
void add_bytes(json_spirit::Object& object, const std::string& member, std::string_view bytes);

/// Whether @p text is well-formed UTF-8 (RFC 3629).
[[nodiscard]] bool is_utf8(std::string_view text);

/// How many bytes of @p text stand before a character that is begun at its end and not complete.
[[nodiscard]] std::size_t whole_characters(std::string_view text);

/// "2024-02-29T12:34:56Z"
[[nodiscard]] std::string format_time(std::int64_t posix_seconds);

/// "517 B", "3.4 MiB"
[[nodiscard]] std::string format_bytes(std::uint64_t bytes);

} // namespace cio
