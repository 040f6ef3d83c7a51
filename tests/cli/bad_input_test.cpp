#include "cli/resume.h"

#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

class Bad_Input : public Cli_Test
{};

TEST_F(Bad_Input, MissingSourceIsCodeThreeAndOthersGoOn)
{
    EXPECT_EQ(cio({"put", "nope", uri()}).code, 3);
    write("a", "A");
    const Cio_Result result = cio({"put", "nope", "a", uri()});
    EXPECT_EQ(result.code, 6);
    EXPECT_NE(result.err.find("cio: put: nope: "), std::string::npos);
    EXPECT_EQ(paths_below(at("target")), std::vector<std::string>{"a"});
}

TEST_F(Bad_Input, MissingTargetFileIsCodeThreeAndMakesNothing)
{
    fs::create_directories(at("target"));
    EXPECT_EQ(cio({"get", uri(), "nope", "local"}).code, 3);
    EXPECT_EQ(cio({"get", uri(), "nope", "neither", "local"}).code, 3);
    EXPECT_FALSE(exists("local"));
}

TEST_F(Bad_Input, DirectoryWhereAFileIsExpected)
{
    write("a", "A");
    fs::create_directories(at("target/d/a"));
    EXPECT_EQ(cio({"put", "a", uri(), "d/"}).code, 4);
    EXPECT_EQ(cio({"put", "--overwrite", "a", uri(), "d/"}).code, 1);
    EXPECT_TRUE(fs::is_directory(at("target/d/a")));

    write("target/f", "F");
    fs::create_directories(at("local/f"));
    EXPECT_EQ(cio({"get", "--overwrite", uri(), "f", "local"}).code, 1);
    EXPECT_TRUE(fs::is_directory(at("local/f")));
}

TEST_F(Bad_Input, FileWhereADirectoryIsExpected)
{
    write("tree/sub/a", "A");
    write("target/tree/sub", "a file");
    const Cio_Result result = cio({"put", "--overwrite", "tree", uri()});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(read("target/tree/sub"), "a file");

    write("there/tree/sub/a", "A");
    write("local/tree/sub", "a file");
    EXPECT_EQ(cio({"get", "--overwrite", uri("there"), "tree", "local/"}).code, 1);
    EXPECT_EQ(read("local/tree/sub"), "a file");
    EXPECT_EQ(cio({"get", uri("there"), "tree", "local/tree/sub/"}).code, 1);
    EXPECT_EQ(read("local/tree/sub"), "a file");
}

TEST_F(Bad_Input, TargetThatIsAFileIsAFailure)
{
    write("file", "F");
    write("a", "A");
    EXPECT_EQ(cio({"put", "a", uri("file")}).code, 1);
    EXPECT_EQ(cio({"ls", uri("file")}).code, 1);
    EXPECT_EQ(read("file"), "F");
}

TEST_F(Bad_Input, NamesThatAreTooLongAreToldAndTheRestIsStored)
{
    write("a", "A");
    const Cio_Result result = cio({"put", "a", uri(), std::string(300, 'x')});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("cio: put: a: Fail to open file"), std::string::npos) << result.err;
}
