#include "platform/runtime/compression_method.h"

#include <gtest/gtest.h>

namespace
{

TEST(Compression_Method, NamesHaveTheirNumbers)
{
    EXPECT_EQ(compression_name_to_value("", -1), 0);
    EXPECT_EQ(compression_name_to_value("none", -1), 0);
    EXPECT_EQ(compression_name_to_value("auto", -1), 1);
    EXPECT_EQ(compression_name_to_value("lzop", -1), 2);
    EXPECT_EQ(compression_name_to_value("zstd", -1), 3);
}

TEST(Compression_Method, CaseOfNamesDoesNotMatter)
{
    EXPECT_EQ(compression_name_to_value("NONE", -1), 0);
    EXPECT_EQ(compression_name_to_value("Lzop", -1), 2);
    EXPECT_EQ(compression_name_to_value("ZSTD", -1), 3);
}

TEST(Compression_Method, UnknownNamesGiveTheDefault)
{
    for (const char* name : {"gzip", "zst", "zstd ", " zstd", "zstd1", "0", "lzo"}) {
        EXPECT_EQ(compression_name_to_value(name, -1), -1) << name;
        EXPECT_EQ(compression_name_to_value(name, 7), 7) << name;
    }
    EXPECT_EQ(compression_name_to_value(nullptr, 9), 9);
}

TEST(Compression_Method, NumbersHaveTheirNames)
{
    EXPECT_STREQ(compression_value_to_name(COMPRESSION_NONE), "none");
    EXPECT_STREQ(compression_value_to_name(COMPRESSION_AUTO), "auto");
    EXPECT_STREQ(compression_value_to_name(COMPRESSION_LZOP), "lzop");
    EXPECT_STREQ(compression_value_to_name(COMPRESSION_ZSTD), "zstd");
}

TEST(Compression_Method, NumbersWithoutNameGiveNull)
{
    EXPECT_EQ(compression_value_to_name(static_cast<Compression_Method>(4)), nullptr);
    EXPECT_EQ(compression_value_to_name(static_cast<Compression_Method>(-1)), nullptr);
}

TEST(Compression_Method, SuffixesTellTheMethod)
{
    EXPECT_EQ(compression_suffix_to_value(".lzo", 0), 2);
    EXPECT_EQ(compression_suffix_to_value(".zst", 0), 3);
    EXPECT_EQ(compression_suffix_to_value(".zstd", 0), 3);
    EXPECT_EQ(compression_suffix_to_value(".LZO", 0), 2);
    EXPECT_EQ(compression_suffix_to_value(".Zst", 0), 3);
}

TEST(Compression_Method, OtherSuffixesGiveTheDefault)
{
    for (const char* suffix : {"", ".", "lzo", "zst", ".gz", ".lzop", ".zst ", "x.zst"})
        EXPECT_EQ(compression_suffix_to_value(suffix, 5), 5) << suffix;
    EXPECT_EQ(compression_suffix_to_value(nullptr, 5), 5);
}

} // namespace
