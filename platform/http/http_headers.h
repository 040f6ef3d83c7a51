#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The header fields of one HTTP message, in their order. Names are compared without regard to
/// case (RFC 9110, 5.1); what put() was given is what is sent.
class HTTP_Headers
{
public:
    /// Fields that have a number, so that their spelling stands in one place. The value 52 is
    /// fixed; the others mean nothing outside the program.
    enum Id : unsigned
    {
        authorization = 1,
        connection,
        content_length,
        content_range,
        content_type,
        destination,
        entity_tag,
        expect,
        /// Names the file that a server stores, whatever its contents: a file that is put in its
        /// place has another one.
        file_id,
        host,
        last_modified,
        location,
        mode_creation_mask,
        overwrite,
        range,
        retry_after,
        transfer_encoding,
        user_agent,
        /// Asks a server to pass the request on to the node that holds the data.
        forward = 52,
    };

    using Field = std::pair<std::string, std::string>; ///< name, value

    /// The name of a numbered field as it is sent.
    static const char* name(Id id);
    /// Whether the field can be sent: a token (RFC 9110, 5.6.2), and a value without control
    /// characters. Nothing else may be put, lest a value begins a header of its own.
    static bool is_valid(std::string_view name, std::string_view value);

    /// Sets a field, in place of every one of that name.
    void put(Id id, std::string value) { put(name(id), std::move(value)); }
    void put(std::string_view name, std::string value);
    /// Adds one more field, whatever is there.
    void add(std::string_view name, std::string value);
    /// Adds the fields of @p other whose names are not there yet.
    void merge(const HTTP_Headers& other);
    void remove(std::string_view name);
    void clear() { fields_.clear(); }

    /// The value of the first field of that name; NULL when there is none.
    const std::string* get(Id id) const { return get(name(id)); }
    const std::string* get(std::string_view name) const;
    /// How many fields have that name.
    std::size_t count(std::string_view name) const;

    std::size_t size() const { return fields_.size(); }
    auto begin() const { return fields_.begin(); }
    auto end() const { return fields_.end(); }

private:
    std::vector<Field> fields_;
};

/// Whether two texts are the same but for the case of ASCII letters.
bool equal_without_case(std::string_view one, std::string_view other);
