#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace
{

TEST(POSIX_Error, TextAloneIsTheTextOfTheSystem)
{
    EXPECT_EQ(POSIX_Error(ENOENT, 1).str(), "No such file or directory");
    EXPECT_STREQ(POSIX_Error(EACCES, 1).c_str(), "Permission denied");
    EXPECT_EQ(POSIX_Error(ENOENT).str(), "No such file or directory (errno 2)");
}

} // namespace
