#include "platform/runtime/unexpected.h"

#include "tests/support/log_capture.h"

#include <ace/Log_Priority.h>
#include <ace/OS_NS_errno.h>
#include <cerrno>
#include <gtest/gtest.h>

namespace
{

TEST(Log_Unexpected, NamesTheCallersPlaceAtEmergencyPriority)
{
    Log_Capture log;
    const int line = __LINE__ + 1;
    log_unexpected("Unexpected error in %N:%l, buff is NULL:\n%?\n");
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].priority, static_cast<unsigned long>(LM_EMERGENCY));
    const std::string expected = "Unexpected error in backup/tests/unit/runtime/"
                                 "unexpected_test.cpp:" +
                                 std::to_string(line) + ", buff is NULL:\n";
    EXPECT_EQ(log.messages()[0].text.substr(0, expected.size()), expected);
}

TEST(Log_Unexpected, PlaceMayBeGiven)
{
    Log_Capture log;
    log_unexpected("in %N:%l", "backup/a.cpp", 17);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "in backup/a.cpp:17");
}

TEST(Log_Unexpected, ValuesFillTheSlots)
{
    Log_Capture log;
    log_unexpected_values("in %N:%l, size_%s <= 0%s:\n", "=-5", "", "backup/b.cpp", 3);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].priority, static_cast<unsigned long>(LM_EMERGENCY));
    EXPECT_EQ(log.messages()[0].text, "in backup/b.cpp:3, size_=-5 <= 0:\n");
}

TEST(Log_Unexpected, ARemainderInAnExpressionIsNoDirective)
{
    Log_Capture log;
    log_unexpected_values("((a + b) % c())%s != 0%s, d % e", "=3", "", "backup/b.cpp", 3);
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "((a + b) % c())=3 != 0, d % e");
}

TEST(Log_Unexpected, DirectivesInValuesAreNotFollowed)
{
    Log_Capture log;
    log_unexpected_values("%s|%s", "%n%s%p", "%d");
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "%n%s%p|%d");
}

TEST(Log_Unexpected, TheSystemErrorNumberStays)
{
    Log_Capture log;
    ACE_OS::last_error(EBUSY);
    log_unexpected("in %N:%l:\n%?\n");
    EXPECT_EQ(ACE_OS::last_error(), EBUSY);
    log_unexpected_values("%s%s", "a", "b");
    EXPECT_EQ(ACE_OS::last_error(), EBUSY);
    EXPECT_EQ(log.messages().size(), 2U);
}

} // namespace
