#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// A failed operation never turns into data or into a clean end.

namespace
{

constexpr unsigned mode_read = Client_IO_Base::mode_read;
constexpr unsigned mode_write = Client_IO_Base::mode_write;
constexpr std::int64_t always = std::numeric_limits<std::int64_t>::max();

class Codec_Failures : public testing::TestWithParam<Kind>
{
protected:
    bool open(unsigned mode, std::uint64_t offset = 0)
    {
        store_.calls.clear();
        return io_.open("a", mode, offset, 0);
    }

    bool write_all(const std::string& plain, std::size_t part)
    {
        for (std::size_t done = 0; done < plain.size(); done += part)
            if (!io_.write(plain.data() + done, std::min(part, plain.size() - done)))
                return false;
        return true;
    }

    void expect_to_work_again()
    {
        ASSERT_TRUE(open(mode_write)) << io_.error();
        ASSERT_TRUE(io_.write("again", 5)) << io_.error();
        ASSERT_TRUE(io_.close()) << io_.error();
        for (const Form form : {Form::copying, Form::zero_copy}) {
            ASSERT_TRUE(open(mode_read)) << io_.error();
            EXPECT_EQ(read_to_end(io_, form), "again");
            ASSERT_TRUE(io_.close()) << io_.error();
        }
    }

    Log_Capture log_;
    Stacked stacked_{GetParam()};
    Store& store_ = *stacked_.store;
    Codec_IO& io_ = *stacked_.io;
};

INSTANTIATE_TEST_SUITE_P(Of, Codec_Failures, testing::ValuesIn(main_kinds()), kind_name);

TEST_P(Codec_Failures, RetriableIsFalseBeforeTheFirstOpen)
{
    store_.retriable = true;
    EXPECT_FALSE(io_.retriable());
    EXPECT_FALSE(open(mode_write, 5));
    EXPECT_FALSE(io_.retriable());
    ASSERT_TRUE(open(mode_write));
    EXPECT_TRUE(io_.retriable());
    store_.retriable = false;
    EXPECT_FALSE(io_.retriable());
}

TEST_P(Codec_Failures, AFailedOpenBelowShowsItsTextAndWhetherToRetry)
{
    store_.failing = {"open"};
    for (const bool retriable : {true, false})
        for (const unsigned mode : {mode_read, mode_write}) {
            store_.retriable = retriable;
            io_.seek(0, 0); // leaves a text of its own
            EXPECT_FALSE(open(mode));
            EXPECT_EQ(io_.error(), "the store's words");
            EXPECT_EQ(io_.retriable(), retriable);
            char byte = 0;
            EXPECT_EQ(io_.read(&byte, 1), -1);
            EXPECT_FALSE(io_.write("x", 1));
            EXPECT_FALSE(io_.flush());
        }
    EXPECT_EQ(store_.data, "");
    store_.failing.clear();
    expect_to_work_again();
}

TEST_P(Codec_Failures, AFailedReadBelowAtAnyPlaceFailsTheReadAndAllThatFollow)
{
    const std::string plain = sample_text(300000);
    const std::string stored = encoded(GetParam(), plain);
    constexpr std::uint64_t pieces = 7;
    for (std::int64_t good = 0; good <= static_cast<std::int64_t>(pieces) + 1; ++good)
        for (const Form form : {Form::copying, Form::zero_copy})
            for (const std::uint64_t offset : {0U, 250000U}) {
                store_.data = stored;
                store_.piece = stored.size() / pieces + 1;
                store_.retriable = true;
                ASSERT_TRUE(open(mode_read, offset));
                store_.reads_left = good;
                const Decoded first = read_to_end(io_, form, 10000);
                if (!first.failed) {
                    // Every read below was done, the one that finds the end included.
                    EXPECT_GE(good, static_cast<std::int64_t>(pieces)) << good;
                    EXPECT_EQ(first, plain.substr(offset));
                } else {
                    EXPECT_EQ(first.error, "the store's words") << good;
                    EXPECT_TRUE(first.retriable) << good;
                    EXPECT_EQ(first.plain, plain.substr(offset, first.plain.size())) << good;
                    store_.reads_left = always;
                    const Decoded second = read_to_end(io_, form, 10000);
                    EXPECT_TRUE(second.failed) << good;
                    EXPECT_EQ(second.plain, "") << good;
                }
                store_.reads_left = always;
                EXPECT_TRUE(io_.close());
                ASSERT_TRUE(open(mode_read, offset));
                EXPECT_EQ(read_to_end(io_, form), plain.substr(offset)) << good;
                EXPECT_TRUE(io_.close());
            }
}

TEST_P(Codec_Failures, ATextlessFailureWhileSkippingIsAnInvalidOffset)
{
    store_.data = encoded(GetParam(), "0123456789");
    store_.error.clear();
    store_.failing = {"read"};
    for (const Form form : {Form::copying, Form::zero_copy}) {
        ASSERT_TRUE(open(mode_read, 3));
        EXPECT_EQ(read_to_end(io_, form).error, "Invalid offset");
        EXPECT_TRUE(io_.close());
    }
}

TEST_P(Codec_Failures, AFailedWriteBelowAtAnyPlaceFailsTheFile)
{
    // Random bytes, so that the compressing ones have to write before the end.
    std::string plain = sample_text(1000000);
    std::uint32_t state = 20;
    for (char& c : plain)
        c = static_cast<char>((state = state * 1664525U + 1013904223U) >> 24U);
    bool done = false;
    int good = 0;
    for (; !done && good < 100; ++good)
        for (const bool forgets : {false, true}) {
            store_.forgets_error_at_close = forgets;
            store_.retriable = true;
            ASSERT_TRUE(open(mode_write));
            store_.writes_left = good;
            const bool written = write_all(plain, 100000);
            if (!written) {
                EXPECT_EQ(io_.error(), "the store's words") << good;
                EXPECT_TRUE(io_.retriable()) << good;
                store_.writes_left = always;
                const std::string before = store_.data;
                EXPECT_FALSE(io_.write("more", 4)) << good;
                EXPECT_FALSE(io_.flush()) << good;
                EXPECT_EQ(store_.data, before) << good;
                EXPECT_FALSE(io_.close()) << good;
                EXPECT_EQ(store_.data, before) << good;
            } else {
                done = io_.close();
            }
            if (!done) {
                EXPECT_EQ(io_.error(), "the store's words") << good;
            }
            store_.writes_left = always;
            EXPECT_EQ(store_.calls.back(), "close") << good;
            EXPECT_FALSE(io_.is_open()) << good;
        }
    EXPECT_TRUE(done);
    EXPECT_GE(good, 4);
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::copying), plain);
    expect_to_work_again();
}

