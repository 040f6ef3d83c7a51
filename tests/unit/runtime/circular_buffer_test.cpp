#include "platform/runtime/circular_buffer.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <string_view>

namespace
{

constexpr std::uint64_t two_to_63 = std::uint64_t{1} << 63;

void write(Circular_Buffer& buffer, std::string_view text)
{
    buffer.write(text.data(), text.size());
}

/// What read() answers at one position.
struct Answer
{
    Answer(const Circular_Buffer& buffer, std::uint64_t position)
    {
        const void* ptr = this; // to see that it is set
        succeeded = buffer.read(ptr, length, position);
        null = ptr == nullptr;
        if (!null && length > 0)
            bytes.assign(static_cast<const char*>(ptr), static_cast<std::size_t>(length));
    }

    bool succeeded = false;
    std::int64_t length = 42;
    bool null = false;
    std::string bytes;
};

void expect_bytes(const Circular_Buffer& buffer, std::uint64_t position, std::string_view bytes)
{
    const Answer answer(buffer, position);
    EXPECT_TRUE(answer.succeeded);
    EXPECT_EQ(answer.bytes, bytes);
    EXPECT_EQ(answer.length, static_cast<std::int64_t>(bytes.size()));
}

void expect_none(const Circular_Buffer& buffer, std::uint64_t position, std::int64_t length)
{
    const Answer answer(buffer, position);
    EXPECT_TRUE(answer.succeeded) << position;
    EXPECT_EQ(answer.length, length) << position;
    EXPECT_TRUE(answer.null) << position;
}

void expect_failure(const Circular_Buffer& buffer, std::uint64_t position)
{
    const Answer answer(buffer, position);
    EXPECT_FALSE(answer.succeeded) << position;
    EXPECT_EQ(answer.length, 0) << position;
    EXPECT_TRUE(answer.null) << position;
}

/// Everything from @p position on, piece by piece; sets @p pieces to their number.
std::string rest(const Circular_Buffer& buffer, std::uint64_t position, int& pieces)
{
    std::string all;
    for (pieces = 0; position < buffer.end(); ++pieces) {
        const Answer answer(buffer, position);
        if (!answer.succeeded || answer.length < 1 || answer.null)
            return all + " and then nothing";
        all += answer.bytes;
        position += answer.bytes.size();
    }
    return all;
}

TEST(Circular_Buffer, BeginsEmptyAtItsStart)
{
    const Circular_Buffer buffer(7, 100);
    EXPECT_EQ(buffer.start(), 100);
    EXPECT_EQ(buffer.end(), 100);
    expect_failure(buffer, 0);
    expect_failure(buffer, 99);
    expect_none(buffer, 100, 0);
    expect_none(buffer, 101, -1);
}

TEST(Circular_Buffer, KeepsWhatFitsAndThenDropsTheOldest)
{
    Circular_Buffer buffer(7, 0);
    write(buffer, "abcdefg");
    EXPECT_EQ(buffer.start(), 0);
    expect_bytes(buffer, 0, "abcdefg");
    expect_bytes(buffer, 6, "g");
    write(buffer, "hi");
    EXPECT_EQ(buffer.start(), 2);
    EXPECT_EQ(buffer.end(), 9);
    expect_failure(buffer, 1);
    expect_bytes(buffer, 2, "cdefg");
    expect_bytes(buffer, 7, "hi");
    expect_none(buffer, 9, 0);
    expect_none(buffer, 12, -3);
}

TEST(Circular_Buffer, WriteBeyondTheCapacityKeepsItsLastBytes)
{
    Circular_Buffer buffer(7, 3);
    write(buffer, "xyz");
    write(buffer, "abcdefghijklmnopqrstuvw");
    EXPECT_EQ(buffer.start(), 22);
    EXPECT_EQ(buffer.end(), 29);
    int pieces = 0;
    EXPECT_EQ(rest(buffer, 22, pieces), "qrstuvw");
    EXPECT_EQ(pieces, 2);
}

TEST(Circular_Buffer, WriteOfNothingChangesNothing)
{
    Circular_Buffer buffer(7, 14);
    buffer.write(nullptr, 0);
    EXPECT_EQ(buffer.end(), 14);
    write(buffer, "abc");
    buffer.write(nullptr, 0);
    EXPECT_EQ(buffer.start(), 14);
    EXPECT_EQ(buffer.end(), 17);
    expect_bytes(buffer, 14, "abc");
}

TEST(Circular_Buffer, ResetForgetsEverythingAndMoves)
{
    Circular_Buffer buffer(7, 0);
    write(buffer, "abcdefghi");
    buffer.reset(4);
    EXPECT_EQ(buffer.start(), 4);
    EXPECT_EQ(buffer.end(), 4);
    expect_failure(buffer, 3);
    expect_none(buffer, 4, 0);
    expect_none(buffer, 9, -5);
    write(buffer, "12");
    expect_bytes(buffer, 4, "12");
    expect_failure(buffer, 3);
}

TEST(Circular_Buffer, WithoutCapacityOnlyCounts)
{
    Circular_Buffer buffer(0, 10);
    expect_none(buffer, 10, 0);
    write(buffer, "abc");
    EXPECT_EQ(buffer.start(), 13);
    EXPECT_EQ(buffer.end(), 13);
    expect_failure(buffer, 12);
    expect_none(buffer, 13, 0);
    expect_none(buffer, 14, -1);
    buffer.reset(2);
    expect_failure(buffer, 1);
    expect_none(buffer, 2, 0);
}

TEST(Circular_Buffer, OffsetsAreSixtyFourBitsWide)
{
    for (const std::uint64_t begin : {two_to_63 - 5, two_to_63 - 1, two_to_63, two_to_63 + 11}) {
        SCOPED_TRACE(begin);
        Circular_Buffer buffer(7, begin);
        write(buffer, "abcdefghij");
        EXPECT_EQ(buffer.start(), begin + 3);
        EXPECT_EQ(buffer.end(), begin + 10);
        int pieces = 0;
        EXPECT_EQ(rest(buffer, begin + 3, pieces), "defghij");
        EXPECT_LE(pieces, 2);
        expect_failure(buffer, begin + 2);
        expect_failure(buffer, 0);
        expect_none(buffer, begin + 10, 0);
        expect_none(buffer, begin + 13, -3);
    }
}

TEST(Circular_Buffer, PositionFarBeyondTheEndIsNeverData)
{
    constexpr std::int64_t furthest = std::numeric_limits<std::int64_t>::max();
    Circular_Buffer buffer(7, 0);
    write(buffer, "abc");
    expect_none(buffer, two_to_63 + 2, -furthest);
    expect_none(buffer, two_to_63 + 3, -furthest);
    expect_none(buffer, two_to_63 + 4, -furthest);
    expect_none(buffer, std::numeric_limits<std::uint64_t>::max(), -furthest);
}

TEST(Circular_Buffer, CapacityThatNoMemoryHoldsIsRefusedAtConstruction)
{
    EXPECT_THROW(Circular_Buffer(std::numeric_limits<std::uint64_t>::max(), 0), std::bad_alloc);
    EXPECT_THROW(Circular_Buffer(two_to_63, 0), std::bad_alloc);
}

TEST(Circular_Buffer, RandomWritesReadBackAtEveryPosition)
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const auto seed = given != nullptr
                          ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                          : std::random_device()();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    std::mt19937_64 random(seed);
    const auto below = [&](std::uint64_t bound) { return random() % bound; };
    constexpr std::array<std::uint64_t, 6> capacities = {0, 1, 2, 7, 64, 4096};
    constexpr std::array<std::uint64_t, 4> starts = {0, 1, 12345, two_to_63 - 100};
    for (const std::uint64_t capacity : capacities) {
        SCOPED_TRACE("capacity " + std::to_string(capacity));
        std::uint64_t first = starts[below(starts.size())];
        Circular_Buffer buffer(capacity, first);
        std::string model; // everything written since first
        for (int step = 0; step < 200; ++step) {
            if (below(30) == 0) {
                first = starts[below(starts.size())] + below(10);
                buffer.reset(first);
                model.clear();
            } else {
                // Often about as much as fits, seldom several times that.
                const std::uint64_t size = below(below(10) == 0 ? 3 * capacity + 5 : capacity + 3);
                std::string data(size, '\0');
                for (char& byte : data)
                    byte = static_cast<char>(random());
                write(buffer, data);
                model += data;
            }
            const std::uint64_t end = first + model.size();
            const std::uint64_t start = end - std::min<std::uint64_t>(model.size(), capacity);
            ASSERT_EQ(buffer.start(), start);
            ASSERT_EQ(buffer.end(), end);
            const std::uint64_t stride = capacity < 100 ? 1 : 1 + below(50);
            for (std::uint64_t position = start; position < end; position += stride) {
                int pieces = 0;
                ASSERT_TRUE(rest(buffer, position, pieces) == model.substr(position - first));
                ASSERT_LE(pieces, 2) << "the ring has one seam";
            }
            for (std::uint64_t beyond = 0; beyond < 3; ++beyond)
                expect_none(buffer, end + beyond, -static_cast<std::int64_t>(beyond));
            if (start > 0)
                expect_failure(buffer, start - 1);
            if (first > 0)
                expect_failure(buffer, first - 1);
            ASSERT_FALSE(HasFailure());
        }
    }
}

} // namespace
