#include "platform/http/http_headers.h"
#include "platform/http/http_request.h"
#include "platform/http/http_response.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using ::testing::ElementsAre;
using ::testing::Pair;

std::vector<HTTP_Headers::Field> fields_of(const HTTP_Headers& headers)
{
    return {headers.begin(), headers.end()};
}

TEST(HTTP_Headers_Test, KeepTheirOrderAndTheirSpelling)
{
    HTTP_Headers headers;
    headers.put("x-second", "2");
    headers.put(HTTP_Headers::range, "bytes=0-");
    headers.add("X-Second", "3");
    EXPECT_THAT(fields_of(headers), ElementsAre(Pair("x-second", "2"), Pair("Range", "bytes=0-"),
                                                Pair("X-Second", "3")));
    EXPECT_EQ(headers.size(), 3U);
}

TEST(HTTP_Headers_Test, AreFoundWhateverTheCase)
{
    HTTP_Headers headers;
    headers.add("ETAG", "one");
    headers.add("etag", "two");
    ASSERT_NE(headers.get(HTTP_Headers::entity_tag), nullptr);
    EXPECT_EQ(*headers.get(HTTP_Headers::entity_tag), "one");
    EXPECT_EQ(headers.count("ETag"), 2U);
    EXPECT_EQ(headers.get("ETags"), nullptr);
    EXPECT_EQ(headers.count("ETa"), 0U);
}

TEST(HTTP_Headers_Test, PutReplacesEveryFieldOfTheNameWhereTheFirstStood)
{
    HTTP_Headers headers;
    headers.add("a", "1");
    headers.add("b", "2");
    headers.add("A", "3");
    headers.put("A", "4");
    EXPECT_THAT(fields_of(headers), ElementsAre(Pair("A", "4"), Pair("b", "2")));
}

TEST(HTTP_Headers_Test, MergeAddsWhatIsNotThereAndKeepsRepeatedFields)
{
    HTTP_Headers headers;
    headers.add("a", "own");
    HTTP_Headers other;
    other.add("A", "theirs");
    other.add("b", "1");
    other.add("B", "2");
    headers.merge(other);
    EXPECT_THAT(fields_of(headers), ElementsAre(Pair("a", "own"), Pair("b", "1"), Pair("B", "2")));
}

TEST(HTTP_Headers_Test, RemoveTakesEveryFieldOfTheName)
{
    HTTP_Headers headers;
    headers.add("a", "1");
    headers.add("b", "2");
    headers.add("A", "3");
    headers.remove("a");
    EXPECT_THAT(fields_of(headers), ElementsAre(Pair("b", "2")));
    headers.clear();
    EXPECT_EQ(headers.size(), 0U);
}

TEST(HTTP_Headers_Test, OnlyTokensAreNamesAndNoValueCanBeginALine)
{
    EXPECT_TRUE(HTTP_Headers::is_valid("X-Name_1.~!#$%&'*+^`|", "any text, \xC3\xA9 and \t too"));
    EXPECT_TRUE(HTTP_Headers::is_valid("X", ""));
    for (const char* const name : {"", "a b", "a:", "a\r", "\xC3\xA9", "a(b)", "a/b", "a\"", "a@b"})
        EXPECT_FALSE(HTTP_Headers::is_valid(name, "value")) << name;
    for (char c = 0; c < 0x20; ++c)
        EXPECT_EQ(HTTP_Headers::is_valid("X", std::string("a") + c + "b"), c == '\t') << int{c};
    EXPECT_FALSE(HTTP_Headers::is_valid("X", "\x7F"));
}

TEST(HTTP_Headers_Test, TheNumberOfTheForwardFieldIsFixed)
{
    EXPECT_EQ(unsigned{HTTP_Headers::forward}, 52U);
    EXPECT_STREQ(HTTP_Headers::name(HTTP_Headers::forward), "X-Forward");
}

TEST(HTTP_Headers_Test, EveryNumberedFieldHasAValidName)
{
    for (unsigned id = HTTP_Headers::authorization; id <= HTTP_Headers::user_agent; ++id)
        EXPECT_TRUE(HTTP_Headers::is_valid(HTTP_Headers::name(HTTP_Headers::Id{id}), "")) << id;
}

TEST(HTTP_Request_Test, MethodsHaveTheirNumbersAndNames)
{
    using R = HTTP_Request;
    const std::vector<std::tuple<R::Method, unsigned, std::string>> methods = {
        {R::COPY, 1, "COPY"}, {R::DELETE_, 2, "DELETE"}, {R::GET, 3, "GET"},
        {R::HEAD, 4, "HEAD"}, {R::MKCOL, 5, "MKCOL"},    {R::MOVE, 6, "MOVE"},
        {R::POST, 8, "POST"}, {R::PUT, 9, "PUT"},
    };
    for (const auto& [method, number, name] : methods) {
        EXPECT_EQ(unsigned{method}, number);
        EXPECT_EQ(R::method_name(method), name);
    }
}

TEST(HTTP_Response_Test, AStatusIsRetriableThatTellsOfAPassingState)
{
    const std::vector<unsigned> retriable = {408, 425, 429, 500, 502, 503, 504};
    std::vector<unsigned> found;
    for (unsigned status = 0; status < 1000; ++status)
        if (CGI_Response::retriable(status))
            found.push_back(status);
    EXPECT_EQ(found, retriable);
}

TEST(HTTP_Response_Test, FieldsAreFoundByTheirMeaning)
{
    HTTP_Response response;
    EXPECT_EQ(response.content_length(), std::nullopt);
    EXPECT_EQ(response.entity_tag(), "");
    response.content_length(0);
    response.headers().put("etag", "\"1\"");
    response.headers().put("Content-Type", "text/plain");
    response.headers().put("last-modified", "now");
    response.headers().put("Content-Range", "bytes 0-1/2");
    EXPECT_EQ(response.content_length(), 0U);
    EXPECT_EQ(response.entity_tag(), "\"1\"");
    EXPECT_EQ(response.content_type(), "text/plain");
    EXPECT_EQ(response.last_modified(), "now");
    EXPECT_EQ(response.content_range(), "bytes 0-1/2");
    response.keep_alive(false);
    EXPECT_EQ(*response.headers().get("Connection"), "close");
    response.keep_alive(true);
    EXPECT_EQ(*response.headers().get("Connection"), "Keep-Alive");
}

} // namespace
