#include "client_io/zstd_io.h"

#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <ace/Log_Priority.h>
#include <gtest/gtest.h>

namespace
{

constexpr unsigned mode_write = Client_IO_Base::mode_write;

const Kind& zstd_kind()
{
    return main_kinds().at(0);
}

constexpr char ends_inside[] = "Failed to zstd decompress, the file ends inside a frame";

/// A frame by zstd's simple interface: no checksum, contents size in the header.
std::string frame(const std::string& plain, int level = 3)
{
    std::string out(ZSTD_compressBound(plain.size()), '\0');
    const std::size_t size =
        ZSTD_compress(out.data(), out.size(), plain.data(), plain.size(), level);
    EXPECT_EQ(ZSTD_isError(size), 0U);
    out.resize(size);
    return out;
}

std::string skippable_frame(std::size_t size)
{
    std::string out = "\x5a\x2a\x4d\x18";
    for (unsigned shift = 0; shift < 32; shift += 8)
        out += static_cast<char>(size >> shift);
    return out + std::string(size, 's');
}

class Zstd_IO : public testing::Test
{
protected:
    void expect_everywhere(const std::string& stored, const std::string& plain)
    {
        for (const Form form : {Form::copying, Form::zero_copy})
            for (const std::size_t cut : {0U, 1U, 5U, 4096U})
                EXPECT_EQ(decoded(zstd_kind(), stored, form, cut), plain) << "parts of " << cut;
    }

    void expect_failure(const std::string& stored, const std::string& error)
    {
        for (const Form form : {Form::copying, Form::zero_copy})
            for (const std::size_t cut : {0U, 1U, 4096U}) {
                const Decoded result = decoded(zstd_kind(), stored, form, cut);
                EXPECT_TRUE(result.failed) << "parts of " << cut;
                EXPECT_EQ(result.error, error) << "parts of " << cut;
                EXPECT_FALSE(result.retriable);
            }
    }

    std::size_t warnings() const
    {
        std::size_t count = 0;
        for (const Log_Capture::Message& message : log_.messages())
            if (message.priority == LM_WARNING) {
                EXPECT_EQ(message.text, "Ignored zeros behind the zstd data of the file\n");
                ++count;
            }
        return count;
    }

    Log_Capture log_;
};

TEST_F(Zstd_IO, ConstructionIsNotedInTheLog)
{
    const ZSTD_IO io(nullptr, 7);
    ASSERT_EQ(log_.messages().size(), 1U);
    EXPECT_EQ(log_.messages()[0].priority, static_cast<unsigned long>(LM_TRACE));
    EXPECT_EQ(log_.messages()[0].text, "zstd io with level 7\n");
}

TEST_F(Zstd_IO, AReadWithoutALowerLayerIsLogged)
{
    ZSTD_IO io(nullptr, 1);
    log_.clear();
    char byte = 0;
    EXPECT_EQ(io.read(&byte, 1), -1);
    ASSERT_EQ(log_.messages().size(), 1U);
    EXPECT_EQ(log_.messages()[0].priority, static_cast<unsigned long>(LM_EMERGENCY));
    EXPECT_NE(log_.messages()[0].text.find(", _io.get() is NULL:\n"), std::string::npos);
    EXPECT_EQ(log_.messages()[0].text.find("Unexpected error in backup/client_io/zstd_io.cpp:"),
              0U);
}

TEST_F(Zstd_IO, WritesOneFrameWithAChecksum)
{
    const std::string plain = sample_text(300000);
    const std::string stored = encoded(zstd_kind(), plain);
    ASSERT_EQ(stored.substr(0, 4), "\x28\xb5\x2f\xfd");
    EXPECT_EQ(stored[4] & 4, 4) << "the checksum flag of the frame header";
    EXPECT_EQ(ZSTD_findFrameCompressedSize(stored.data(), stored.size()), stored.size());
    std::string out(plain.size(), '\0');
    EXPECT_EQ(ZSTD_decompress(out.data(), out.size(), stored.data(), stored.size()), plain.size());
    EXPECT_EQ(out, plain);
}

TEST_F(Zstd_IO, EveryLevelIsTakenAndBeyondTheRangeTheNearestOne)
{
    const std::string plain = sample_text(100000);
    std::vector<std::size_t> sizes;
    for (const std::int32_t level : {-1000000, -5, 0, 1, 3, 9, 19, 22, 100}) {
        const Kind kind{
            "", [level](auto io) { return std::make_unique<ZSTD_IO>(std::move(io), level); }};
        const std::string stored = encoded(kind, plain);
        EXPECT_EQ(decoded(kind, stored, Form::copying), plain) << level;
        sizes.push_back(stored.size());
    }
    EXPECT_EQ(sizes[2], sizes[4]) << "0 is the default, 3";
    EXPECT_EQ(sizes[7], sizes[8]) << "22 is the highest";
    EXPECT_GT(sizes[1], sizes[3]);
    EXPECT_GT(sizes[3], sizes[6]);
}

TEST_F(Zstd_IO, AnEmptyFileIsNoZstdFile)
{
    expect_failure("", ends_inside);
}

TEST_F(Zstd_IO, ASourceThatEndsInsideAFrameFailsAndDoesNotLoop)
{
    const std::string stored = frame(sample_text(400000));
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{4}, std::size_t{9}, stored.size() / 2, stored.size() - 1})
        expect_failure(stored.substr(0, size), ends_inside);
}

