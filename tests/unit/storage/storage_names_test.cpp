#include "servers/storage/storage_path.h"
#include "tests/unit/storage/storage_fixture.h"

#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

// What names look like to clients, and which of theirs are looked up.

namespace
{

bool is_utf8(const std::string& text)
{
    try {
        // The library refuses to write anything else.
        static_cast<void>(nlohmann::json(text).dump());
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

std::string parsed(std::string_view path)
{
    Storage_Path result;
    return result.parse(path) ? result.text() : "<refused>";
}

TEST(Listed_Names, TextStandsAsItIs)
{
    for (const std::string name :
         {"plain", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xEF\xBF\xBF", "\xEF\x9D\xBF",
          "\xEF\xA0\x80", "new\nline", "\"\\", "\xF4\x8F\xBF\xBF"})
    {
        EXPECT_EQ(Storage_Tree::listed_name(name), name);
        EXPECT_EQ(Storage_Tree::meant_name(name), name);
    }
}

TEST(Listed_Names, BytesThatAreNoTextAreShownAsPrivateCharacters)
{
    EXPECT_EQ(Storage_Tree::listed_name("a\xFFz"), "a\xEF\x9F\xBFz");             // U+F7FF
    EXPECT_EQ(Storage_Tree::listed_name("\x80"), "\xEF\x9E\x80");                 // U+F780
    EXPECT_EQ(Storage_Tree::listed_name("\xC3"), "\xEF\x9F\x83");                 // U+F7C3
    EXPECT_EQ(Storage_Tree::listed_name("\xC0\xAF"), "\xEF\x9F\x80\xEF\x9E\xAF"); // overlong
    EXPECT_EQ(Storage_Tree::listed_name("\xED\xA0\x80"),                          // surrogate
              "\xEF\x9F\xAD\xEF\x9E\xA0\xEF\x9E\x80");
    EXPECT_EQ(Storage_Tree::listed_name("\xF4\x90\x80\x80"), // beyond U+10FFFF
              "\xEF\x9F\xB4\xEF\x9E\x90\xEF\x9E\x80\xEF\x9E\x80");
}

TEST(Listed_Names, ThePrivateCharactersThemselvesAreShownByteByByte)
{
    EXPECT_EQ(Storage_Tree::listed_name("\xEF\x9E\x80"), "\xEF\x9F\xAF\xEF\x9E\x9E\xEF\x9E\x80");
    EXPECT_EQ(Storage_Tree::listed_name("\xEF\x9F\xBF"), "\xEF\x9F\xAF\xEF\x9E\x9F\xEF\x9E\xBF");
}

TEST(Listed_Names, AreTextAndNoTwoNamesLookAlikeAndEachIsFoundAgain)
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const std::uint64_t seed =
        given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    std::mt19937_64 random(seed);
    // Bytes that begin, continue and break characters, those of the private ones first of all.
    const std::string bytes = "\xEF\x9E\x9F\x80\xBF\xC3\xA9\xE0\xED\xA0\xF0\xF4\x8F\x90\xFF"
                              "a.";
    std::set<std::string> names;
    std::set<std::string> listed;
    for (int i = 0; i < 100000; ++i) {
        std::string name(1 + random() % 7, '\0');
        for (char& byte : name)
            byte = random() % 8 == 0 ? static_cast<char>(random()) : bytes[random() % bytes.size()];
        const std::string shown = Storage_Tree::listed_name(name);
        ASSERT_TRUE(is_utf8(shown));
        ASSERT_EQ(Storage_Tree::meant_name(shown), name);
        names.insert(name);
        listed.insert(shown);
    }
    EXPECT_EQ(names.size(), listed.size());
}

TEST(Storage_Paths, SeveralAndLeadingSlashesCountAsOne)
{
    EXPECT_EQ(parsed(""), "");
    EXPECT_EQ(parsed("/"), "");
    EXPECT_EQ(parsed("//a///b/"), "a/b");
}

TEST(Storage_Paths, NamesThatNoTreeHoldsAreRefused)
{
    using namespace std::string_view_literals;
    for (const std::string_view path : {"."sv, ".."sv, "a/.."sv, "../a"sv, "a/./b"sv, "/.."sv,
                                        "a\0b"sv, "\0"sv, ".cio-x"sv, "a/.cio-lock/b"sv, ".cio-"sv})
        EXPECT_EQ(parsed(path), "<refused>") << path;
    EXPECT_EQ(parsed(std::string(256, 'x')), "<refused>");
}

TEST(Storage_Paths, NamesThatOnlyLookLikeThoseAreTaken)
{
    for (const std::string path : {"...", ".a", "..a", "a..", ".cio", "x.cio-", "a\\..\\b", "~"})
        EXPECT_EQ(parsed(path), path);
    EXPECT_EQ(parsed(std::string(255, 'x')), std::string(255, 'x'));
}

// A name has 255 bytes however many of them it takes to show it.
TEST(Storage_Paths, AreMeasuredInTheFormThatTheSystemGets)
{
    const std::string name(255, '\xFF');
    EXPECT_EQ(parsed(Storage_Tree::listed_name(name)), name);
    EXPECT_EQ(parsed(Storage_Tree::listed_name(name + '\xFF')), "<refused>");
}

TEST(Storage_Paths, AreBelowAnotherByWholeNames)
{
    const auto below = [](std::string_view path, std::string_view other) {
        Storage_Path first;
        Storage_Path second;
        return first.parse(path) && second.parse(other) && first.is_below(second);
    };
    EXPECT_TRUE(below("a/b", "a"));
    EXPECT_TRUE(below("a", ""));
    EXPECT_FALSE(below("ab", "a"));
    EXPECT_FALSE(below("a", "a"));
    EXPECT_FALSE(below("a", "a/b"));
}

} // namespace
