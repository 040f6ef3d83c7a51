#include "platform/json/json_value.h"
#include "platform/runtime/base64.h"
#include "tests/cli/cli_test.h"

#include <sstream>

class Json : public Cli_Test
{
protected:
    /// Every line, which has to be an object with a type.
    static std::vector<json_spirit::Value> lines(const std::string& text)
    {
        std::vector<json_spirit::Value> objects;
        std::istringstream stream(text);
        std::string line;
        std::string error;
        while (std::getline(stream, line)) {
            json_spirit::Value value;
            EXPECT_TRUE(loads_json(line, value, &error)) << line << ": " << error;
            EXPECT_TRUE(value.is_object() && value.contains("type")) << line;
            objects.push_back(value);
        }
        EXPECT_TRUE(text.empty() || text.back() == '\n');
        return objects;
    }
    static std::vector<json_spirit::Value> of_type(const std::string& text, const char* type)
    {
        std::vector<json_spirit::Value> found;
        for (const json_spirit::Value& object : lines(text))
            if (object["type"] == type)
                found.push_back(object);
        return found;
    }
};

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

TEST_F(Json, NamesThatAreNotUtf8HaveTheirBytesBeside)
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

TEST_F(Json, NamesWithNewlinesStayOnOneLine)
{
    write("target/a\nb\"c", "");
    const auto entries = of_type(cio({"ls", "--json", uri()}).out, "entry");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0]["path"], "a\nb\"c");
    EXPECT_FALSE(entries[0].contains("path_base64"));
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

TEST_F(Json, SkippedThingsAreWarnings)
{
    write("tree/a", "");
    std::filesystem::create_symlink("nowhere", at("tree/link"));
    const Cio_Result result = cio({"put", "--json", "tree", uri()});
    EXPECT_EQ(result.err, "");
    const auto warnings = of_type(result.out, "warning");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0]["path"], "tree/link");
    EXPECT_EQ(lines(result.out).back()["skipped"], 1);
}

TEST_F(Json, ADifferenceOfTheRootHasAPathToo)
{
    write("file", "F");
    write("target/a", "A");
    const auto found = of_type(cio({"verify", "--json", "file", uri(), ""}).out, "difference");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].at("path"), "");
}
