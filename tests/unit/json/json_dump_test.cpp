#include "platform/json/json_value.h"

#include <gtest/gtest.h>
#include <limits>

using json_spirit::Value;

namespace
{

TEST(JSON_Dump, OneLineHasNoSpaces)
{
    const Value value = {{"b", {1, -2, 1.5, "x", nullptr, true}}, {"a", Value::object()}};
    EXPECT_EQ(JSON_Dump(value, false), R"({"a":{},"b":[1,-2,1.5,"x",null,true]})");
}

TEST(JSON_Dump, PrettyTextHasFourSpacesALevel)
{
    const Value value = {{"b", {1, {{"c", Value::array()}}}}, {"a", Value::object()}};
    EXPECT_EQ(JSON_Dump(value, true), "{\n"
                                      "    \"a\": {},\n"
                                      "    \"b\": [\n"
                                      "        1,\n"
                                      "        {\n"
                                      "            \"c\": []\n"
                                      "        }\n"
                                      "    ]\n"
                                      "}");
}

TEST(JSON_Dump, SimpleValuesStandAlone)
{
    EXPECT_EQ(JSON_Dump(nullptr, true), "null");
    EXPECT_EQ(JSON_Dump(false, true), "false");
    EXPECT_EQ(JSON_Dump("x", true), "\"x\"");
    EXPECT_EQ(JSON_Dump(Value::array(), true), "[]");
    EXPECT_EQ(JSON_Dump(Value::object(), true), "{}");
}

TEST(JSON_Dump, NumbersAreExact)
{
    EXPECT_EQ(JSON_Dump(std::numeric_limits<std::uint64_t>::max(), false), "18446744073709551615");
    EXPECT_EQ(JSON_Dump(std::numeric_limits<std::int64_t>::min(), false), "-9223372036854775808");
    EXPECT_EQ(JSON_Dump(0.1, false), "0.1");
}

TEST(JSON_Dump, NumbersWithoutJsonFormAreNull)
{
    EXPECT_EQ(JSON_Dump(std::numeric_limits<double>::infinity(), false), "null");
    EXPECT_EQ(JSON_Dump(std::numeric_limits<double>::quiet_NaN(), false), "null");
}

TEST(JSON_Dump, TextIsEscapedWhereItMustBe)
{
    EXPECT_EQ(JSON_Dump(std::string("\"\\/\b\f\n\r\t\x01\x7f\0", 11), false),
              "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\x7f\\u0000\"");
    EXPECT_EQ(JSON_Dump("\xc3\xa9", false), "\"\xc3\xa9\"");
    EXPECT_EQ(JSON_Dump(Value{{"a\"b", 1}}, false), R"({"a\"b":1})");
}

TEST(JSON_Dump, BytesThatAreNotUtf8BecomeReplacementCharacters)
{
    EXPECT_EQ(JSON_Dump("a\xff"
                        "b",
                        false),
              "\"a\xEF\xBF\xBD"
              "b\"");
    EXPECT_EQ(JSON_Dump(Value{{"n\xc3", 1}}, false), "{\"n\xEF\xBF\xBD\":1}");
}

TEST(JSON_Dump, WhatWasReadIsWrittenBack)
{
    for (const std::string text : {"[[],[{}],{\"a\":[1,[2,[3]]],\"b\":{\"c\":{\"d\":null}}}]",
                                   "{\"x\":[{},{},[]]}", "[[[]]]", "[1,2.5,\"\",false]"})
    {
        Value value;
        ASSERT_TRUE(loads_json(text, value));
        EXPECT_EQ(JSON_Dump(value, false), text);
        Value again;
        ASSERT_TRUE(loads_json(JSON_Dump(value, true), again));
        EXPECT_EQ(again, value);
        EXPECT_EQ(JSON_Dump(value, true), value.dump(4));
    }
}

TEST(JSON_Dump, DepthDoesNotUseUpTheStack)
{
    constexpr std::size_t depth = 1000000;
    Value value = Value::array();
    for (std::size_t i = 1; i < depth; ++i) {
        Value outer = Value::array();
        outer.push_back(std::move(value));
        value = std::move(outer);
    }
    EXPECT_TRUE(JSON_Dump(value, false) == std::string(depth, '[') + std::string(depth, ']'));
}

} // namespace
