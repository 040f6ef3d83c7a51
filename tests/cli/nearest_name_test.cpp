#include "cli/nearest_name.h"

#include <gtest/gtest.h>
#include <string>

TEST(Nearest_Name, FewestEditsWin)
{
    const std::vector<std::string_view> names{"overwrite", "compression", "key", "iv"};
    EXPECT_EQ(cio::nearest_name("overwite", names), "overwrite");
    EXPECT_EQ(cio::nearest_name("ovrewrite", names), "overwrite");
    EXPECT_EQ(cio::nearest_name("COMPRESION", names), "compression");
    EXPECT_EQ(cio::nearest_name("vi", names), "iv");
    EXPECT_EQ(cio::nearest_name("kez", names), "key");
}

TEST(Nearest_Name, AnyInputHasAnAnswerUnlessThereAreNoNames)
{
    EXPECT_EQ(cio::nearest_name("x", {}), "");
    EXPECT_EQ(cio::nearest_name("", {"ab", "c"}), "c");
    EXPECT_FALSE(cio::nearest_name(std::string(1'000'000, 'x'), {"ab", "c"}).empty());
}
