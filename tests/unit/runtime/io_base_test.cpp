#include "platform/runtime/io_base.h"

#include <gtest/gtest.h>

namespace
{

TEST(IO_Base, OpenModesHaveTheirWords)
{
    EXPECT_STREQ(IO_Base::mode_value_to_name(1), "read");
    EXPECT_STREQ(IO_Base::mode_value_to_name(2), "write");
    EXPECT_STREQ(IO_Base::mode_value_to_name(3), "append");
    EXPECT_STREQ(IO_Base::mode_value_to_name(4), "random write");
}

TEST(IO_Base, FlagsAboveTheLowByteAreNotWorded)
{
    EXPECT_STREQ(IO_Base::mode_value_to_name(0x102), "write");
    EXPECT_STREQ(IO_Base::mode_value_to_name(0xFFFFFF01U), "read");
}

TEST(IO_Base, OtherModesAreUnknown)
{
    for (const unsigned mode : {0U, 5U, 0xFFU, 0x100U, 0xFFFFFFFFU})
        EXPECT_STREQ(IO_Base::mode_value_to_name(mode), "unknown") << mode;
}

} // namespace
