#include "platform/json/yajl_printer.h"

#include "platform/json/json_value.h"
#include "tests/support/allocation_count.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <random>
#include <stdexcept>

using json_spirit::Value;

namespace
{

/// Keeps the text; may be made to throw.
class Text_Printer : public YAJL_Printer
{
public:
    using YAJL_Printer::YAJL_Printer;

    void print(const char* data, std::size_t size) override
    {
        EXPECT_GT(size, 0U);
        if (calls_++ >= throw_from)
            throw std::runtime_error("no more");
        text.append(data, size);
    }

    std::string text;
    std::size_t throw_from = std::numeric_limits<std::size_t>::max();

    std::size_t calls() const { return calls_; }

private:
    std::size_t calls_ = 0;
};

std::string printed(const Value& value, bool pretty = false)
{
    Text_Printer printer(pretty);
    EXPECT_TRUE(printer.value(value));
    EXPECT_TRUE(printer.complete());
    return printer.text;
}

/// What JSON_Dump writes, as it is read.
Value dumped(const Value& value)
{
    Value read;
    std::string reason;
    EXPECT_TRUE(loads_json(JSON_Dump(value, false), read, &reason)) << reason;
    return read;
}

Value read_back(const std::string& text)
{
    Value read;
    std::string reason;
    EXPECT_TRUE(loads_json(text, read, &reason)) << reason << '\n' << text;
    return read;
}

TEST(YAJL_Printer, WritesADocumentCallByCall)
{
    Text_Printer printer;
    EXPECT_FALSE(printer.complete());
    EXPECT_TRUE(printer.open_map());
    EXPECT_TRUE(printer.key("numbers"));
    EXPECT_TRUE(printer.open_array());
    EXPECT_TRUE(printer.number(std::int64_t(-1)));
    EXPECT_TRUE(printer.number(std::uint64_t(2)));
    EXPECT_TRUE(printer.number(2.5));
    EXPECT_TRUE(printer.close_array());
    EXPECT_TRUE(printer.key("text"));
    EXPECT_TRUE(printer.string("a\"b"));
    EXPECT_TRUE(printer.key("truth"));
    EXPECT_TRUE(printer.boolean(true));
    EXPECT_TRUE(printer.key("lie"));
    EXPECT_TRUE(printer.boolean(false));
    EXPECT_TRUE(printer.key("nothing"));
    EXPECT_TRUE(printer.null());
    EXPECT_TRUE(printer.key("empty"));
    EXPECT_TRUE(printer.open_map());
    EXPECT_TRUE(printer.close_map());
    EXPECT_TRUE(printer.key("value"));
    EXPECT_TRUE(printer.value({1, {{"a", Value::array()}}}));
    EXPECT_FALSE(printer.complete());
    EXPECT_TRUE(printer.close_map());
    EXPECT_TRUE(printer.complete());
    EXPECT_EQ(printer.text, R"({"numbers":[-1,2,2.5],"text":"a\"b","truth":true,"lie":false,)"
                            R"("nothing":null,"empty":{},"value":[1,{"a":[]}]})");
}

TEST(YAJL_Printer, IntegersOfEveryTypeKeepTheirValue)
{
    Text_Printer printer;
    EXPECT_TRUE(printer.open_array());
    EXPECT_TRUE(printer.number(7));
    EXPECT_TRUE(printer.number(7U));
    EXPECT_TRUE(printer.number(static_cast<short>(-7)));
    EXPECT_TRUE(printer.number(static_cast<unsigned char>(255)));
    EXPECT_TRUE(printer.number(std::numeric_limits<long long>::min()));
    EXPECT_TRUE(printer.number(std::numeric_limits<unsigned long long>::max()));
    EXPECT_TRUE(printer.close_array());
    EXPECT_EQ(printer.text, "[7,7,-7,255,-9223372036854775808,18446744073709551615]");
}

