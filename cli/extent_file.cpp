#include "cli/extent_list.h"

#include "cli/failure.h"
#include "cli/interrupt.h"
#include "platform/json/json_value.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"
#include "platform/runtime/posix_error.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>
#include <vector>

namespace cio
{
namespace
{

constexpr std::size_t longest_item = 65536; // bytes of a line or an element
constexpr std::size_t buffer_size = 65536;
constexpr std::string_view blanks = " \t\r\n";

/// The characters of a file or of standard input.
class Characters
{
public:
    explicit Characters(const std::string& path) : name_(path == "-" ? "standard input" : path)
    {
        if (path == "-")
            return;
        own_ = file_system::open(path.c_str(), O_RDONLY, file_system::share_all);
        if (own_ == ACE_INVALID_HANDLE)
            refuse(POSIX_Error(ACE_OS::last_error(), 1).str());
    }
    ~Characters()
    {
        if (own_ != ACE_INVALID_HANDLE)
            ACE_OS::close(own_);
    }
    Characters(const Characters&) = delete;
    Characters& operator=(const Characters&) = delete;

    /// The next character, which stays; -1 at the end.
    int peek()
    {
        if (next_ == end_ && !fill())
            return -1;
        return static_cast<unsigned char>(buffer_[next_]);
    }
    /// Takes the next character.
    int get()
    {
        const int c = peek();
        next_ += c >= 0 ? 1 : 0;
        lines_ += c == '\n' ? 1 : 0;
        return c;
    }
    /// The next character that is none of the blanks, which are taken; it stays.
    int peek_behind_blanks()
    {
        while (peek() >= 0 && blanks.find(static_cast<char>(peek())) != std::string_view::npos)
            (void)get();
        return peek();
    }

    /// Ends of lines so far.
    std::uint64_t lines() const { return lines_; }
    bool interrupted() const { return interrupted_; }

    [[noreturn]] void refuse(const std::string& why) const
    {
        throw Usage_Error("--extents: " + name_ + ": " + why);
    }

private:
    bool fill()
    {
        if (ended_)
            return false;
        const ACE_HANDLE handle = own_ != ACE_INVALID_HANDLE ? own_ : ACE_STDIN;
        const std::optional<std::int64_t> got = interrupt::read_input(handle, buffer_);
        interrupted_ = !got.has_value();
        if (got && *got < 0)
            refuse(POSIX_Error(ACE_OS::last_error(), 1).str());
        next_ = 0;
        end_ = static_cast<std::size_t>(got.value_or(0));
        ended_ = end_ == 0;
        return !ended_;
    }

    std::string name_;
    ACE_HANDLE own_ = ACE_INVALID_HANDLE; // of a file
    std::vector<char> buffer_ = std::vector<char>(buffer_size);
    std::size_t next_ = 0;
    std::size_t end_ = 0;
    std::uint64_t lines_ = 0;
    bool ended_ = false;
    bool interrupted_ = false;
};

/// Reads the extents of one file.
class Extent_Reader
{
public:
    Extent_Reader(Characters& input, std::uint64_t source_size, Extent_List& list)
        : input_(input), source_size_(source_size), list_(list)
    {}

    void read()
    {
        const int first = input_.peek_behind_blanks();
        if (first == '[')
            read_array();
        else if (first == '{')
            read_objects();
        else
            read_lines();
    }
    /// Whether it began as a list of `cio image info` and did not end like one.
    bool is_cut_off() const { return begun_ && !ended_; }

private:
    void read_lines();
    void read_line(std::string_view line, const std::string& where);
    void read_array();
    void read_objects();
    std::string read_value(const std::string& where);
    void take_value(const json_spirit::Value& value, const std::string& where);
    void take(std::uint64_t offset, std::uint64_t length, const std::string& where);
    json_spirit::Value parse(const std::string& text, const std::string& where) const;
    [[noreturn]] void refuse(const std::string& where, const std::string& why) const
    {
        input_.refuse(where + ": " + why);
    }

