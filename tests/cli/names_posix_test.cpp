#include "cli/path_rules.h"
#include "platform/runtime/base64.h"
#include "tests/cli/json_test.h"
#include "tests/cli/names_test.h"

// What no file name on Windows may hold.
INSTANTIATE_TEST_SUITE_P(Posix, Names,
                         testing::Values("new\nline", "tab\there", "\"quoted\"", "back\\slash",
                                         "file:", "what?", "*", "<in>", "a|b", "\x01",
                                         "\x01\x01two", "\xff\xfe not UTF-8"));

using Names_In_Json = Json;

TEST_F(Names_In_Json, NamesThatAreNotUtf8HaveTheirBytesBeside)
{
    const std::string name = "caf\xE9";
    write("target/" + name, "");
    const auto entries = of_type(cio({"ls", "--json", uri()}).out, "entry");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0]["path"], "caf\xEF\xBF\xBD");
    std::string bytes;
    ASSERT_TRUE(Base64_Decoder::decode(entries[0]["path_base64"].get<std::string>(), bytes));
    EXPECT_EQ(bytes, name);
}

TEST_F(Names_In_Json, NamesWithNewlinesStayOnOneLine)
{
    write("target/a\nb\"c", "");
    const auto entries = of_type(cio({"ls", "--json", uri()}).out, "entry");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0]["path"], "a\nb\"c");
    EXPECT_FALSE(entries[0].contains("path_base64"));
}

TEST(Path_Rules, NamesMayHoldEveryCharacterButASlash)
{
    for (const char* name : {"\n", "\x01", "a:b", "a\\b", "<>\"|?*"})
        EXPECT_TRUE(cio::is_safe_entry_name(name)) << name;
}