TEST(YAJL_Printer, NumbersAreWrittenAsJSONDumpWritesThem)
{
    using Double = std::numeric_limits<double>;
    const double doubles[] = {0.0,
                              -0.0,
                              1.0,
                              0.1,
                              1.0 / 3,
                              -2.5e-7,
                              1e15,
                              1e16,
                              1e17,
                              123456789.125,
                              1e300,
                              Double::max(),
                              Double::min(),
                              Double::denorm_min(),
                              Double::epsilon(),
                              Double::infinity(),
                              -Double::infinity(),
                              Double::quiet_NaN()};
    for (const double n : doubles) {
        Text_Printer printer;
        EXPECT_TRUE(printer.number(n));
        EXPECT_EQ(printer.text, JSON_Dump(n, false));
    }
    std::mt19937_64 random(7);
    for (int i = 0; i < 20'000; ++i) {
        const std::uint64_t bits = random();
        double n = 0;
        static_assert(sizeof n == sizeof bits);
        std::memcpy(&n, &bits, sizeof n);
        const std::string text = printed(n);
        ASSERT_EQ(text, JSON_Dump(n, false));
        ASSERT_EQ(printed(bits), JSON_Dump(bits, false));
        ASSERT_EQ(printed(static_cast<std::int64_t>(bits)),
                  JSON_Dump(static_cast<std::int64_t>(bits), false));
        if (std::isfinite(n)) {
            ASSERT_EQ(read_back(text).get<double>(), n);
        }
    }
}

TEST(YAJL_Printer, SimpleValuesStandAlone)
{
    EXPECT_EQ(printed(nullptr), "null");
    EXPECT_EQ(printed(true), "true");
    EXPECT_EQ(printed(-1), "-1");
    EXPECT_EQ(printed("x"), "\"x\"");
    EXPECT_EQ(printed(""), "\"\"");
    EXPECT_EQ(printed(Value::array()), "[]");
    EXPECT_EQ(printed(Value::object()), "{}");
}

TEST(YAJL_Printer, PrettyTextHasALineForEachMember)
{
    EXPECT_EQ(printed({{"a", {1, 2}}, {"b", nullptr}}, true), "{\n"
                                                              "    \"a\": [\n"
                                                              "        1,\n"
                                                              "        2\n"
                                                              "    ],\n"
                                                              "    \"b\": null\n"
                                                              "}\n");
    const Value value = {{"empty", {Value::object(), Value::array()}}, {"text", "a\nb"}};
    EXPECT_EQ(read_back(printed(value, true)), value);
}

TEST(YAJL_Printer, EveryCharacterReadsBack)
{
    for (unsigned c = 0; c < 0x80; ++c) {
        const std::string text = "a" + std::string(1, static_cast<char>(c)) + "b";
        EXPECT_EQ(read_back(printed(text)).get<std::string>(), text) << c;
        EXPECT_EQ(read_back(printed(Value{{text, 1}})), (Value{{text, 1}})) << c;
    }
    EXPECT_EQ(printed("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"),
              "\"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\"");
}

/// Expects a text, as a value and as a name, to be read as what JSON_Dump writes of it.
void expect_as_dumped(const std::string& text)
{
    ASSERT_EQ(read_back(printed(text)), dumped(text));
    ASSERT_EQ(read_back(printed(Value{{text, 1}})), dumped(Value{{text, 1}}));
}

