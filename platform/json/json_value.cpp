#include "platform/json/json_value.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace
{

/// Walks over a text and tells how far the parser came, for the place in a reason.
class Text_Iterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Text_Iterator() = default;
    Text_Iterator(const char* at, const char** furthest) : at_(at), furthest_(furthest) {}

    reference operator*() const { return *at_; }
    Text_Iterator& operator++()
    {
        *furthest_ = ++at_;
        return *this;
    }
    Text_Iterator operator++(int)
    {
        const Text_Iterator before = *this;
        ++*this;
        return before;
    }
    bool operator==(const Text_Iterator& other) const { return at_ == other.at_; }

private:
    const char* at_ = nullptr;
    const char** furthest_ = nullptr;
};

/// Takes the parser's events and builds the value. The parser keeps its own stack of nested
/// arrays and objects, so depth costs no stack of the thread.
class Value_Builder : public Value::json_sax_t
{
public:
    Value take() { return std::move(root_); }
    const std::string& reason() const { return reason_; }

    bool null() override { return add(nullptr); }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(std::int64_t value) override { return add(value); }
    bool number_unsigned(std::uint64_t value) override { return add(value); }
    bool number_float(double value, const std::string&) override { return add(value); }
    bool string(std::string& value) override { return add(std::move(value)); }
    bool binary(Value::binary_t&) override { return refuse("binary data"); }

    bool start_object(std::size_t) override { return enter(Object()); }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return enter(Array()); }
    bool end_array() override { return leave(); }

    bool key(std::string& name) override
    {
        const auto [place, is_new] =
            open_.back()->get_ref<Object&>().try_emplace(std::move(name), nullptr);
        member_ = &place->second;
        return is_new || refuse("a name that stands twice in one object");
    }

    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& error) override
    {
        constexpr int number_overflow = 406;
        if (error.id == number_overflow)
            return refuse("a number that is too large");
        // The end of the parser's text quotes what it read last, which may be a secret.
        std::string text = error.what();
        text.resize(std::min(text.find("; last read: "), text.size()));
        const std::size_t start = text.find("syntax error");
        return refuse(start == std::string::npos ? "syntax error" : text.substr(start));
    }

private:
    bool refuse(std::string reason)
    {
        reason_ = std::move(reason);
        return false;
    }

    // Puts a value where the text has it: at the top, into the open array, or behind a name.
    Value* place(Value&& value)
    {
        if (open_.empty()) {
            root_ = std::move(value);
            return &root_;
        }
        if (open_.back()->is_array())
            return &open_.back()->get_ref<Array&>().emplace_back(std::move(value));
        *member_ = std::move(value);
        return member_;
    }

    bool add(Value&& value)
    {
        place(std::move(value));
        return true;
    }

    bool enter(Value&& value)
    {
        if (open_.size() >= max_json_depth)
            return refuse("nesting that is too deep");
        // An array does not grow while a value in it is open, so the pointer stays good.
        open_.push_back(place(std::move(value)));
        return true;
    }

    bool leave()
    {
        open_.pop_back();
        return true;
    }

    Value root_;
    std::vector<Value*> open_; // the arrays and objects around the place, outermost first
    Value* member_ = nullptr;  // the member that awaits its value
    std::string reason_;
};

std::string with_place(const std::string& reason, std::string_view text, std::size_t byte)
{
    const std::string_view before = text.substr(0, byte);
    const auto lines = std::count(before.begin(), before.end(), '\n');
    return reason + " at byte " + std::to_string(byte) + " (line " + std::to_string(lines + 1) +
           ")";
}

// The reason for a refusal, empty when the text was read.
std::string parse(const std::string& text, Value& value)
{
    // The parser takes a NUL byte for the end of its input.
    const std::size_t nul = text.find('\0');
    if (nul != std::string::npos)
        return with_place("a NUL byte", text, nul);

    const char* furthest = text.data();
    Value_Builder builder;
    if (!Value::sax_parse(Text_Iterator(text.data(), &furthest),
                          Text_Iterator(text.data() + text.size(), &furthest), &builder))
        return with_place(builder.reason(), text, static_cast<std::size_t>(furthest - text.data()));
    value = builder.take();
    return {};
}

