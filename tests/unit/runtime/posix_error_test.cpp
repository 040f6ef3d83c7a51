#include "platform/runtime/posix_error.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace
{

TEST(POSIX_Error, TextAloneIsTheTextOfTheSystem)
{
    EXPECT_EQ(POSIX_Error(ENOENT, 1).str(), "No such file or directory");
    EXPECT_STREQ(POSIX_Error(EACCES, 1).c_str(), "Permission denied");
}

TEST(POSIX_Error, TheNumberFollowsUnlessTheTextAloneIsAsked)
{
    EXPECT_EQ(POSIX_Error(ENOENT).str(), "No such file or directory (errno 2)");
    EXPECT_EQ(POSIX_Error(ENOENT, 0).str(), "No such file or directory (errno 2)");
}

TEST(POSIX_Error, UnknownNumbersStillHaveAText)
{
    for (const int number : {-1, 99999, 0x7FFFFFFF, -0x7FFFFFFF}) {
        const std::string text = POSIX_Error(number, 1).str();
        EXPECT_NE(text.find(std::to_string(number)), std::string::npos) << text;
    }
}

TEST(POSIX_Error, TheSystemErrorNumberStays)
{
    errno = EBUSY;
    const POSIX_Error known(ENOENT);
    EXPECT_EQ(errno, EBUSY);
    const POSIX_Error unknown(99999);
    EXPECT_EQ(errno, EBUSY);
}

} // namespace
