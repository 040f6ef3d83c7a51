#include "cli/reporter.h"

#include "platform/runtime/os_error.h"
#include "tests/cli/test_pipe.h"

#include <gtest/gtest.h>

using cio::Output;
using cio::Reporter;

TEST(Reporter, ExitCodeFollowsFromWhatHappened)
{
    const Test_Pipe pipe;
    Output out(pipe.write_end());
    const auto code = [&](const std::vector<cio::Exit_Code>& failures, unsigned done,
                          unsigned differences, bool interrupted) {
        Reporter report({"verify", true, false, true}, out, out);
        for (const cio::Exit_Code failure : failures)
            report.error("", {failure, "text"});
        for (unsigned i = 0; i < done; ++i)
            report.item_done(true);
        for (unsigned i = 0; i < differences; ++i)
            report.difference("", "size", "");
        return report.finish(interrupted);
    };
    EXPECT_EQ(code({}, 0, 0, false), 0);
    EXPECT_EQ(code({}, 3, 0, false), 0);
    EXPECT_EQ(code({cio::exit_not_found}, 0, 0, false), 3);
    EXPECT_EQ(code({cio::exit_exists, cio::exit_exists}, 0, 0, false), 4);
    EXPECT_EQ(code({cio::exit_retriable}, 0, 0, false), 5);
    EXPECT_EQ(code({cio::exit_not_found, cio::exit_exists}, 0, 0, false), 1);
    EXPECT_EQ(code({cio::exit_not_found, cio::exit_exists, cio::exit_exists}, 0, 0, false), 1);
    EXPECT_EQ(code({cio::exit_not_found}, 1, 0, false), 6);
    EXPECT_EQ(code({}, 5, 1, false), 1);
    EXPECT_EQ(code({cio::exit_failed}, 5, 1, true), 130);
}

TEST(Failures, NumbersBecomeExitCodes)
{
    EXPECT_EQ(cio::exit_code_of(os_error::no_such_file, false), 3);
    EXPECT_EQ(cio::exit_code_of(os_error::file_exists, false), 4);
    EXPECT_EQ(cio::exit_code_of(os_error::access_denied, false), 1);
    EXPECT_EQ(cio::exit_code_of(0, false), 1);
    EXPECT_EQ(cio::exit_code_of(os_error::broken_pipe, true), 5);
    EXPECT_EQ(cio::exit_code_of(os_error::no_such_file, true), 5);
}
