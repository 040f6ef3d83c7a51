#include "tests/cli/cli_test.h"
#include "tests/support/this_system.h"

namespace fs = std::filesystem;

class Interrupted : public Cli_Test
{
protected:
    // Takes minutes to move, so that no signal comes too late, but no room to keep.
    static constexpr std::uint64_t endless = 256ULL << 30U;

    void make_endless(const std::string& name) const
    {
        write(name, "");
        this_system::resize_with_hole(path(name), endless);
    }
};

TEST_F(Interrupted, WaitingForInputEndsWithThePartialFileNamed)
{
    const std::string data = pattern(4 << 20);
    Cio_Process process({"put", "-", uri(), "in"}, in_here());
    // More than any pipe holds: when it is written, the program has read most of it.
    process.write(data);
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_NE(result.err.find("cio: put: in: interrupted: "), std::string::npos);
    const std::string stored = read("target/in");
    EXPECT_GT(stored.size(), 2U << 20U);
    EXPECT_EQ(stored, data.substr(0, stored.size()));
}

TEST_F(Interrupted, OnePartialFileAtMostStaysInTheTarget)
{
    for (const char* name : {"tree/a", "tree/b", "tree/c", "tree/d"})
        make_endless(name);
    write("tree/whole", "whole");
    Cio_Process process({"put", "--json", "--jobs", "4", "tree", uri()}, in_here());
    ASSERT_TRUE(process.wait_for_output("\"progress\""));
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    const std::size_t named = result.out.find("\"partial\"");
    ASSERT_NE(named, std::string::npos);
    EXPECT_EQ(result.out.find("\"partial\"", named + 1), std::string::npos);
    EXPECT_NE(result.out.find("\"interrupted\":true"), std::string::npos);
    unsigned partial = 0;
    for (const std::string& path : paths_below(at("target/tree"))) {
        if (path == "whole")
            continue;
        ++partial;
        EXPECT_NE(result.out.find("\"path\":\"tree/" + path + "\""), std::string::npos);
    }
    EXPECT_EQ(partial, 1U);
}

TEST_F(Interrupted, RestoringLeavesOnePartialFileAtMost)
{
    for (const char* name : {"target/tree/a", "target/tree/b", "target/tree/c"})
        make_endless(name);
    Cio_Process process({"get", "--json", uri(), "tree", "back/"}, in_here());
    ASSERT_TRUE(process.wait_for_output("\"progress\""));
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(paths_below(at("back/tree")).size(), 1U);
    EXPECT_NE(result.out.find("\"partial\""), std::string::npos);
}

TEST_F(Interrupted, InterruptedFileIsContinued)
{
    make_endless("source");
    {
        Cio_Process process({"put", "--json", "source", uri()}, in_here());
        ASSERT_TRUE(process.wait_for_output("\"progress\""));
        process.ask_to_end();
        EXPECT_EQ(process.wait().code, 130);
    }
    const std::uint64_t first = fs::file_size(at("target/source"));
    EXPECT_GT(first, 0U);
    EXPECT_FALSE(fs::is_empty(at("state/cio")));
    Cio_Process process({"put", "--resume", "--json", "source", uri()}, in_here());
    ASSERT_TRUE(process.wait_for_output("\"progress\""));
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.out.find("starts again"), std::string::npos);
    EXPECT_GT(fs::file_size(at("target/source")), first);
}

TEST_F(Interrupted, ComparingAndListingEndAsWell)
{
    make_endless("source");
    make_endless("target/source");
    Cio_Process process({"verify", "--json", "source", uri(), "source"}, in_here());
    ASSERT_TRUE(process.wait_for_output("\"progress\""));
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.out.find("\"difference\":"), std::string::npos);
}

TEST_F(Interrupted, WritingToSomebodyWhoDoesNotReadEndsAtTheFirstRequest)
{
    make_endless("target/source");
    Cio_Process process({"cat", uri(), "source"}, in_here());
    ASSERT_TRUE(process.read_output((1 << 20) + 5000));
    process.wait_until_output_waits(62'000);
    process.ask_to_end();
    EXPECT_EQ(process.wait_for_end(), 130);
}
