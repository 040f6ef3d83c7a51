#include "platform/runtime/posix_error.h"

#include "platform/runtime/os_error.h"

#include <ace/OS_NS_errno.h>

#include <gtest/gtest.h>

namespace
{

TEST(POSIX_Error, TheNumberFollowsUnlessTheTextAloneIsAsked)
{
    const std::string text = POSIX_Error(os_error::no_such_file, 1).str();
    EXPECT_EQ(text, os_error::text(os_error::no_such_file));
    EXPECT_EQ(POSIX_Error(2).str(), text + " (errno 2)");
    EXPECT_EQ(POSIX_Error(2, 0).str(), text + " (errno 2)");
}

TEST(POSIX_Error, UnknownNumbersStillHaveAText)
{
    for (const int number : {-1, 99999, 0x7FFFFFFF, -0x7FFFFFFF}) {
        const std::string text = POSIX_Error(number, 1).str();
        EXPECT_EQ(text, "Unknown error " + std::to_string(number));
    }
}

TEST(POSIX_Error, TheSystemErrorNumberStays)
{
    ACE_OS::last_error(os_error::busy);
    const POSIX_Error known(os_error::no_such_file);
    EXPECT_EQ(ACE_OS::last_error(), os_error::busy);
    const POSIX_Error unknown(99999);
    EXPECT_EQ(ACE_OS::last_error(), os_error::busy);
}

TEST(OS_Error, KindsOfFailuresAreToldByTheirNumbers)
{
    using namespace os_error;
    EXPECT_TRUE(is_missing(no_such_file) && is_missing(no_such_directory));
    EXPECT_FALSE(is_missing(0) || is_missing(access_denied) || is_missing(not_a_directory));
    EXPECT_TRUE(is_taken(file_exists) && is_taken(already_exists));
    EXPECT_FALSE(is_taken(0) || is_taken(no_such_file) || is_taken(busy));
    EXPECT_TRUE(is_reader_gone(broken_pipe) && is_reader_gone(pipe_closing));
    EXPECT_FALSE(is_reader_gone(0) || is_reader_gone(bad_handle) || is_reader_gone(write_fault));
}

} // namespace
