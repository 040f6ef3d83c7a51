#include "platform/http/chunked_decoder.h"
#include "platform/http/http_head.h"

#include <cstdio>
#include <cstdlib>
#include <random>

namespace
{

void expect(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

HTTP_Parse_Result parse(std::string_view bytes, bool to_head, HTTP_Response_Head& head,
                        std::size_t& used)
{
    std::string reason;
    const auto result =
        parse_response_head(bytes, to_head, HTTP_Head_Limits{4096, 32}, head, used, reason);
    const bool refused = result == HTTP_Parse_Result::bad || result == HTTP_Parse_Result::too_large;
    expect(refused != reason.empty(), "what is refused, and nothing else, has a reason");
    return result;
}

void check_fields(const HTTP_Response_Head& head)
{
    expect(head.status >= 100 && head.status < 1000, "a status has three digits");
    expect(head.headers.size() <= 32, "the limit of fields holds");
    for (const auto& [name, value] : head.headers)
        expect(HTTP_Headers::is_valid(name, value), "a field that was read could be sent");
    expect(head.headers.count("Content-Length") + head.headers.count("Transfer-Encoding") <= 1,
           "one field at most tells the length of the body");
    expect(!head.keep_alive || head.framing != Body_Framing::until_close,
           "a connection whose end is the body's serves nothing more");
    if (head.framing == Body_Framing::length)
        expect(*head.headers.get("Content-Length") != "0" && head.content_length != 0,
               "a body of known length is not empty");
}

/// A head that stops anywhere is not whole, and what stands behind it does not matter.
void check_head(std::string_view bytes, bool to_head)
{
    HTTP_Response_Head head;
    std::size_t used = 0;
    if (parse(bytes, to_head, head, used) != HTTP_Parse_Result::complete)
        return;
    expect(used <= bytes.size() && bytes.substr(0, used).ends_with("\r\n\r\n"),
           "a head ends with an empty line");
    check_fields(head);
    HTTP_Response_Head again;
    std::size_t used_again = 0;
    expect(parse(bytes.substr(0, used), to_head, again, used_again) ==
                   HTTP_Parse_Result::complete &&
               used_again == used && again.framing == head.framing &&
               again.content_length == head.content_length,
           "what stands behind a head does not matter");
    for (const std::size_t size : {used - 1, used / 2, std::size_t{0}})
        expect(parse(bytes.substr(0, size), to_head, again, used_again) ==
                   HTTP_Parse_Result::incomplete,
               "a head that stops is not whole");
}

struct Decoded
{
    std::string data;
    std::string rest;
    std::string error;
    bool done = false;

    bool operator==(const Decoded&) const = default;
};

/// Takes a body in pieces of random sizes; where @p past, some of the data is not shown to the
/// decoder.
Decoded decode(std::string_view body, std::size_t largest, bool past, std::mt19937& random)
{
    Chunked_Decoder decoder;
    Decoded decoded;
    while (!decoder.done() && !body.empty()) {
        std::string_view piece = body.substr(0, 1 + random() % largest);
        if (past && decoder.chunk_left() != 0) {
            piece = piece.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(
                                        piece.size(), decoder.chunk_left())));
            decoder.skip(piece.size());
            decoded.data += piece;
            body.remove_prefix(piece.size());
            continue;
        }
        const std::size_t offered = piece.size();
        std::string_view data;
        if (!decoder.next(piece, data)) {
            decoded.error = decoder.error();
            expect(!decoded.error.empty(), "a failure has a reason");
            // How much of what was offered is taken of a body that is refused has no meaning.
            return decoded;
        }
        expect(data.size() <= offered - piece.size(), "data is part of what was taken");
        decoded.data += data;
        body.remove_prefix(offered - piece.size());
    }
    decoded.done = decoder.done();
    decoded.rest = body;
    return decoded;
}

} // namespace

/// The first byte of the input chooses lengths, the rest is what a server sent.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    check_head(bytes, false);
    check_head(bytes, true);

    const std::size_t end = bytes.find("\r\n\r\n");
    const std::string_view body = end == std::string_view::npos ? bytes : bytes.substr(end + 4);
    std::mt19937 random(data[0]);
    const Decoded whole = decode(body, SIZE_MAX, false, random);
    expect(decode(body, 1, false, random) == whole, "byte by byte the body is the same");
    expect(decode(body, 1U + data[0], false, random) == whole, "in pieces the body is the same");
    expect(decode(body, 1U + data[0], true, random) == whole, "read past, the body is the same");
    return 0;
}
