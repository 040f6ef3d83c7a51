#include "platform/json/yajl_printer.h"

#include "platform/json/json_value.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <new>
#include <span>
#include <string>

#include <yajl/yajl_gen.h>

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

static_assert(YAJL_Printer::max_depth == YAJL_MAX_DEPTH - 1);

namespace
{

/// Leads of UTF-8 sequences: their length, and where their second byte may lie (Unicode, table
/// 3-7).
struct Lead
{
    unsigned char first;
    unsigned char last;
    unsigned char length;
    unsigned char lowest;
    unsigned char highest;
};

constexpr Lead leads[] = {
    {0x00, 0x7F, 1, 0x80, 0xBF}, {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF},
    {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF},
    {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

/// Whether a text is well-formed. yajl's own check is not enough: it lets overlong forms,
/// surrogates and what lies beyond U+10FFFF pass.
bool is_utf8(std::string_view text)
{
    while (!text.empty()) {
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
        const auto* const lead = std::ranges::find_if(leads, [&](const Lead& candidate) {
            return byte(0) >= candidate.first && byte(0) <= candidate.last;
        });
        if (lead == std::end(leads) || lead->length > text.size())
            return false;
        if (lead->length > 1 && (byte(1) < lead->lowest || byte(1) > lead->highest))
            return false;
        for (std::size_t at = 2; at < lead->length; ++at)
            if (byte(at) < 0x80 || byte(at) > 0xBF)
                return false;
        text.remove_prefix(lead->length);
    }
    return true;
}

/// Hands @p text to @p write, if need be in the form that JSON_Dump gives it.
template <class Write>
bool write_utf8(std::string_view text, const Write& write)
{
    if (is_utf8(text))
        return write(text);
    const std::string written = Value(text).dump(-1, ' ', false, Value::error_handler_t::replace);
    return write(Value::parse(written).get_ref<const std::string&>());
}

template <class Integer>
std::string_view digits(Integer n, std::span<char> buffer)
{
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), n);
    return {buffer.data(), result.ptr};
}

} // namespace

/// The generator, and where in the document it stands.
///
/// The second is known here too because yajl neither checks that an end belongs to what it ends,
/// nor survives one too many, nor an array beyond its greatest depth.
class YAJL_Printer::Document
{
public:
    Document(YAJL_Printer& printer, bool pretty) : printer_(printer)
    {
        const yajl_alloc_funcs memory = {allocate, reallocate, release, this};
        generator_ = yajl_gen_alloc(&memory);
        broken_ = generator_ == nullptr;
        if (broken_)
            return;
        yajl_gen_config(generator_, yajl_gen_print_callback, forward, static_cast<void*>(this));
        yajl_gen_config(generator_, yajl_gen_beautify, pretty ? 1 : 0);
    }
    ~Document()
    {
        if (generator_ != nullptr)
            yajl_gen_free(generator_);
    }
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    bool takes_value() const
    {
        return !broken_ && (place() == Place::start || place() == Place::array_member ||
                            place() == Place::value_of_key);
    }

    bool complete() const { return !broken_ && place() == Place::end; }

    void give_up() { broken_ = true; }

    bool open_map() { return open(yajl_gen_map_open, Place::key); }
    bool close_map() { return close(yajl_gen_map_close, Place::key); }
    bool open_array() { return open(yajl_gen_array_open, Place::array_member); }
    bool close_array() { return close(yajl_gen_array_close, Place::array_member); }

    bool key(std::string_view name)
    {
        if (broken_ || place() != Place::key)
            return false;
        place() = Place::value_of_key;
        return quoted(name);
    }
    bool string(std::string_view text) { return takes_value() && quoted(text) && end_value(); }
    bool number(std::string_view text)
    {
        return takes_value() && done(yajl_gen_number(generator_, text.data(), text.size())) &&
               end_value();
    }
    bool boolean(bool truth)
    {
        return takes_value() && done(yajl_gen_bool(generator_, truth ? 1 : 0)) && end_value();
    }
    bool null() { return takes_value() && done(yajl_gen_null(generator_)) && end_value(); }

private:
    /// What may stand next; an array or object that is open may end before its next member.
    enum class Place : unsigned char
    {
        start,
        array_member,
        key,
        value_of_key,
        end,
    };

    using Operation = yajl_gen_status (*)(yajl_gen);

    Place& place() { return places_[depth_]; }
    Place place() const { return places_[depth_]; }

    bool open(Operation operation, Place inside)
    {
        if (!takes_value() || depth_ == max_depth || !done(operation(generator_)))
            return false;
        ++depth_;
        place() = inside;
        return true;
    }

    bool close(Operation operation, Place inside)
    {
        if (broken_ || place() != inside || !done(operation(generator_)))
            return false;
        --depth_;
        return end_value();
    }

