#include <gtest/gtest.h>

#include "platform/lzop/lzop.h"

namespace
{

TEST(Lzop_Unavailable, InitSaysSoAndNothingElseWorks)
{
    Lzop_Stream stream;
    EXPECT_FALSE(lzop_available());
    EXPECT_EQ(lzop_compress_init(stream, 3, 0), LZOP_E_UNAVAILABLE);
    EXPECT_EQ(lzop_compress(stream, true), LZOP_E_STATE);
    EXPECT_EQ(lzop_decompress_init(stream), LZOP_E_UNAVAILABLE);
    EXPECT_EQ(lzop_decompress(stream, true), LZOP_E_STATE);
    EXPECT_EQ(stream.state, nullptr);
    lzop_end(stream);
    EXPECT_NE(std::string(lzop_result_text(LZOP_E_UNAVAILABLE)).find("not available"),
              std::string::npos);
}

} // namespace
