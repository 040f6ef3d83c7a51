#include "platform/http/json_http_session.h"

#include <iterator>

namespace
{

using json_spirit::Value;

constexpr std::size_t block_size = 65536;
/// Text of one element of an array, with the blanks around it.
constexpr std::uint64_t max_element = 1048576;

/// Ends the parsing from within.
struct Stop
{};

/// The body of an answer, a block at a time. It ends where an element is too long.
class Body
{
public:
    Body(HTTP_Connection& connection, std::uint64_t max_bytes)
        : connection_(connection), left_(max_bytes), block_(block_size)
    {}

    /// Whether there is a byte at the present place; after a failure there is none.
    bool available()
    {
        if (ended_ || position_ - element_start_ > max_element)
            return false;
        if (block_.length() != 0)
            return true;
        block_.reset();
        const std::int64_t n = connection_.read_body(block_);
        failed_ = n < 0;
        ended_ = n <= 0 || static_cast<std::uint64_t>(n) > left_;
        if (ended_) {
            block_.reset();
            return false;
        }
        left_ -= static_cast<std::uint64_t>(n);
        return true;
    }
    const char& here() const { return *block_.rd_ptr(); }
    void advance()
    {
        block_.rd_ptr(1);
        ++position_;
    }
    void start_element() { element_start_ = position_; }
    bool failed() const { return failed_; }

private:
    HTTP_Connection& connection_;
    std::uint64_t left_;
    ACE_Message_Block block_;
    std::uint64_t position_ = 0;
    std::uint64_t element_start_ = 0;
    bool failed_ = false;
    bool ended_ = false;
};

/// The body as the parser reads it.
class Body_Iterator
{
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Body_Iterator() = default;
    explicit Body_Iterator(Body& body) : body_(&body) {}

    reference operator*() const { return body_->here(); }
    Body_Iterator& operator++()
    {
        body_->advance();
        return *this;
    }
    // Only ever compared with the end, which has no body.
    bool operator==(const Body_Iterator& other) const
    {
        const Body_Iterator& real = body_ != nullptr ? *this : other;
        return real.body_ == nullptr || !real.body_->available();
    }

private:
    Body* body_ = nullptr;
};

} // namespace

bool JSON_HTTP_Session::get(const HTTP_Request& request,
                            const std::function<void(Value& element)>& take_element, Kind& kind,
                            HTTP_Response& response)
{
    const HTTP_Connection::Ptr connection = session_.get(request, response);
    connection_failed_ = connection.get() == nullptr;
    if (connection_failed_)
        return false;
    if (response.status() != 200) {
        connection->skip_body(block_size);
        return false;
    }
    if (response.content_type() == "application/octet-stream") {
        connection->skip_body(block_size);
        kind = Kind::other; // whatever it looks like: somebody's file
        return true;
    }
    Body body(*connection, max_bytes_);
    kind = Kind::array;
    const auto follow = [&](int depth, Value::parse_event_t event, Value& parsed) {
        using Event = Value::parse_event_t;
        const bool starts = event == Event::object_start || event == Event::array_start;
        if (depth == 0 && event != Event::array_start && event != Event::array_end) {
            kind = Kind::other;
            throw Stop();
        }
        if (starts && depth >= static_cast<int>(max_depth_))
            throw Stop();
        if (depth != 1 || starts || event == Event::key)
            return true;
        take_element(parsed);
        body.start_element();
        return false; // it need not be kept
    };
    try {
        const Value whole = Value::parse(Body_Iterator(body), Body_Iterator(), follow, false);
        connection_failed_ = body.failed();
        return !connection_failed_ && !whole.is_discarded();
    } catch (const Stop&) {
        return kind == Kind::other;
    }
}