TEST(YAJL_Printer, BytesThatAreNotUTF8AreWrittenAsJSONDumpWritesThem)
{
    const char* const texts[] = {
        "\x80", "\xbf", "\xc0\x80", "\xc1\xbf", "\xc2", "\xc2\x41", "\xdf\xc0", "\xe0\x80\x80",
        "\xe0\x9f\xbf", "\xe0\xa0", "\xed\xa0\x80", "\xed\xbf\xbf", "\xee\x80", "\xef\xbf\xc0",
        "\xf0\x80\x80\x80", "\xf0\x8f\xbf\xbf", "\xf0\x90\x80", "\xf4\x90\x80\x80",
        "\xf5\x80\x80\x80", "\xf8\x88\x80\x80\x80", "\xff", "good \xff bad \xc3\xa9",
        // Well-formed, at the borders of each range.
        "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xec\xbf\xbf", "\xed\x80\x80", "\xed\x9f\xbf",
        "\xee\x80\x80", "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf3\xbf\xbf\xbf", "\xf4\x80\x80\x80",
        "\xf4\x8f\xbf\xbf"};
    for (const char* const text : texts)
        expect_as_dumped(text);
    EXPECT_EQ(printed("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(YAJL_Printer, AnyBytesAreWrittenAsJSONDumpWritesThem)
{
    // All pairs, then sequences of leads and of what may follow them.
    for (unsigned pair = 0; pair < 0x10000; ++pair) {
        const char bytes[] = {static_cast<char>(pair >> 8U), static_cast<char>(pair)};
        const std::string text(bytes, 2);
        ASSERT_EQ(read_back(printed(text)), dumped(text)) << pair;
    }
    std::mt19937 random(11);
    const unsigned char bytes[] = {0x41, 0x7f, 0x80, 0x8f, 0x90, 0x9f, 0xa0, 0xbf, 0xc2, 0xdf,
                                   0xe0, 0xe1, 0xec, 0xed, 0xee, 0xef, 0xf0, 0xf1, 0xf3, 0xf4};
    for (int i = 0; i < 100'000; ++i) {
        std::string text(1 + random() % 5, '\0');
        for (char& c : text)
            c = static_cast<char>(bytes[random() % sizeof bytes]);
        ASSERT_EQ(read_back(printed(text)), dumped(text)) << i;
    }
}

TEST(YAJL_Printer, WhatHasNoPlaceIsRefusedAndChangesNothing)
{
    struct Operation
    {
        const char* name;
        bool (*call)(YAJL_Printer&);
    };
    static constexpr Operation operations[] = {
        {"open_map", [](YAJL_Printer& p) { return p.open_map(); }},
        {"close_map", [](YAJL_Printer& p) { return p.close_map(); }},
        {"open_array", [](YAJL_Printer& p) { return p.open_array(); }},
        {"close_array", [](YAJL_Printer& p) { return p.close_array(); }},
        {"key", [](YAJL_Printer& p) { return p.key("k"); }},
        {"string", [](YAJL_Printer& p) { return p.string("s"); }},
        {"integer", [](YAJL_Printer& p) { return p.number(1); }},
        {"double", [](YAJL_Printer& p) { return p.number(0.5); }},
        {"boolean", [](YAJL_Printer& p) { return p.boolean(true); }},
        {"null", [](YAJL_Printer& p) { return p.null(); }},
        {"value", [](YAJL_Printer& p) { return p.value(Value::array()); }},
    };
    using Names = std::vector<std::string>;
    const Names values = {"open_map", "open_array", "string", "integer",
                          "double",   "boolean",    "null",   "value"};
    const auto with = [](Names names, const char* name) {
        names.emplace_back(name);
        return names;
    };
    /// The calls that lead to a place, what may be called there, and the text to the end.
    struct Stage
    {
        const char* name;
        void (*reach)(YAJL_Printer&);
        Names allowed;
        void (*finish)(YAJL_Printer&);
        const char* text;
    };
    const Stage stages[] = {
        {"start", [](YAJL_Printer&) {}, values, [](YAJL_Printer& p) { p.null(); }, "null"},
        {"empty object",
         [](YAJL_Printer& p) { p.open_map(); },
         {"close_map", "key"},
         [](YAJL_Printer& p) { p.close_map(); },
         "{}"},
        {"behind a key",
         [](YAJL_Printer& p) {
             p.open_map();
             p.key("a");
         },
         values,
         [](YAJL_Printer& p) {
             p.number(1);
             p.close_map();
         },
         R"({"a":1})"},
        {"behind a member",
         [](YAJL_Printer& p) {
             p.open_map();
             p.key("a");
             p.open_array();
             p.close_array();
         },
         {"close_map", "key"},
         [](YAJL_Printer& p) { p.close_map(); },
         R"({"a":[]})"},
        {"empty array", [](YAJL_Printer& p) { p.open_array(); }, with(values, "close_array"),
         [](YAJL_Printer& p) { p.close_array(); }, "[]"},
        {"inside an array",
         [](YAJL_Printer& p) {
             p.open_array();
             p.number(1);
         },
         with(values, "close_array"), [](YAJL_Printer& p) { p.close_array(); }, "[1]"},
        {"end of a number", [](YAJL_Printer& p) { p.number(1); }, {}, [](YAJL_Printer&) {}, "1"},
        {"end of an object",
         [](YAJL_Printer& p) {
             p.open_map();
             p.close_map();
         },
         {},
         [](YAJL_Printer&) {},
         "{}"},
    };
    for (const Stage& stage : stages) {
        for (const Operation& operation : operations) {
            SCOPED_TRACE(std::string(stage.name) + ": " + operation.name);
            const bool allowed = std::find(stage.allowed.begin(), stage.allowed.end(),
                                           operation.name) != stage.allowed.end();
            Text_Printer printer;
            stage.reach(printer);
            const std::string before = printer.text;
            ASSERT_EQ(operation.call(printer), allowed);
            if (allowed)
                continue;
            EXPECT_EQ(printer.text, before);
            stage.finish(printer);
            EXPECT_TRUE(printer.complete());
            EXPECT_EQ(printer.text, stage.text);
        }
    }
}

Value nested(unsigned depth)
{
    Value value = depth % 2 == 0 ? Value::object() : Value::array();
    for (unsigned i = 1; i < depth; ++i)
        value = i % 2 == 0 ? Value{{"a", std::move(value)}} : Value::array({std::move(value)});
    return value;
}

TEST(YAJL_Printer, NestsToItsDepthAndNoDeeper)
{
    constexpr unsigned depth = YAJL_Printer::max_depth;
    Text_Printer printer;
    for (unsigned i = 0; i < depth; ++i)
        ASSERT_TRUE(printer.open_array()) << i;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(printer.open_array());
        EXPECT_FALSE(printer.open_map());
    }
    EXPECT_TRUE(printer.number(1));
    for (unsigned i = 0; i < depth; ++i)
        ASSERT_TRUE(printer.close_array()) << i;
    EXPECT_FALSE(printer.close_array());
    EXPECT_TRUE(printer.complete());
    EXPECT_EQ(printer.text, std::string(depth, '[') + "1" + std::string(depth, ']'));

    const Value deepest = nested(depth);
    EXPECT_EQ(read_back(printed(deepest)), deepest);
    EXPECT_EQ(read_back(printed(deepest, true)), deepest);
}

/// Expects that nothing can be done any more.
void expect_given_up(Text_Printer& printer)
{
    const std::size_t calls = printer.calls();
    EXPECT_FALSE(printer.complete());
    EXPECT_FALSE(printer.open_map());
    EXPECT_FALSE(printer.close_map());
    EXPECT_FALSE(printer.open_array());
    EXPECT_FALSE(printer.close_array());
    EXPECT_FALSE(printer.key("k"));
    EXPECT_FALSE(printer.string("s"));
    EXPECT_FALSE(printer.number(1));
    EXPECT_FALSE(printer.number(1U));
    EXPECT_FALSE(printer.number(1.5));
    EXPECT_FALSE(printer.boolean(true));
    EXPECT_FALSE(printer.null());
    EXPECT_FALSE(printer.value(1));
    EXPECT_EQ(printer.calls(), calls);
}

TEST(YAJL_Printer, AValueThatNestsTooDeepEndsAllWriting)
{
    for (const unsigned depth : {YAJL_Printer::max_depth + 1, max_json_depth, 100'000U}) {
        Text_Printer printer;
        EXPECT_FALSE(printer.value(nested(depth)));
        expect_given_up(printer);
    }
    Text_Printer inside;
    EXPECT_TRUE(inside.open_array());
    EXPECT_FALSE(inside.value(nested(YAJL_Printer::max_depth)));
    expect_given_up(inside);
}

TEST(YAJL_Printer, BinaryDataHasNoForm)
{
    Text_Printer printer;
    EXPECT_FALSE(printer.value({1, Value::binary({1, 2})}));
    expect_given_up(printer);
}

TEST(YAJL_Printer, AnExceptionOfTheOutputCallGoesNoFurtherAndEndsAllWriting)
{
    const Value value = {{"a", {1, 2.5, "x\ny", nullptr, true}}, {"b", Value::object()}};
    Text_Printer whole;
    ASSERT_TRUE(whole.value(value));
    for (std::size_t calls = 0; calls < whole.calls(); ++calls) {
        Text_Printer printer;
        printer.throw_from = calls;
        EXPECT_NO_THROW(EXPECT_FALSE(printer.value(value))) << calls;
        EXPECT_EQ(printer.calls(), calls + 1);
        EXPECT_EQ(printer.text, whole.text.substr(0, printer.text.size()));
        expect_given_up(printer);
    }
}

TEST(YAJL_Printer, AnExceptionInEachOperationMakesItFalse)
{
    const auto fails = [](const auto& reach, const auto& operation) {
        Text_Printer printer;
        reach(printer);
        printer.throw_from = printer.calls();
        EXPECT_FALSE(operation(printer));
        expect_given_up(printer);
    };
    const auto nothing = [](auto&) {};
    fails(nothing, [](auto& p) { return p.open_map(); });
    fails(nothing, [](auto& p) { return p.open_array(); });
    fails(nothing, [](auto& p) { return p.string("s"); });
    fails(nothing, [](auto& p) { return p.number(1); });
    fails(nothing, [](auto& p) { return p.number(1U); });
    fails(nothing, [](auto& p) { return p.number(0.5); });
    fails(nothing, [](auto& p) { return p.boolean(true); });
    fails(nothing, [](auto& p) { return p.null(); });
    fails([](auto& p) { p.open_map(); }, [](auto& p) { return p.close_map(); });
    fails([](auto& p) { p.open_map(); }, [](auto& p) { return p.key("k"); });
    fails([](auto& p) { p.open_array(); }, [](auto& p) { return p.close_array(); });
}

TEST(YAJL_Printer, WithoutMemoryNothingIsWrittenAndNothingThrown)
{
    std::optional<Text_Printer> printer;
    {
        Allocation_Failure none(0);
        printer.emplace();
    }
    expect_given_up(*printer);
    EXPECT_EQ(printer->text, "");
}

TEST(YAJL_Printer, WhereverMemoryRunsOutAValueIsWholeOrRefused)
{
    const Value value = {{"a", {0.1, 12345.678e100, "bad \xff", "good"}}, {"bad \xff", 1}};
    const std::string expected = printed(value);
    bool whole = false;
    std::size_t refusals = 0;
    for (std::size_t allowed = 0; !whole; ++allowed) {
        ASSERT_LT(allowed, 1000U);
        Text_Printer printer;
        printer.text.reserve(1000);
        {
            Allocation_Failure failure(allowed);
            whole = printer.value(value);
        }
        if (whole) {
            EXPECT_EQ(printer.text, expected);
            EXPECT_TRUE(printer.complete());
        } else {
            ++refusals;
            expect_given_up(printer);
        }
    }
    EXPECT_GT(refusals, 4U);
}

TEST(YAJL_Printer, WritingTextAndIntegersTakesNoMemory)
{
    class Counting_Printer : public YAJL_Printer
    {
    public:
        void print(const char*, std::size_t size) override { size_ += size; }
        std::size_t size_ = 0;
    };
    Counting_Printer printer;
    const std::string text(1000, 'x');
    const Allocation_Count count;
    EXPECT_TRUE(printer.open_array());
    for (int i = 0; i < 10'000; ++i)
        EXPECT_TRUE(printer.open_map() && printer.key("name") && printer.string(text) &&
                    printer.key("size") && printer.number(i) && printer.close_map());
    EXPECT_TRUE(printer.close_array());
    EXPECT_EQ(count.allocations(), 0U);
    EXPECT_GT(printer.size_, 10'000'000U);
}

TEST(YAJL_Printer, AnUnfinishedDocumentStaysUnfinished)
{
    std::string text;
    {
        class Borrowing_Printer : public YAJL_Printer
        {
        public:
            explicit Borrowing_Printer(std::string& target) : target_(target) {}
            void print(const char* data, std::size_t size) override { target_.append(data, size); }

        private:
            std::string& target_;
        };
        Borrowing_Printer printer(text);
        EXPECT_TRUE(printer.open_array());
    }
    EXPECT_EQ(text, "[");
}

} // namespace
