#include "servers/common/entity_tags.h"

#include <gtest/gtest.h>

TEST(Entity_Tags, AListNamesItsTags)
{
    EXPECT_TRUE(names_entity_tag("\"a\"", "\"a\"", false));
    EXPECT_TRUE(names_entity_tag("\"b\", \"a\"", "\"a\"", false));
    EXPECT_TRUE(names_entity_tag("\"b\",\"a\",", "\"a\"", false));
    EXPECT_TRUE(names_entity_tag("\"x, y\" , \"a\"", "\"a\"", false));
    EXPECT_TRUE(names_entity_tag("*", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("\"b\"", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("\"x, \"a\"\"", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("a", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("\"a", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("**", "\"a\"", false));
}

TEST(Entity_Tags, WeakTagsCountWhereTheyMay)
{
    EXPECT_TRUE(names_entity_tag("W/\"a\"", "\"a\"", true));
    EXPECT_FALSE(names_entity_tag("W/\"a\"", "\"a\"", false));
    EXPECT_TRUE(names_entity_tag("W/\"a\", \"a\"", "\"a\"", false));
    EXPECT_FALSE(names_entity_tag("W/", "\"a\"", true));
}
