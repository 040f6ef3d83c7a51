#include "platform/runtime/copy_past_cache.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace
{

std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

} // namespace

TEST(Copy_Past_Cache, CopiesEveryLengthFromAndToEveryAlignmentAndNothingElse)
{
    const std::string source = pattern(9000);
    for (const std::size_t size : {0, 1, 63, 64, 4095, 4096, 4097, 4159, 4160, 4161, 8191, 8192})
        for (std::size_t from = 0; from < 65; from += 13)
            for (std::size_t to = 0; to < 65; ++to) {
                std::string target(size + to + 64, '#');
                copy_past_cache(target.data() + to, source.data() + from, size);
                std::string expected(size + to + 64, '#');
                std::memcpy(expected.data() + to, source.data() + from, size);
                ASSERT_EQ(target, expected) << size << " bytes from " << from << " to " << to;
            }
}
