#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

/// What others may read is a matter of permission bits here, and root has to give its power away.
class Permissions : public Cli_Test
{};

TEST_F(Permissions, UnreadableSourceCostsNothingThatIsThere)
{
    write("a", "unreadable");
    write("target/a", "stays");
    fs::permissions(at("a"), fs::perms::none);
    Cio_Settings settings;
    settings.powerless = true;
    const Cio_Result result = cio({"put", "--overwrite", "a", uri()}, settings);
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("Permission denied"), std::string::npos);
    EXPECT_EQ(read("target/a"), "stays");
}

TEST_F(Permissions, UnreadableDirectoryIsToldAndTheRestIsStored)
{
    write("tree/a", "A");
    write("tree/closed/b", "B");
    fs::permissions(at("tree/closed"), fs::perms::none);
    Cio_Settings settings;
    settings.powerless = true;
    const Cio_Result result = cio({"put", "tree", uri()}, settings);
    fs::permissions(at("tree/closed"), fs::perms::owner_all);
    EXPECT_EQ(result.code, 6);
    EXPECT_NE(result.err.find("tree/closed: "), std::string::npos);
    EXPECT_EQ(paths_below(at("target/tree")), std::vector<std::string>{"a"});
}