TEST_F(Zstd_IO, WhatTheDecoderStillHoldsIsHandedOutBeforeTheSourcesEndIsMissed)
{
    // 8 MiB of zeros come from a few bytes; all of them stand before the cut-off checksum.
    const std::string plain(8U << 20U, '\0');
    const std::string stored = encoded(zstd_kind(), plain);
    const std::string cut = stored.substr(0, stored.size() - 1);
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const Decoded result = decoded(zstd_kind(), cut, form);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.error, ends_inside);
        EXPECT_GT(result.plain.size(), plain.size() / 2);
    }
}

TEST_F(Zstd_IO, SomethingElseIsNoZstdFile)
{
    expect_failure("plain text, which nobody compressed",
                   "Failed to zstd decompress, Unknown frame descriptor");
    expect_failure("x", "Failed to zstd decompress, Unknown frame descriptor");
    expect_failure("\x28\xb5", ends_inside);
}

TEST_F(Zstd_IO, SeveralFramesAreOneFile)
{
    const std::string plain = sample_text(500000);
    expect_everywhere(frame(plain.substr(0, 200000), 19) + frame("") +
                          frame(plain.substr(200000, 1)) +
                          encoded(zstd_kind(), plain.substr(200001)),
                      plain);
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Zstd_IO, SkippableFramesAreSkippedWhereverTheyStand)
{
    const std::string plain = sample_text(30000);
    expect_everywhere(skippable_frame(10) + frame(plain.substr(0, 10000)) + skippable_frame(0) +
                          skippable_frame(300000) + frame(plain.substr(10000)) + skippable_frame(7),
                      plain);
    expect_everywhere(skippable_frame(5), "");
    expect_failure(frame(plain) + skippable_frame(100).substr(0, 50), ends_inside);
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Zstd_IO, ZerosBehindTheLastFrameAreIgnoredWithAWarning)
{
    const std::string plain = sample_text(30000);
    std::size_t expected = 0;
    for (const std::size_t zeros : {1U, 2U, 3U, 4U, 5U, 17U, 512U, 131075U, 500000U}) {
        expect_everywhere(frame(plain) + std::string(zeros, '\0'), plain);
        expected += 8;
        EXPECT_EQ(warnings(), expected) << zeros;
    }
}

TEST_F(Zstd_IO, AnythingElseBehindTheLastFrameIsNotTakenForTheEnd)
{
    const std::string plain = sample_text(30000);
    std::string damaged = frame(plain); // one bit of its magic is wrong
    damaged[0] = static_cast<char>(damaged[0] ^ 1);
    std::string behind_zeros(200000, '\0');
    behind_zeros.back() = 'x';
    for (const std::string& rest :
         {std::string("trailing"), std::string("\x28nope"), std::string("\x28\xb5\x2f\xfe more"),
          std::string("\x5a\x2a nothing to skip"), std::string(500000, 'z'), damaged, behind_zeros})
        expect_failure(frame(plain) + rest, "Failed to zstd decompress, Unknown frame descriptor");
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Zstd_IO, ABeginningOfAnotherFrameIsNotIgnored)
{
    const std::string plain = sample_text(30000);
    for (const std::size_t size : {1U, 2U, 3U, 4U, 5U, 20U})
        expect_failure(frame(plain) + frame(plain).substr(0, size), ends_inside);
}

