#include "tests/cli/names_test.h"

TEST_P(Names, RoundTripKeepsNameAndContents)
{
    const std::string& name = GetParam();
    write("tree/" + name, "contents of it");
    ASSERT_EQ(cio({"put", "tree", uri()}).code, 0);
    EXPECT_EQ(paths_below(at("target/tree")), std::vector<std::string>{name});
    ASSERT_EQ(cio({"get", uri(), "tree", "back/"}).code, 0);
    EXPECT_EQ(read("back/tree/" + name), "contents of it");
    EXPECT_EQ(cio({"ls", uri(), "tree"}).out, name + "\n");
    EXPECT_EQ(cio({"verify", "tree", uri(), "tree"}).code, 0);
}

TEST_P(Names, NameOnTheCommandLineIsTakenAsItStands)
{
    const std::string& name = GetParam();
    write(name, "as named");
    ASSERT_EQ(cio({"put", "--", name, uri(), name}).code, 0);
    EXPECT_EQ(read("target/" + name), "as named");
    EXPECT_EQ(cio({"cat", "--", uri(), name}).out, "as named");
    EXPECT_EQ(cio({"get", "--", uri(), name, "back/" + name}).code, 0);
    EXPECT_EQ(read("back/" + name), "as named");
    EXPECT_EQ(cio({"mv", "--", uri(), name, "moved"}).code, 0);
    EXPECT_EQ(cio({"mv", "--", uri(), "moved", name}).code, 0);
    EXPECT_EQ(cio({"rm", "--", uri(), name}).code, 0);
    EXPECT_FALSE(exists("target/" + name));
}

INSTANTIATE_TEST_SUITE_P(All, Names,
                         testing::Values("with space", "it's", "100%", "%41", "a%2Fb", "[a,b]",
                                         "{}", "%%", "++", "-dash", "--", "--overwrite", "ls",
                                         "put", "help", "x=y", "#hash", "...", " ", "~", "a.", "a ",
                                         "con", "aux.txt", "NUL",
                                         "\xC3\xA4\xE6\x97\xA5\xF0\x9F\x98\x80",
                                         std::string(200, 'n')));

using Names_Of_Targets = Cli_Test;

TEST_F(Names_Of_Targets, PathsThatCouldLeaveTheTargetAreUsageErrors)
{
    write("target/a", "A");
    write("outside", "stays");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"get", uri(), "../outside", "got"},
          {"cat", uri(), "a/../../outside"},
          {"rm", uri(), ".."},
          {"put", "outside", uri(), "../planted"},
          {"mv", uri(), "a", "../a"},
          {"ls", uri(), ".."}})
    {
        const Cio_Result result = cio(arguments);
        EXPECT_EQ(result.code, 2) << arguments[0];
        EXPECT_EQ(result.out, "") << arguments[0];
    }
    EXPECT_EQ(paths_below(at("target")), std::vector<std::string>{"a"});
    EXPECT_FALSE(exists("planted"));
    EXPECT_FALSE(exists("got"));
    EXPECT_EQ(read("outside"), "stays");
}

TEST_F(Names_Of_Targets, SlashesAndDotsInAPathDoNotMatter)
{
    write("target/d/a", "A");
    EXPECT_EQ(cio({"cat", uri(), "//d/.//./a"}).out, "A");
}

TEST_F(Names_Of_Targets, PercentInAUriIsDecodedAndInAPathIsNot)
{
    write("tar get/a%20b", "A");
    EXPECT_EQ(cio({"cat", uri("tar%20get"), "a%20b"}).out, "A");
}