    Characters& input_;
    std::uint64_t source_size_;
    Extent_List& list_;
    bool begun_ = false; // a list of `cio image info`
    bool ended_ = false; // with its sum
};

/// Reads a decimal number, or a hexadecimal one behind "0x".
bool parse_number(std::string_view text, std::uint64_t& number)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    return error == std::errc() && rest == end;
}

/// Takes the first word off a line.
std::string_view next_word(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

void Extent_Reader::read_lines()
{
    std::string line;
    while (input_.peek() >= 0) {
        const std::uint64_t number = input_.lines() + 1;
        line.clear();
        for (int c = input_.get(); c >= 0 && c != '\n'; c = input_.get()) {
            if (line.size() == longest_item)
                refuse("line " + std::to_string(number), "it is longer than 64 KiB");
            line += static_cast<char>(c);
        }
        if (!input_.interrupted())
            read_line(line, "line " + std::to_string(number));
    }
}

void Extent_Reader::read_line(std::string_view line, const std::string& where)
{
    begun_ = begun_ || line.starts_with("# image:");
    ended_ =
        ended_ || (line.starts_with("# ") && line.find(" extents, ") != std::string_view::npos);
    line = line.substr(0, line.find('#'));
    const std::string_view first = next_word(line);
    const std::string_view second = next_word(line);
    if (first.empty())
        return;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    if (!parse_number(first, offset) || !parse_number(second, length) || !next_word(line).empty())
        refuse(where, "not an offset and a length");
    take(offset, length, where);
}

void Extent_Reader::read_array()
{
    (void)input_.get();
    if (input_.peek_behind_blanks() == ']') {
        (void)input_.get();
    } else {
        for (std::uint64_t number = 1;; ++number) {
            const std::string where = "element " + std::to_string(number);
            take_value(parse(read_value(where), where), where);
            const int next = input_.peek_behind_blanks();
            (void)input_.get();
            if (next == ']')
                break;
            if (input_.interrupted())
                return;
            if (next != ',')
                refuse(where, "neither ',' nor ']' follows it");
        }
    }
    if (input_.peek_behind_blanks() >= 0)
        input_.refuse("something stands behind the array");
}

void Extent_Reader::read_objects()
{
    while (input_.peek_behind_blanks() >= 0) {
        const std::string where = "line " + std::to_string(input_.lines() + 1);
        const json_spirit::Value value = parse(read_value(where), where);
        if (input_.interrupted())
            return;
        const auto type = value.is_object() ? value.find("type") : value.end();
        if (type == value.end() || !type->is_string())
            refuse(where, "not an object with a type");
        if (*type == "error")
            refuse(where, "an error of what wrote it");
        if (*type == "extent")
            take_value(value, where);
        begun_ = begun_ || *type == "image";
        ended_ = ended_ || *type == "total";
    }
}

/// The text of the next array or object, to its closing bracket; of anything else, a character.
std::string Extent_Reader::read_value(const std::string& where)
{
    (void)input_.peek_behind_blanks();
    std::string text;
    unsigned depth = 0;
    bool quoted = false;
    bool escaped = false;
    do {
        const int c = input_.get();
        if (c < 0)
            break;
        if (text.size() == longest_item)
            refuse(where, "it is longer than 64 KiB");
        text += static_cast<char>(c);
        if (escaped)
            escaped = false;
        else if (quoted && c == '\\')
            escaped = true;
        else if (c == '"')
            quoted = !quoted;
        else if (!quoted && (c == '[' || c == '{'))
            ++depth;
        else if (!quoted && (c == ']' || c == '}'))
            --depth;
    } while (depth > 0);
    return text;
}

json_spirit::Value Extent_Reader::parse(const std::string& text, const std::string& where) const
{
    json_spirit::Value value;
    std::string error;
    if (!input_.interrupted() && !loads_json(text, value, &error))
        refuse(where, error);
    return value;
}

void Extent_Reader::take_value(const json_spirit::Value& value, const std::string& where)
{
    if (input_.interrupted())
        return;
    const auto number = [](const json_spirit::Value* member) {
        return member != nullptr && member->is_number_unsigned()
                   ? std::optional<std::uint64_t>(member->get<std::uint64_t>())
                   : std::nullopt;
    };
    const auto member = [&value](const char* name) {
        const auto found = value.find(name);
        return found == value.end() ? nullptr : &*found;
    };
    std::optional<std::uint64_t> offset;
    std::optional<std::uint64_t> length;
    if (value.is_array() && value.size() == 2) {
        offset = number(&value[0]);
        length = number(&value[1]);
    } else if (value.is_object()) {
        offset = number(member("offset"));
        length = number(member("length"));
    }
    if (!offset || !length)
        refuse(where, "not an offset and a length");
    take(*offset, *length, where);
}

void Extent_Reader::take(std::uint64_t offset, std::uint64_t length, const std::string& where)
{
    if (length == 0)
        refuse(where, "an extent of no bytes");
    if (offset > source_size_ || length > source_size_ - offset)
        refuse(where, "it ends behind the end of the source, which has " +
                          std::to_string(source_size_) + " bytes");
    list_.add(offset, length);
}

} // namespace

bool read_extents(const std::string& path, std::uint64_t source_size, Extent_List& list)
{
    Characters input(path);
    Extent_Reader reader(input, source_size, list);
    reader.read();
    if (input.interrupted())
        return false;
    if (list.extents().empty())
        input.refuse("it holds no extent, and an image holds one at least");
    if (reader.is_cut_off())
        input.refuse("it is the beginning of what 'cio image info' shows, without its last line");
    list.finish();
    return true;
}

} // namespace cio