TEST_P(Codec_Failures, AFailedCloseBelowFailsTheClose)
{
    store_.failing = {"close"};
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "the store's words");
    store_.failing.clear();
    expect_to_work_again();
}

TEST_P(Codec_Failures, AFailedFlushBelowFailsTheFlush)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    store_.failing = {"flush"};
    io_.seek(0, 0); // leaves a text of its own
    EXPECT_FALSE(io_.flush());
    EXPECT_EQ(io_.error(), "the store's words");
    EXPECT_EQ(store_.calls.back(), "flush");
    // What was written is the lower layer's to lose; the stream itself is whole.
    store_.failing.clear();
    EXPECT_TRUE(io_.write("def", 3));
    EXPECT_TRUE(io_.close());
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::copying), "abcdef");
}

TEST_P(Codec_Failures, AFailedWriteDuringAFlushFailsTheFile)
{
    if (GetParam().is_cipher)
        return; // a cipher's flush writes nothing
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    store_.writes_left = 0;
    EXPECT_FALSE(io_.flush());
    EXPECT_EQ(io_.error(), "the store's words");
    EXPECT_THAT(store_.calls, testing::Not(testing::Contains("flush")));
    store_.writes_left = always;
    EXPECT_FALSE(io_.write("def", 3));
    EXPECT_FALSE(io_.close());
    EXPECT_EQ(io_.error(), "the store's words");
    expect_to_work_again();
}

TEST_P(Codec_Failures, OldWordsOfItsOwnDoNotHideTheLowerLayers)
{
    store_.data = encoded(GetParam(), "0123456789");
    ASSERT_TRUE(open(mode_read));
    EXPECT_FALSE(io_.seek(1, 1));
    store_.failing = {"read", "make_dir"};
    EXPECT_EQ(read_to_end(io_, Form::copying).error, "the store's words");
    EXPECT_FALSE(io_.seek(1, 1));
    EXPECT_FALSE(io_.make_dir("d", 0700));
    EXPECT_EQ(io_.error(), "the store's words");
}

TEST_P(Codec_Failures, AStreamCutAnywhereIsRefused)
{
    if (!GetParam().notices_damage)
        return; // without padding the shorter stream is as good as the longer one
    const std::string plain = sample_text(1000);
    const std::string stored = encoded(GetParam(), plain);
    for (std::size_t size = 0; size < stored.size(); ++size)
        for (const Form form : {Form::copying, Form::zero_copy}) {
            const Decoded result = decoded(GetParam(), stored.substr(0, size), form);
            EXPECT_TRUE(result.failed) << size;
            EXPECT_FALSE(result.retriable) << size;
            EXPECT_FALSE(result.error.empty()) << size;
            EXPECT_EQ(result.plain, plain.substr(0, result.plain.size())) << size;
        }
}

TEST_P(Codec_Failures, AStreamCutAnywhereIsRefusedAfterALongerOneWasRead)
{
    if (!GetParam().notices_damage)
        return;
    const std::string plain = sample_text(1000);
    const std::string stored = encoded(GetParam(), plain);
    for (std::size_t size = 0; size < stored.size(); ++size)
        for (const Form form : {Form::copying, Form::zero_copy}) {
            // What the buffers still hold of the whole file must not complete the cut one.
            store_.data = stored;
            ASSERT_TRUE(open(mode_read));
            ASSERT_EQ(read_to_end(io_, form), plain);
            ASSERT_TRUE(io_.close());
            store_.data.resize(size);
            ASSERT_TRUE(open(mode_read));
            EXPECT_TRUE(read_to_end(io_, form).failed) << size;
            ASSERT_TRUE(io_.close());
        }
}