    bool quoted(std::string_view text)
    {
        return done(yajl_gen_string(generator_, reinterpret_cast<const unsigned char*>(text.data()),
                                    text.size()));
    }

    bool done(yajl_gen_status status)
    {
        broken_ = broken_ || status != yajl_gen_status_ok;
        return !broken_;
    }

    bool end_value()
    {
        if (place() == Place::start)
            place() = Place::end;
        else if (place() == Place::value_of_key)
            place() = Place::key;
        return true;
    }

    // Called from C, through which no exception may pass.
    static void forward(void* self, const char* data, std::size_t size) noexcept
    {
        auto& document = *static_cast<Document*>(self);
        if (document.broken_ || size == 0)
            return;
        try {
            document.printer_.print(data, size);
        } catch (...) {
            document.broken_ = true;
        }
    }

    // yajl takes two small blocks for a generator and nothing later, but does not look whether it
    // got the second one. Both lie in here, so that there is memory for all of it or for nothing.
    static void* allocate(void* self, std::size_t size)
    {
        auto& document = *static_cast<Document*>(self);
        constexpr std::size_t alignment = alignof(std::max_align_t);
        const std::size_t whole = (size + alignment - 1) / alignment * alignment;
        if (whole > sizeof document.memory_ - document.memory_used_)
            return nullptr;
        void* const block = document.memory_ + document.memory_used_;
        document.memory_used_ += whole;
        return block;
    }
    static void* reallocate(void*, void*, std::size_t) { return nullptr; }
    static void release(void*, void*) {}

    YAJL_Printer& printer_;
    yajl_gen generator_ = nullptr;
    bool broken_ = false;
    unsigned depth_ = 0;
    std::array<Place, max_depth + 1> places_{};
    std::size_t memory_used_ = 0;
    alignas(std::max_align_t) char memory_[2048];
};

YAJL_Printer::YAJL_Printer(bool pretty) : document_(new (std::nothrow) Document(*this, pretty)) {}

YAJL_Printer::~YAJL_Printer() = default;

bool YAJL_Printer::open_map()
{
    return document_ && document_->open_map();
}

bool YAJL_Printer::close_map()
{
    return document_ && document_->close_map();
}

bool YAJL_Printer::open_array()
{
    return document_ && document_->open_array();
}

bool YAJL_Printer::close_array()
{
    return document_ && document_->close_array();
}

bool YAJL_Printer::key(std::string_view name)
try {
    return document_ &&
           write_utf8(name, [&](std::string_view utf8) { return document_->key(utf8); });
} catch (...) {
    return false;
}

bool YAJL_Printer::string(std::string_view text)
try {
    return document_ &&
           write_utf8(text, [&](std::string_view utf8) { return document_->string(utf8); });
} catch (...) {
    return false;
}

bool YAJL_Printer::number(std::int64_t n)
{
    char buffer[24];
    return document_ && document_->number(digits(n, buffer));
}

bool YAJL_Printer::number(std::uint64_t n)
{
    char buffer[24];
    return document_ && document_->number(digits(n, buffer));
}

bool YAJL_Printer::number(double n)
try {
    return document_ && document_->number(Value(n).dump());
} catch (...) {
    return false;
}

bool YAJL_Printer::boolean(bool truth)
{
    return document_ && document_->boolean(truth);
}

bool YAJL_Printer::null()
{
    return document_ && document_->null();
}

bool YAJL_Printer::value(const Value& json)
{
    if (!document_ || !document_->takes_value())
        return false;
    if (write(json))
        return true;
    document_->give_up();
    return false;
}

bool YAJL_Printer::complete() const
{
    return document_ && document_->complete();
}

// Calls itself no deeper than arrays and objects may nest.
bool YAJL_Printer::write(const Value& json)
{
    switch (json.type()) {
    case Value::value_t::object:
        if (!open_map())
            return false;
        for (const auto& [name, member] : json.get_ref<const Object&>())
            if (!key(name) || !write(member))
                return false;
        return close_map();
    case Value::value_t::array:
        if (!open_array())
            return false;
        for (const Value& member : json.get_ref<const Array&>())
            if (!write(member))
                return false;
        return close_array();
    case Value::value_t::string:
        return string(json.get_ref<const std::string&>());
    case Value::value_t::number_integer:
        return number(json.get<std::int64_t>());
    case Value::value_t::number_unsigned:
        return number(json.get<std::uint64_t>());
    case Value::value_t::number_float:
        return number(json.get<double>());
    case Value::value_t::boolean:
        return boolean(json.get<bool>());
    case Value::value_t::null:
        return null();
    case Value::value_t::binary:
    case Value::value_t::discarded:
        break;
    }
    return false;
}
