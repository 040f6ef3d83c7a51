#include "tests/cli/json_test.h"

TEST_F(Json, SummaryIsTheLastLineAndTellsTheVersion)
{
    write("tree/a", "12345");
    write("tree/b", "67");
    const Cio_Result result = cio({"put", "--json", "tree", uri()});
    EXPECT_EQ(result.err, "");
    const auto objects = lines(result.out);
    ASSERT_FALSE(objects.empty());
    const json_spirit::Value& summary = objects.back();
    EXPECT_EQ(summary["type"], "summary");
    EXPECT_EQ(summary["version"], 1);
    EXPECT_EQ(summary["command"], "put");
    EXPECT_EQ(summary["files"], 2);
    EXPECT_EQ(summary["bytes"], 7);
    EXPECT_EQ(summary["failed"], 0);
    EXPECT_EQ(summary["skipped"], 0);
    EXPECT_EQ(summary["interrupted"], false);
    EXPECT_EQ(summary["exit_code"], 0);
    EXPECT_TRUE(summary["seconds"].is_number());
}

TEST_F(Json, ErrorsNamePathTextAndCode)
{
    const Cio_Result result = cio({"get", "--json", uri(), "nope", "x"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.err, "");
    write("target/a", "");
    const auto errors = of_type(cio({"get", "--json", uri(), "nope", "x"}).out, "error");
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0]["path"], "nope");
    EXPECT_EQ(errors[0]["exit_code"], 3);
    EXPECT_FALSE(errors[0]["text"].get<std::string>().empty());
}

TEST_F(Json, EntriesOfEveryListingCommand)
{
    write("target/d/file", "1234");
    const auto listed = of_type(cio({"ls", "--json", uri(), "d"}).out, "entry");
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0]["path"], "file");
    EXPECT_EQ(listed[0]["kind"], "file");
    EXPECT_EQ(listed[0]["size"], 4);
    EXPECT_EQ(listed[0]["mtime"].get<std::string>().size(), 20U);
    const auto tree = of_type(cio({"tree", "--json", uri()}).out, "entry");
    ASSERT_EQ(tree.size(), 2U);
    EXPECT_EQ(tree[0]["kind"], "directory");
    EXPECT_EQ(tree[1]["path"], "d/file");
    const auto stat = of_type(cio({"stat", "--json", uri(), "d/file"}).out, "entry");
    ASSERT_EQ(stat.size(), 1U);
    EXPECT_EQ(stat[0]["size"], 4);
    const auto usage = of_type(cio({"du", "--json", "-s", uri()}).out, "entry");
    ASSERT_EQ(usage.size(), 1U);
    EXPECT_EQ(usage[0]["files"], 1);
    EXPECT_EQ(usage[0]["size"], 4);
}

TEST_F(Json, DifferencesTellKindAndPlace)
{
    write("tree/a", "same");
    write("target/tree/a", "sand");
    write("target/tree/b", "");
    const Cio_Result result = cio({"verify", "--json", "tree", uri(), "tree"});
    EXPECT_EQ(result.code, 1);
    const auto differences = of_type(result.out, "difference");
    ASSERT_EQ(differences.size(), 2U);
    for (const json_spirit::Value& difference : differences) {
        if (difference["path"] == "tree/a") {
            EXPECT_EQ(difference["difference"], "content");
            EXPECT_EQ(difference["offset"], 2);
        } else {
            EXPECT_EQ(difference["path"], "tree/b");
            EXPECT_EQ(difference["difference"], "extra");
        }
    }
    EXPECT_EQ(lines(result.out).back()["differences"], 2);
}

TEST_F(Json, CatKeepsStandardOutputForTheData)
{
    write("target/a", "data");
    const Cio_Result result = cio({"cat", "--json", uri(), "a"});
    EXPECT_EQ(result.out, "data");
    ASSERT_EQ(lines(result.err).size(), 1U);
    EXPECT_EQ(lines(result.err)[0]["type"], "summary");
}

TEST_F(Json, ADifferenceOfTheRootHasAPathToo)
{
    write("file", "F");
    write("target/a", "A");
    const auto found = of_type(cio({"verify", "--json", "file", uri(), ""}).out, "difference");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].at("path"), "");
}