TEST_F(Zstd_IO, DamageBehindAGoodFrameIsNotTakenForItsEnd)
{
    const std::string plain = sample_text(30000);
    std::string second = frame(plain);
    for (std::size_t i = 40; i < 60; ++i)
        second[i] = '\xff';
    for (const Form form : {Form::copying, Form::zero_copy})
        for (const std::size_t cut : {0U, 1U}) {
            const Decoded result = decoded(zstd_kind(), frame(plain) + second, form, cut);
            EXPECT_TRUE(result.failed);
            EXPECT_EQ(result.error.find("Failed to zstd decompress, "), 0U) << result.error;
        }
    EXPECT_EQ(warnings(), 0U);
}

TEST_F(Zstd_IO, AWrongChecksumIsRefused)
{
    std::string stored = encoded(zstd_kind(), sample_text(30000));
    stored.back() = static_cast<char>(stored.back() ^ 1);
    expect_failure(stored, "Failed to zstd decompress, Restored data doesn't match checksum");
}

TEST_F(Zstd_IO, AFrameThatNeedsADictionaryIsRefused)
{
    const std::string plain = sample_text(2000);
    const std::string dictionary = sample_text(1000);
    ZSTD_CCtx* const context = ZSTD_createCCtx();
    std::string stored(ZSTD_compressBound(plain.size()), '\0');
    const std::size_t size =
        ZSTD_compress_usingDict(context, stored.data(), stored.size(), plain.data(), plain.size(),
                                dictionary.data(), dictionary.size(), 3);
    ZSTD_freeCCtx(context);
    ASSERT_EQ(ZSTD_isError(size), 0U);
    stored.resize(size);
    for (const Form form : {Form::copying, Form::zero_copy})
        EXPECT_EQ(decoded(zstd_kind(), stored, form).error,
                  "Failed to zstd decompress, Data corruption detected");
    // With a dictionary's number in its header the frame itself says what is missing.
    const std::string numbered =
        "\x28\xb5\x2f\xfd\x21\x2a\x05\x29" + std::string("\x00\x00hello", 7);
    expect_failure(numbered, "Failed to zstd decompress, Dictionary mismatch");
}

/// The header of a frame that says how much of its contents it refers back to, and an empty block.
std::string frame_with_window(unsigned log)
{
    return std::string("\x28\xb5\x2f\xfd\x00", 5) + static_cast<char>((log - 10) << 3U) +
           std::string("\x01\x00\x00", 3);
}

TEST_F(Zstd_IO, WindowsOfUpTo128MiBAreReadAndLargerOnesRefused)
{
    expect_everywhere(frame_with_window(17), "");
    EXPECT_EQ(decoded(zstd_kind(), frame_with_window(27), Form::copying), "");
    expect_failure(frame_with_window(28),
                   "Failed to zstd decompress, Frame requires too much memory for decoding");
    expect_failure(frame_with_window(31),
                   "Failed to zstd decompress, Frame requires too much memory for decoding");
}

TEST_F(Zstd_IO, AFlushLetsEverythingOutThatWasWritten)
{
    const std::string plain = sample_text(250000);
    Stacked stacked(zstd_kind());
    ASSERT_TRUE(stacked.io->open("a", mode_write, 0, 0));
    ASSERT_TRUE(stacked.io->write(plain.data(), plain.size()));
    ASSERT_TRUE(stacked.io->flush());
    // The frame goes on, but nothing of what was written is missing.
    const Decoded result = decoded(zstd_kind(), stacked.store->data, Form::copying, 1000);
    EXPECT_TRUE(result.failed);
    EXPECT_EQ(result.plain.size() / 1000, plain.size() / 1000);
    ASSERT_TRUE(stacked.io->close());
    expect_everywhere(stacked.store->data, plain);
}

TEST_F(Zstd_IO, AFlushThatFillsTheBufferMoreThanOnceLosesNothing)
{
    // At this level the encoder holds back more than its recommended buffer takes at once.
    const Kind kind{"", [](auto io) { return std::make_unique<ZSTD_IO>(std::move(io), 19); }};
    const std::string plain = sample_bytes(3000000);
    Stacked stacked(kind);
    ASSERT_TRUE(stacked.io->open("a", mode_write, 0, 0));
    for (std::size_t done = 0; done < plain.size(); done += 1000000) {
        ASSERT_TRUE(stacked.io->write(plain.data() + done, 1000000));
        ASSERT_TRUE(stacked.io->flush());
    }
    ASSERT_TRUE(stacked.io->close());
    expect_everywhere(stacked.store->data, plain);
}

} // namespace