TEST_P(Codec_Failures, ADamagedByteAnywhereIsRefusedOrDoesNotMatter)
{
    if (GetParam().is_cipher)
        return; // ciphers do not authenticate
    const std::string plain = sample_text(3000);
    const std::string stored = encoded(GetParam(), plain);
    std::size_t refused = 0;
    for (std::size_t i = 0; i < stored.size(); ++i)
        for (const unsigned mask : {1U, 0x80U, 0xFFU})
            for (const Form form : {Form::copying, Form::zero_copy}) {
                std::string damaged = stored;
                damaged[i] = static_cast<char>(static_cast<unsigned char>(damaged[i]) ^ mask);
                const Decoded result = decoded(GetParam(), damaged, form);
                refused += result.failed ? 1U : 0U;
                EXPECT_FALSE(result.failed && result.retriable) << i;
                if (!result.failed) {
                    EXPECT_EQ(result.plain, plain) << i << ' ' << mask;
                }
            }
    EXPECT_GT(refused, stored.size() * 5);
}

TEST_P(Codec_Failures, ARefusalLastsUntilTheNextOpen)
{
    if (!GetParam().notices_damage)
        return;
    const std::string stored = encoded(GetParam(), sample_text(1000));
    store_.retriable = true;
    for (const Form form : {Form::copying, Form::zero_copy}) {
        store_.data = stored.substr(0, stored.size() - 7);
        ASSERT_TRUE(open(mode_read));
        const Decoded first = read_to_end(io_, form);
        EXPECT_TRUE(first.failed);
        for (int time = 0; time < 3; ++time) {
            const Decoded again = read_to_end(io_, form);
            EXPECT_TRUE(again.failed);
            EXPECT_EQ(again.plain, "");
            EXPECT_EQ(again.error, first.error);
            EXPECT_FALSE(again.retriable);
        }
        EXPECT_TRUE(io_.close());
        EXPECT_FALSE(io_.retriable());
        ASSERT_TRUE(open(mode_read));
        EXPECT_TRUE(io_.retriable());
        EXPECT_TRUE(io_.close());
    }
    expect_to_work_again();
}

TEST_P(Codec_Failures, ARefusalWhileSkippingKeepsItsWords)
{
    if (!GetParam().notices_damage)
        return;
    const std::string stored = encoded(GetParam(), sample_text(1000));
    store_.data = stored.substr(0, stored.size() - 7);
    for (const Form form : {Form::copying, Form::zero_copy}) {
        ASSERT_TRUE(open(mode_read));
        const std::string words = read_to_end(io_, form).error;
        ASSERT_TRUE(io_.close());
        ASSERT_TRUE(open(mode_read, 999));
        const Decoded result = read_to_end(io_, form);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.error, words);
        EXPECT_FALSE(result.retriable);
        ASSERT_TRUE(io_.close());
    }
}

TEST_P(Codec_Failures, AnIncompleteFileIsNotClosedWithSuccessAtTheSecondTry)
{
    store_.stays_open_at_failed_close = true;
    ASSERT_TRUE(open(mode_write));
    store_.writes_left = 0;
    store_.failing = {"close"};
    // Where the write itself does not fail, the end of the stream does.
    static_cast<void>(io_.write("abc", 3));
    EXPECT_FALSE(io_.close());
    store_.writes_left = always;
    store_.failing.clear();
    EXPECT_FALSE(io_.close());
    expect_to_work_again();
}

TEST_P(Codec_Failures, ACompleteFileIsClosedAtTheSecondTryAndTakesNothingBetween)
{
    store_.stays_open_at_failed_close = true;
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    store_.failing = {"close"};
    EXPECT_FALSE(io_.close());
    EXPECT_FALSE(io_.write("def", 3));
    store_.failing.clear();
    EXPECT_TRUE(io_.close()) << io_.error();
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::copying), "abc");
}

TEST_P(Codec_Failures, AskingForASizeBetweenTwoReadsDoesNotDisturbThem)
{
    const std::string plain(3000000, 'p'); // many bytes of each lent one
    store_.data = encoded(GetParam(), plain);
    ASSERT_TRUE(open(mode_read));
    std::string back;
    const void* data = nullptr;
    std::uint64_t size = 1;
    while (size != 0) {
        ASSERT_TRUE(io_.read(data, size)) << io_.error();
        back.append(static_cast<const char*>(data), size);
        std::vector<Client_IO_Base::Directory_Entry> entries;
        static_cast<void>(io_.size("other"));
        static_cast<void>(io_.get_dir("other", entries));
    }
    EXPECT_TRUE(back == plain);
}

} // namespace
