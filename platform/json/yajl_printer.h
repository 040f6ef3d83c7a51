#pragma once

#include "platform/json/json_spirit.h"
#include "platform/runtime/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <type_traits>

/// Writes a JSON text (RFC 8259, UTF-8) piece by piece, over the generator of yajl.
///
/// A derived class says where the text goes. Memory is taken at construction; what is written later
/// needs none that grows with the document.
///
/// Every operation tells whether it was done. One that has no place where the document stands (a
/// value where a key belongs, the end of an array inside an object, anything behind the end of the
/// document) writes nothing and changes nothing. After an exception of print(), which goes no
/// further than here, and after a value() of which only a part was written, the document cannot be
/// ended: every operation is false from then on and print() is not called again. It is the same
/// when there was no memory for the generator.
///
/// Whether the text arrived where print() sends it is not known here.
class CLIENT_IO_EXPORT YAJL_Printer
{
public:
    /// How deep arrays and objects may nest; it is yajl's own limit.
    static constexpr unsigned max_depth = 127;

    /// @param pretty  true: a line for each member, four spaces of indentation a level, and a new
    ///                line at the end; false: on one line
    explicit YAJL_Printer(bool pretty = false);
    /// Writes nothing: a document that was not ended stays that way.
    virtual ~YAJL_Printer();
    YAJL_Printer(const YAJL_Printer&) = delete;
    YAJL_Printer& operator=(const YAJL_Printer&) = delete;

    /// Takes the next bytes of the text; called with one byte or more.
    virtual void print(const char* data, std::size_t size) = 0;

    bool open_map();
    bool close_map();
    bool open_array();
    bool close_array();
    /// The name of the next member of an object; that it stands only once is the caller's affair.
    /// Bytes that are not UTF-8 are written as U+FFFD, as JSON_Dump does.
    bool key(std::string_view name);
    /// Bytes that are not UTF-8 are written as U+FFFD, as JSON_Dump does.
    bool string(std::string_view text);
    bool number(std::int64_t n);
    bool number(std::uint64_t n);
    /// Written in the fewest digits that read back as the same number; what is not finite becomes
    /// null. Both as JSON_Dump does.
    bool number(double n);
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) bool number(Integer n)
    {
        using Widest = std::conditional_t<std::is_signed_v<Integer>, std::int64_t, std::uint64_t>;
        return number(static_cast<Widest>(n));
    }
    bool boolean(bool truth);
    bool null();
    /// Writes a value with all that it holds. One that nests too deep, or holds binary data, for
    /// which JSON has no form, leaves the document unfinished.
    bool value(const json_spirit::Value& json);

    /// Whether a whole document was written.
    [[nodiscard]] bool complete() const;

private:
    class Document;

    bool write(const json_spirit::Value& json);

    std::unique_ptr<Document> document_; ///< NULL when there was no memory
};
