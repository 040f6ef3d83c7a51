#include "servers/common/connection_count.h"

#include <gtest/gtest.h>

using Verdict = Connection_Count::Verdict;

TEST(Connection_Count, OneBeyondTheLimitIsRefusedUntilAnotherLeaves)
{
    Server_Limits limits;
    limits.connections = 2;
    Connection_Count count(limits);
    EXPECT_TRUE(count.is_empty());
    EXPECT_EQ(count.enter("a"), Verdict::welcome);
    EXPECT_EQ(count.enter("b"), Verdict::welcome);
    EXPECT_EQ(count.enter("c"), Verdict::refused);
    count.leave("c");
    count.leave("a");
    EXPECT_EQ(count.enter("c"), Verdict::welcome);
    count.leave("b");
    count.leave("c");
    EXPECT_TRUE(count.is_empty());
}

TEST(Connection_Count, AddressesAreCountedApart)
{
    Server_Limits limits;
    limits.connections_per_address = 1;
    Connection_Count count(limits);
    EXPECT_EQ(count.enter("a"), Verdict::welcome);
    EXPECT_EQ(count.enter("a"), Verdict::refused);
    EXPECT_EQ(count.enter("b"), Verdict::welcome);
}

TEST(Connection_Count, FarBeyondTheLimitNothingIsSpentOnRefusing)
{
    Server_Limits limits;
    limits.connections = 1;
    Connection_Count count(limits);
    EXPECT_EQ(count.enter("a"), Verdict::welcome);
    int refused = 0;
    while (count.enter("b") == Verdict::refused)
        ++refused;
    EXPECT_EQ(refused, 64);
    count.leave("b");
    EXPECT_EQ(count.enter("b"), Verdict::refused);
}

TEST(Connection_Count, NoughtIsNoLimit)
{
    Server_Limits limits;
    limits.connections = 0;
    Connection_Count count(limits);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(count.enter("a"), Verdict::welcome);
}
