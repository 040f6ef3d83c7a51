#include "platform/json/json_value.h"

#include <gtest/gtest.h>

using json_spirit::Value;

namespace
{

Value loaded(const std::string& text)
{
    Value value;
    std::string error;
    EXPECT_TRUE(loads_json(text, value, &error)) << text << ": " << error;
    return value;
}

// Checks that a text is refused and nothing is changed; returns the reason.
std::string refusal(const std::string& text)
{
    Value value = "kept";
    std::string error;
    EXPECT_FALSE(loads_json(text, value, &error)) << text.substr(0, 80);
    EXPECT_EQ(value, "kept");
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(loads_json(text, value)) << "without a place for the reason";
    return error;
}

std::string nested(std::size_t depth, char open, char close)
{
    return std::string(depth, open) + std::string(depth, close);
}

TEST(Loads_JSON, EveryKindOfValueIsRead)
{
    EXPECT_TRUE(loaded("null").is_null());
    EXPECT_EQ(loaded("true"), true);
    EXPECT_EQ(loaded(" \t\r\n false \n"), false);
    EXPECT_EQ(loaded("-12"), -12);
    EXPECT_EQ(loaded("1.5"), 1.5);
    EXPECT_EQ(loaded("\"a\\u0041\\n\\\\\""), "aA\n\\");
    EXPECT_TRUE(loaded("[]").is_array());
    EXPECT_TRUE(loaded("{}").is_object());
    const Value value = loaded(R"({"b": [1, {"c": [[], {}, null]}, "x"], "a": {"": false}})");
    EXPECT_EQ(value["b"][0], 1);
    EXPECT_EQ(value["b"][1]["c"].size(), 3U);
    EXPECT_TRUE(value["b"][1]["c"][2].is_null());
    EXPECT_EQ(value["b"][2], "x");
    EXPECT_EQ(value["a"][""], false);
}

TEST(Loads_JSON, MembersAreOrderedByName)
{
    EXPECT_EQ(JSON_Dump(loaded(R"({"b":1,"a":2,"B":3})"), false), R"({"B":3,"a":2,"b":1})");
}

TEST(Loads_JSON, GrammarErrorsAreRefused)
{
    for (const char* text :
         {"",        " ",        "nul",      "True",       "{",         "}",        "[",
          "]",       "[1,]",     "[,1]",     "{\"a\":1,}", "{\"a\"}",   "{\"a\":}", "{a:1}",
          "{'a':1}", "{1:1}",    "\"a",      "\"\\x\"",    "\"\\u12\"", "\"\n\"",   "01",
          "+1",      ".5",       "1.",       "1e",         "1e+",       "-",        "--1",
          "0x1",     "NaN",      "Infinity", "-Infinity",  "// c\n1",   "/* c */1", "[1 2]",
          "[1}",     "{\"a\":1]"})
        refusal(text);
}

TEST(Loads_JSON, TrailingTextIsRefused)
{
    for (const char* text : {"1 2", "{} {}", "[]]", "null,", "{}x", "\"a\"\"b\"", "truefalse"})
        refusal(text);
}

TEST(Loads_JSON, ReasonNamesThePlace)
{
    EXPECT_NE(refusal("[1,\n2,\n  x]").find("at byte 10 (line 3)"), std::string::npos)
        << refusal("[1,\n2,\n  x]");
    EXPECT_NE(refusal("").find("at byte 0 (line 1)"), std::string::npos) << refusal("");
}

TEST(Loads_JSON, ReasonShowsNothingOfTheText)
{
    for (const char* text :
         {"{\"key\": \"top-secret\" oops}", "[\"top-secret", "{\"key\" top-secret}",
          "{\"top-secret\":1,\"top-secret\":2}", "\"top-secret\xff\"", "\"top-secret\\q\"",
          "[\"a\" \"; last read: top-secret\"]"})
        EXPECT_EQ(refusal(text).find("secret"), std::string::npos) << refusal(text);
}

TEST(Loads_JSON, NestingEndsAtItsLimit)
{
    EXPECT_TRUE(loaded(nested(max_json_depth, '[', ']')).is_array());
    EXPECT_NE(refusal(nested(max_json_depth + 1, '[', ']')).find("nesting"), std::string::npos);

    std::string objects;
    for (unsigned i = 0; i < max_json_depth; ++i)
        objects += "{\"a\":";
    EXPECT_TRUE(loaded(objects + "1" + std::string(max_json_depth, '}')).is_object());
    EXPECT_NE(refusal(std::string("[") + objects + "1" + std::string(max_json_depth, '}') + "]")
                  .find("nesting"),
              std::string::npos);
}

TEST(Loads_JSON, DepthIsCountedAndNotTheNumberOfArrays)
{
    std::string text = "[";
    for (unsigned i = 0; i < max_json_depth * 3; ++i)
        text += "[{}],";
    EXPECT_EQ(loaded(text + "[]]").size(), max_json_depth * 3 + 1);
}

TEST(Loads_JSON, NestingBombsAreRefusedEarly)
{
    EXPECT_NE(refusal(std::string(1000000, '[')).find("at byte 513 "), std::string::npos);
    std::string objects;
    for (unsigned i = 0; i < 200000; ++i)
        objects += "{\"a\":";
    EXPECT_NE(refusal(objects).find("nesting"), std::string::npos);
}

TEST(Loads_JSON, NumbersTooLargeForADoubleAreRefused)
{
    for (const std::string& text : {std::string("1e999"), std::string("-1e999"),
                                    std::string("[1e309]"), std::string(400, '9')})
        EXPECT_NE(refusal(text).find("too large"), std::string::npos) << text;
}

TEST(Loads_JSON, NumbersTooSmallForADoubleAreZero)
{
    EXPECT_EQ(loaded("1e-999"), 0.0);
}

TEST(Loads_JSON, IntegersOf64BitsAreExact)
{
    EXPECT_EQ(loaded("18446744073709551615").get<std::uint64_t>(), 18446744073709551615U);
    EXPECT_TRUE(loaded("18446744073709551615").is_number_integer());
    EXPECT_EQ(loaded("-9223372036854775808").get<std::int64_t>(),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(loaded("9007199254740993").get<std::int64_t>(), 9007199254740993);
}

TEST(Loads_JSON, IntegersBeyond64BitsBecomeDoubles)
{
    for (const char* text :
         {"123456789012345678901234567890", "18446744073709551616", "-9223372036854775809"})
    {
        const Value value = loaded(text);
        EXPECT_TRUE(value.is_number_float()) << text;
        EXPECT_EQ(value.get<double>(), std::stod(text)) << text;
    }
}

TEST(Loads_JSON, MinusZeroIsZero)
{
    EXPECT_EQ(loaded("-0"), 0);
    EXPECT_EQ(loaded("-0.0"), 0.0);
    EXPECT_TRUE(std::signbit(loaded("-0.0").get<double>()));
}

TEST(Loads_JSON, InvalidUtf8IsRefused)
{
    for (const char* bytes : {"\xff", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf5\x80\x80\x80",
                              "\xe2\x82", "\x80", "\xf4\x90\x80\x80"})
    {
        refusal(std::string("\"") + bytes + "\"");
        refusal(std::string("{\"") + bytes + "\":1}");
        refusal(bytes);
    }
}

TEST(Loads_JSON, Utf8OfEveryLengthIsRead)
{
    EXPECT_EQ(loaded("\"a\xc3\xa9\xe2\x82\xac\xf0\x9f\x92\xbe\""),
              "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x92\xbe");
    EXPECT_EQ(loaded("\"\\u00e9\\u20AC\\ud83d\\udcbe\""), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x92\xbe");
    EXPECT_EQ(loaded("\"\\u0000\""), std::string(1, '\0'));
}

TEST(Loads_JSON, LoneSurrogatesAreRefused)
{
    for (const char* text : {R"("\ud83d")", R"("\udcbe")", R"("\ud83dx")", R"("\ud83d\u0041")",
                             R"("\ud83d\ud83d")", R"("\udcbe\ud83d")"})
        refusal(text);
}

TEST(Loads_JSON, NamesThatStandTwiceAreRefused)
{
    EXPECT_NE(refusal(R"({"a":1,"a":1})").find("twice"), std::string::npos);
    EXPECT_NE(refusal(R"({"a":1,"\u0061":2})").find("twice"), std::string::npos);
    EXPECT_NE(refusal(R"([{"x":{"b":1,"c":2,"b":{}}}])").find("twice"), std::string::npos);
    loaded(R"([{"a":1},{"a":{"a":1}},{"A":1,"a":2}])");
}

TEST(Loads_JSON, NulBytesAreRefused)
{
    EXPECT_NE(refusal(std::string("{}\0", 3)).find("NUL byte at byte 2 "), std::string::npos);
    refusal(std::string("\0{}", 3));
    refusal(std::string("\"a\0b\"", 5));
    refusal(std::string("{}\0{}", 5));
    refusal(std::string("[1\0,2]", 6));
}

TEST(Loads_JSON, AByteOrderMarkMayStandAtTheStartOnly)
{
    EXPECT_TRUE(loaded("\xEF\xBB\xBF{}").is_object());
    refusal("\xEF\xBB\xBF\xEF\xBB\xBF{}");
    refusal("{}\xEF\xBB\xBF");
    refusal("\xEF\xBB{}");
    refusal("\xEF\xBB\xBF");
}

TEST(Loads_JSON, TheValueMayHoldAnEarlierOne)
{
    Value value = loaded(R"({"old": [1,2,3]})");
    ASSERT_TRUE(loads_json("[4]", value));
    EXPECT_EQ(value, Value::array({4}));
}

TEST(Loads_JSON, LongTextsAreRead)
{
    std::string text = "[";
    for (int i = 0; i < 100000; ++i)
        text += std::to_string(i) + ",";
    const Value value = loaded(text + "0]");
    ASSERT_EQ(value.size(), 100001U);
    EXPECT_EQ(value[99999], 99999);
}

} // namespace
