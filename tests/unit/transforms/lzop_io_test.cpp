#include "client_io/lzop_io.h"

#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <ace/Log_Priority.h>
#include <gtest/gtest.h>

namespace
{

constexpr unsigned mode_write = Client_IO_Base::mode_write;
constexpr char magic[] = "\x89\x4c\x5a\x4f\x00\x0d\x0a\x1a\x0a"; // of every member

const Kind& lzop_kind()
{
    return main_kinds().at(1);
}

Kind lzop_of_level(std::int32_t level)
{
    return {"", [level](auto io) { return std::make_unique<Lzop_IO>(std::move(io), level); }};
}

class Lzop : public testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(lzop_available()); }

    void expect_failure(const std::string& stored, Lzop_Result result)
    {
        for (const Form form : {Form::copying, Form::zero_copy})
            for (const std::size_t cut : {0U, 1U, 4096U}) {
                const Decoded read = decoded(lzop_kind(), stored, form, cut);
                EXPECT_TRUE(read.failed) << cut;
                EXPECT_EQ(read.error, "Failed to decompress: " + std::to_string(result)) << cut;
                EXPECT_FALSE(read.retriable);
            }
    }

    static std::size_t members(const std::string& stored)
    {
        std::size_t count = 0;
        for (std::size_t at = stored.find(magic, 0, 9); at != std::string::npos;
             at = stored.find(magic, at + 1, 9))
            ++count;
        return count;
    }

    Log_Capture log_;
};

TEST_F(Lzop, ConstructionIsNotedInTheLog)
{
    const Lzop_IO io(nullptr, 7);
    ASSERT_EQ(log_.messages().size(), 1U);
    EXPECT_EQ(log_.messages()[0].priority, static_cast<unsigned long>(LM_TRACE));
    EXPECT_EQ(log_.messages()[0].text, "lzop io with level 7\n");
}

TEST_F(Lzop, LevelsAreThoseOfTheToolAndBeyondThemTheNearestOne)
{
    const std::string plain = sample_text(600000);
    for (std::int32_t level = 1; level <= 9; ++level)
        EXPECT_EQ(decoded(lzop_kind(), encoded(lzop_of_level(level), plain), Form::copying), plain)
            << level;
    EXPECT_EQ(encoded(lzop_of_level(0), plain), encoded(lzop_of_level(3), plain));
    EXPECT_EQ(encoded(lzop_of_level(-7), plain), encoded(lzop_of_level(1), plain));
    EXPECT_EQ(encoded(lzop_of_level(259), plain), encoded(lzop_of_level(9), plain));
    EXPECT_GT(encoded(lzop_of_level(1), plain).size(), encoded(lzop_of_level(9), plain).size());
}

TEST_F(Lzop, TheSameContentsAreStoredAsTheSameBytes)
{
    const std::string plain = sample_text(600000);
    EXPECT_EQ(encoded(lzop_kind(), plain), encoded(lzop_kind(), plain));
}

TEST_F(Lzop, AFlushEndsAMemberAndOnlyWhatFollowsBeginsAnother)
{
    Stacked stacked(lzop_kind());
    Codec_IO& io = *stacked.io;
    ASSERT_TRUE(io.open("a", mode_write, 0, 0));
    ASSERT_TRUE(io.write("abc", 3));
    ASSERT_TRUE(io.flush());
    EXPECT_EQ(stacked.store->data, encoded(lzop_kind(), "abc"));
    ASSERT_TRUE(io.flush());
    EXPECT_EQ(stacked.store->data, encoded(lzop_kind(), "abc"));
    ASSERT_TRUE(io.write("def", 3));
    ASSERT_TRUE(io.flush());
    ASSERT_TRUE(io.close());
    EXPECT_EQ(stacked.store->data, encoded(lzop_kind(), "abc") + encoded(lzop_kind(), "def"));
    EXPECT_EQ(members(stacked.store->data), 2U);
    EXPECT_EQ(decoded(lzop_kind(), stacked.store->data, Form::zero_copy, 1), "abcdef");
}

TEST_F(Lzop, AFileOfNothingIsOneEmptyMember)
{
    EXPECT_EQ(members(encoded(lzop_kind(), "")), 1U);
    Stacked stacked(lzop_kind());
    ASSERT_TRUE(stacked.io->open("a", mode_write, 0, 0));
    ASSERT_TRUE(stacked.io->flush());
    ASSERT_TRUE(stacked.io->close());
    EXPECT_EQ(stacked.store->data, encoded(lzop_kind(), ""));
}

TEST_F(Lzop, IncompressibleContentsHardlyGrow)
{
    const std::string plain = sample_bytes(1000000);
    const std::string stored = encoded(lzop_kind(), plain);
    EXPECT_LT(stored.size(), plain.size() + 200);
    EXPECT_EQ(decoded(lzop_kind(), stored, Form::copying), plain);
    EXPECT_EQ(decoded(lzop_kind(), stored, Form::zero_copy), plain);
}

TEST_F(Lzop, AnEmptyFileIsNoLzopFile)
{
    expect_failure("", LZOP_E_TRUNCATED);
}

TEST_F(Lzop, SomethingElseIsNoLzopFile)
{
    expect_failure("plain text, which nobody compressed", LZOP_E_MAGIC);
}

TEST_F(Lzop, AFileThatEndsInsideAMemberIsRefused)
{
    const std::string stored = encoded(lzop_kind(), sample_text(600000));
    for (const std::size_t size :
         {std::size_t{5}, std::size_t{20}, stored.size() / 2, stored.size() - 4, stored.size() - 1})
        expect_failure(stored.substr(0, size), LZOP_E_TRUNCATED);
}

TEST_F(Lzop, DamagedContentsAreRefused)
{
    std::string stored = encoded(lzop_kind(), sample_text(100000));
    stored[stored.size() / 2] = static_cast<char>(stored[stored.size() / 2] ^ 1);
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const Decoded read = decoded(lzop_kind(), stored, form);
        EXPECT_TRUE(read.failed);
        EXPECT_EQ(read.plain, "");
        EXPECT_TRUE(read.error == "Failed to decompress: -10" ||
                    read.error == "Failed to decompress: -11")
            << read.error;
    }
}

} // namespace
