#include "platform/json/json_value.h"

#include <gtest/gtest.h>
#include <limits>

using json_spirit::Object;
using json_spirit::object_get;
using json_spirit::Value;

namespace
{

constexpr auto int32_max = std::numeric_limits<std::int32_t>::max();
constexpr auto int32_min = std::numeric_limits<std::int32_t>::min();
constexpr auto int64_max = std::numeric_limits<std::int64_t>::max();
constexpr auto int64_min = std::numeric_limits<std::int64_t>::min();
constexpr auto uint64_max = std::numeric_limits<std::uint64_t>::max();

const Object& members()
{
    static const Object object = {
        {"bool", true},
        {"null", nullptr},
        {"integer", 7},
        {"negative", -7},
        {"double", 7.5},
        {"whole double", 7.0},
        {"string", "seven"},
        {"number text", "7"},
        {"array", Value::array({7})},
        {"object", Value::object({{"integer", 7}})},
    };
    return object;
}

// Which members a type takes; the others have to leave the value alone.
template <class Type>
std::string taken_as(const Type& untouched)
{
    std::string names;
    for (const auto& [name, member] : members()) {
        Type value = untouched;
        if (object_get(members(), name, value))
            names += name + ";";
        else
            EXPECT_EQ(value, untouched) << name;
    }
    return names;
}

template <class Integer>
bool fits(const Value& number)
{
    const Object object = {{"n", number}};
    Integer value = 99;
    const bool taken = object_get(object, "n", value);
    EXPECT_TRUE(taken ? Value(value) == number : value == 99) << number;
    return taken;
}

TEST(Object_Get, EachTypeTakesItsOwnMembersOnly)
{
    EXPECT_EQ(taken_as(false), "bool;");
    EXPECT_EQ(taken_as(std::int32_t{99}), "integer;negative;");
    EXPECT_EQ(taken_as(std::int64_t{99}), "integer;negative;");
    EXPECT_EQ(taken_as(std::uint64_t{99}), "integer;");
    EXPECT_EQ(taken_as(99.5), "double;integer;negative;whole double;");
    EXPECT_EQ(taken_as(std::string("old")), "number text;string;");
}

TEST(Object_Get, ValuesAreTheMembers)
{
    bool flag = false;
    std::int32_t number = 0;
    double real = 0;
    std::string text;
    EXPECT_TRUE(object_get(members(), "bool", flag));
    EXPECT_TRUE(flag);
    EXPECT_TRUE(object_get(members(), "negative", number));
    EXPECT_EQ(number, -7);
    EXPECT_TRUE(object_get(members(), "double", real));
    EXPECT_EQ(real, 7.5);
    EXPECT_TRUE(object_get(members(), "integer", real));
    EXPECT_EQ(real, 7.0);
    EXPECT_TRUE(object_get(members(), "string", text));
    EXPECT_EQ(text, "seven");
}

TEST(Object_Get, IntegersHaveToFit)
{
    EXPECT_TRUE(fits<std::int32_t>(int32_max));
    EXPECT_TRUE(fits<std::int32_t>(int32_min));
    EXPECT_FALSE(fits<std::int32_t>(std::int64_t{int32_max} + 1));
    EXPECT_FALSE(fits<std::int32_t>(std::int64_t{int32_min} - 1));
    EXPECT_FALSE(fits<std::int32_t>(uint64_max));
    EXPECT_TRUE(fits<std::int64_t>(int64_max));
    EXPECT_TRUE(fits<std::int64_t>(int64_min));
    EXPECT_FALSE(fits<std::int64_t>(static_cast<std::uint64_t>(int64_max) + 1));
    EXPECT_TRUE(fits<std::uint64_t>(uint64_max));
    EXPECT_TRUE(fits<std::uint64_t>(0));
    EXPECT_FALSE(fits<std::uint64_t>(-1));
    EXPECT_FALSE(fits<std::uint64_t>(int64_min));
}

TEST(Object_Get, IntegersThatWereReadAsDoublesAreNoIntegers)
{
    Value value;
    ASSERT_TRUE(loads_json(R"({"n":18446744073709551616,"m":1e3})", value));
    const Object& object = value.get_ref<const Object&>();
    std::uint64_t number = 99;
    EXPECT_FALSE(object_get(object, "n", number));
    EXPECT_FALSE(object_get(object, "m", number));
    EXPECT_EQ(number, 99U);
}

TEST(Object_Get, MembersThatAreNotThereLeaveTheValue)
{
    std::string text = "old";
    bool flag = true;
    EXPECT_FALSE(object_get(members(), "missing", text));
    EXPECT_FALSE(object_get(members(), "", flag));
    EXPECT_FALSE(object_get(members(), "String", text));
    EXPECT_EQ(text, "old");
    EXPECT_TRUE(flag);
}

TEST(Object_Get, TheMemberItselfComesWhateverItsType)
{
    ASSERT_NE(object_get(members(), "null"), nullptr);
    EXPECT_TRUE(object_get(members(), "null")->is_null());
    ASSERT_NE(object_get(members(), "array"), nullptr);
    EXPECT_EQ(object_get(members(), "array")->at(0), 7);
    EXPECT_EQ(object_get(members(), "missing"), nullptr);
}

TEST(Object_Get, NamesNeedNoTerminator)
{
    const std::string_view name = std::string_view("integers").substr(0, 7);
    EXPECT_NE(object_get(members(), name), nullptr);
}

} // namespace