void set_reason(std::string* error, const char* reason)
{
    try {
        if (error != nullptr)
            *error = reason;
    } catch (...) {
        error->clear();
    }
}

/// Writes values without recursion, so that no depth of nesting can exhaust the thread's stack.
class Writer
{
public:
    Writer(std::string& text, bool pretty) : text_(text), pretty_(pretty) {}

    void write(const Value& value)
    {
        begin(value);
        while (!open_.empty()) {
            Level& level = open_.back();
            if (level.next == level.container->end()) {
                end();
                continue;
            }
            if (level.next != level.container->begin())
                text_ += ',';
            new_line();
            if (level.container->is_object()) {
                leaf(level.next.key());
                text_ += pretty_ ? ": " : ":";
            }
            const Value& member = *level.next++;
            begin(member); // `level` is no longer valid
        }
    }

private:
    struct Level
    {
        const Value* container;
        Value::const_iterator next;
    };

    void begin(const Value& value)
    {
        if (!value.is_structured())
            return leaf(value);
        text_ += value.is_array() ? '[' : '{';
        open_.push_back({&value, value.begin()});
    }

    void end()
    {
        const Value& value = *open_.back().container;
        open_.pop_back();
        if (!value.empty())
            new_line();
        text_ += value.is_array() ? ']' : '}';
    }

    void leaf(const Value& value)
    {
        text_ += value.dump(-1, ' ', false, Value::error_handler_t::replace);
    }

    void new_line()
    {
        constexpr std::size_t indentation = 4;
        if (!pretty_)
            return;
        text_ += '\n';
        text_.append(open_.size() * indentation, ' ');
    }

    std::string& text_;
    bool pretty_;
    std::vector<Level> open_;
};

} // namespace

bool loads_json(const std::string& text, Value& value, std::string* error)
{
    try {
        std::string reason = parse(text, value);
        const bool read = reason.empty();
        if (!read && error != nullptr)
            *error = std::move(reason);
        return read;
    } catch (const std::bad_alloc&) {
        set_reason(error, "out of memory");
    } catch (...) {
        set_reason(error, "unreadable JSON");
    }
    return false;
}

std::string JSON_Dump(const Value& value, bool pretty)
{
    std::string text;
    Writer(text, pretty).write(value);
    return text;
}

namespace json_spirit
{

namespace
{

template <class Integer>
bool get_integer(const Value* member, Integer& value)
{
    // Numbers that are not negative may be kept in either form.
    if (member == nullptr || !member->is_number_integer())
        return false;
    if (member->is_number_unsigned()) {
        const auto number = member->get<std::uint64_t>();
        if (!std::in_range<Integer>(number))
            return false;
        value = static_cast<Integer>(number);
        return true;
    }
    const auto number = member->get<std::int64_t>();
    if (!std::in_range<Integer>(number))
        return false;
    value = static_cast<Integer>(number);
    return true;
}

} // namespace

bool object_get(const Object& object, std::string_view name, bool& value)
{
    const Value* const member = object_get(object, name);
    if (member == nullptr || !member->is_boolean())
        return false;
    value = member->get<bool>();
    return true;
}

bool object_get(const Object& object, std::string_view name, std::int32_t& value)
{
    return get_integer(object_get(object, name), value);
}

bool object_get(const Object& object, std::string_view name, std::int64_t& value)
{
    return get_integer(object_get(object, name), value);
}

bool object_get(const Object& object, std::string_view name, std::uint64_t& value)
{
    return get_integer(object_get(object, name), value);
}

bool object_get(const Object& object, std::string_view name, double& value)
{
    const Value* const member = object_get(object, name);
    if (member == nullptr || !member->is_number())
        return false;
    value = member->get<double>();
    return true;
}

bool object_get(const Object& object, std::string_view name, std::string& value)
{
    const Value* const member = object_get(object, name);
    if (member == nullptr || !member->is_string())
        return false;
    value = member->get_ref<const std::string&>();
    return true;
}

const Value* object_get(const Object& object, std::string_view name)
{
    const auto found = object.find(std::string(name));
    return found == object.end() ? nullptr : &found->second;
}

} // namespace json_spirit
