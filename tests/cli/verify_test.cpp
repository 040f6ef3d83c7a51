#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

class Verify : public Cli_Test
{
protected:
    void SetUp() override
    {
        write("tree/a", "same");
        write("tree/sub/b", pattern(300'000));
        ASSERT_EQ(cio({"put", "tree", uri()}).code, 0);
    }
    Cio_Result verify() { return cio({"verify", "tree", uri(), "tree"}); }
};

TEST_F(Verify, SameTreesHaveNoDifferences)
{
    const Cio_Result result = verify();
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.out.find("2 files"), std::string::npos);
    EXPECT_NE(result.out.find("0 differences"), std::string::npos);
}

TEST_F(Verify, ChangedByteIsNamedWithItsPlace)
{
    std::string data = pattern(300'000);
    data[234'567] = static_cast<char>(data[234'567] ^ 1);
    write("target/tree/sub/b", data);
    const Cio_Result result = verify();
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("tree/sub/b: content differs at byte 234567\n"), std::string::npos);
    EXPECT_EQ(result.out.find("tree/a:"), std::string::npos);
}

TEST_F(Verify, EachKindOfDifferenceIsTold)
{
    write("target/tree/a", "longer");
    write("target/tree/sub/extra", "");
    write("tree/missing", "");
    write("tree/kind/x", "");
    write("target/tree/kind", "");
    write("target/tree/only/there/x", "");
    const Cio_Result result = verify();
    EXPECT_EQ(result.code, 1);
    for (const char* line :
         {"tree/a: size differs: 4 here, 6 in the target\n",
          "tree/sub/extra: is in the target only\n", "tree/missing: is missing in the target\n",
          "tree/kind: is a file in the target, a directory here\n",
          "tree/only: is in the target only\n", "5 differences"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << result.out;
}

TEST_F(Verify, FileIsComparedWithAFile)
{
    EXPECT_EQ(cio({"verify", "tree/a", uri(), "tree/a"}).code, 0);
    write("tree/a", "sane");
    const Cio_Result result = cio({"verify", "tree/a", uri(), "tree/a"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("content differs at byte 2"), std::string::npos);
    EXPECT_EQ(cio({"verify", "tree/a", uri(), "tree"}).code, 1);
    EXPECT_EQ(cio({"verify", "tree", uri(), "tree/a"}).code, 1);
}

TEST_F(Verify, WhatIsNotThereIsCodeThree)
{
    EXPECT_EQ(cio({"verify", "nope", uri(), "tree"}).code, 3);
    EXPECT_EQ(cio({"verify", "tree", uri(), "nope"}).code, 3);
    EXPECT_EQ(cio({"verify", "tree", uri("no-target"), "tree"}).code, 3);
    EXPECT_FALSE(exists("no-target"));
}

TEST_F(Verify, ChangesNothing)
{
    const auto before = paths_below(at("target"));
    fs::remove(at("target/tree/a"));
    EXPECT_EQ(verify().code, 1);
    EXPECT_FALSE(exists("target/tree/a"));
    EXPECT_EQ(paths_below(at("target")).size(), before.size() - 1);
}
