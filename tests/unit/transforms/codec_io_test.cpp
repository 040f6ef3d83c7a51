#include "platform/json/json_value.h"
#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// What all transforms that change the stored bytes have in common.

namespace
{

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class Codec : public testing::TestWithParam<Kind>
{
protected:
    bool open(unsigned mode, std::uint64_t offset = 0, std::uint64_t size = 0)
    {
        return io_.open("a", mode, offset, size);
    }

    /// Stores @p plain and forgets the calls for it.
    void store(const std::string& plain)
    {
        stacked_.store->data = encoded(GetParam(), plain);
        stacked_.store->calls.clear();
    }

    std::int64_t read_byte()
    {
        char byte = 0;
        return io_.read(&byte, 1);
    }

    bool read_block()
    {
        const void* data = nullptr;
        std::uint64_t size = 0;
        return io_.read(data, size);
    }

    Log_Capture log_;
    Stacked stacked_{GetParam()};
    Store& store_ = *stacked_.store;
    Codec_IO& io_ = *stacked_.io;
};

INSTANTIATE_TEST_SUITE_P(Of, Codec, testing::ValuesIn(main_kinds()), kind_name);

constexpr unsigned mode_read = Client_IO_Base::mode_read;
constexpr unsigned mode_write = Client_IO_Base::mode_write;
constexpr unsigned mode_append = Client_IO_Base::mode_append;
constexpr unsigned mode_random_write = Client_IO_Base::mode_random_write;
constexpr unsigned mode_overwrite = Client_IO_Base::mode_overwrite;
constexpr std::uint64_t unknown = Client_IO_Base::size_unknown;

TEST_P(Codec, StoresSomethingElseThanItIsGiven)
{
    const std::string plain = sample_text(100000);
    const std::string stored = encoded(GetParam(), plain);
    EXPECT_EQ(stored.find(plain.substr(5000, 40)), std::string::npos);
    EXPECT_EQ(decoded(GetParam(), stored, Form::copying), plain);
    EXPECT_EQ(decoded(GetParam(), stored, Form::zero_copy), plain);
}

TEST_P(Codec, OpensTheLowerFileFromItsStartAndWithoutALimit)
{
    store("0123456789");
    ASSERT_TRUE(open(mode_read, 4, 3));
    EXPECT_THAT(store_.calls, ElementsAre("open a 1 0 0"));
    ASSERT_TRUE(io_.close());
    store_.calls.clear();
    ASSERT_TRUE(open(mode_write | mode_overwrite, 0, 77));
    EXPECT_THAT(store_.calls, ElementsAre("open a 258 0 0"));
}

TEST_P(Codec, PassesTheExtraSettingsOfAnOpenOn)
{
    store("0123456789");
    const json_spirit::Value extra(7);
    ASSERT_TRUE(io_.open("a", mode_read, extra));
    EXPECT_THAT(store_.calls, ElementsAre("open a 1 extra"));
    EXPECT_EQ(read_to_end(io_, Form::copying), "0123456789");
}

TEST_P(Codec, WritingFromAnOffsetIsRefusedBeforeTheLowerFileIsOpened)
{
    for (const unsigned mode : {mode_write, mode_append, mode_random_write, mode_write | 0x100U}) {
        EXPECT_FALSE(open(mode, 1)) << mode;
        EXPECT_EQ(io_.error(), "Invalid offset") << mode;
    }
    EXPECT_THAT(store_.calls, IsEmpty());
    EXPECT_FALSE(io_.write("x", 1));
}

TEST_P(Codec, WritingAtRandomIsRefused)
{
    EXPECT_FALSE(open(mode_random_write));
    EXPECT_EQ(io_.error(), "Random write mode is not supported with compression or encryption");
    EXPECT_THAT(store_.calls, IsEmpty());
}

TEST_P(Codec, AReadFromAnOffsetBeginsAtThatByteOfThePlainContents)
{
    const std::string plain = sample_text(700001);
    store(plain);
    for (const std::uint64_t offset : {0U, 1U, 15U, 16U, 17U, 65536U, 131072U, 131073U, 262143U,
                                       262144U, 262145U, 524288U, 700000U, 700001U})
        for (const Form form : {Form::copying, Form::zero_copy}) {
            ASSERT_TRUE(open(mode_read, offset));
            EXPECT_EQ(read_to_end(io_, form, 100000), plain.substr(offset)) << offset;
            ASSERT_TRUE(io_.close());
        }
}

TEST_P(Codec, TheBufferOfTheReaderMayBeSmallerThanWhatIsSkipped)
{
    const std::string plain = sample_text(5000);
    store(plain);
    ASSERT_TRUE(open(mode_read, 4321));
    EXPECT_EQ(read_to_end(io_, Form::copying, 7), plain.substr(4321));
}

TEST_P(Codec, AnOffsetAtTheEndIsTheEnd)
{
    store("0123456789");
    for (const Form form : {Form::copying, Form::zero_copy}) {
        ASSERT_TRUE(open(mode_read, 10));
        EXPECT_EQ(read_to_end(io_, form), "");
        EXPECT_EQ(read_to_end(io_, form), "");
        ASSERT_TRUE(io_.close());
    }
}

TEST_P(Codec, AnOffsetBeyondTheEndFailsTheReads)
{
    store("0123456789");
    for (const std::uint64_t offset : {std::uint64_t{11}, std::uint64_t{1} << 40U})
        for (const Form form : {Form::copying, Form::zero_copy}) {
            ASSERT_TRUE(open(mode_read, offset));
            for (int attempt = 0; attempt < 2; ++attempt) {
                const Decoded result = read_to_end(io_, form);
                EXPECT_TRUE(result.failed);
                EXPECT_EQ(result.plain, "");
                EXPECT_EQ(result.error, "Invalid offset") << offset;
            }
            ASSERT_TRUE(io_.close());
        }
}

TEST_P(Codec, TheLimitOfAnOpenEndsReadingInPlainBytes)
{
    const std::string plain = sample_text(300000);
    store(plain);
    for (const Form form : {Form::copying, Form::zero_copy})
        for (const std::uint64_t limit : {1U, 16U, 65536U, 262145U, 299000U, 400000U}) {
            ASSERT_TRUE(open(mode_read, 1000, limit));
            EXPECT_EQ(read_to_end(io_, form, 50000), plain.substr(1000, limit)) << limit;
            EXPECT_EQ(read_to_end(io_, form, 50000), "") << limit;
            ASSERT_TRUE(io_.close());
        }
}

TEST_P(Codec, TheLimitOfAnOpenDoesNotOutliveIt)
{
    store("0123456789");
    ASSERT_TRUE(open(mode_read, 2, 3));
    EXPECT_EQ(read_to_end(io_, Form::copying), "234");
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(io_.open("a", mode_read, json_spirit::Value()));
    EXPECT_EQ(read_to_end(io_, Form::copying), "0123456789");
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(open(mode_read));
    EXPECT_EQ(read_to_end(io_, Form::zero_copy), "0123456789");
}

TEST_P(Codec, ReadingNothingDoesNothing)
{
    store("0123456789");
    ASSERT_TRUE(open(mode_read, 3));
    char byte = 'x';
    EXPECT_EQ(io_.read(&byte, 0), 0);
    EXPECT_EQ(byte, 'x');
    EXPECT_EQ(read_to_end(io_, Form::copying), "3456789");
}

TEST_P(Codec, TheEndOfAZeroCopyReadHandsOutNothing)
{
    store("0123456789");
    ASSERT_TRUE(open(mode_read));
    EXPECT_EQ(read_to_end(io_, Form::zero_copy), "0123456789");
    for (int time = 0; time < 2; ++time) {
        const void* data = this;
        std::uint64_t size = 77;
        EXPECT_TRUE(io_.read(data, size));
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(size, 0U);
    }
}

TEST_P(Codec, AFileOfNothingIsReadBackAsSuch)
{
    const std::string stored = encoded(GetParam(), "");
    EXPECT_EQ(decoded(GetParam(), stored, Form::copying), "");
    EXPECT_EQ(decoded(GetParam(), stored, Form::zero_copy), "");
}

TEST_P(Codec, WritesOfNothingChangeNothing)
{
    ASSERT_TRUE(open(mode_write));
    EXPECT_TRUE(io_.write("", 0));
    EXPECT_TRUE(io_.write(nullptr, 0));
    ASSERT_TRUE(io_.write("abc", 3));
    EXPECT_TRUE(io_.write(nullptr, 0));
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(store_.data, encoded(GetParam(), "abc"));
}

TEST_P(Codec, ClosesTheLowerFileOnceAndAfterItsLastBytes)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    EXPECT_TRUE(io_.is_open());
    ASSERT_TRUE(io_.close());
    EXPECT_FALSE(io_.is_open());
    EXPECT_THAT(store_.calls, ElementsAre("open a 2 0 0", "close"));
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::copying), "abc");
}

TEST_P(Codec, FlushReachesTheLowerLayer)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    EXPECT_TRUE(io_.flush());
    EXPECT_TRUE(io_.flush());
    EXPECT_THAT(store_.calls, ElementsAre("open a 2 0 0", "flush", "flush"));
}

TEST_P(Codec, WhatIsWrittenAfterAFlushIsReadBackToo)
{
    const std::string plain = sample_text(400000);
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.flush());
    std::size_t done = 0;
    for (const std::size_t part : {1U, 99999U, 200000U, 17U}) {
        ASSERT_TRUE(io_.write(plain.data() + done, part));
        ASSERT_TRUE(io_.flush());
        done += part;
    }
    ASSERT_TRUE(io_.write(plain.data() + done, plain.size() - done));
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::copying), plain);
    EXPECT_EQ(decoded(GetParam(), store_.data, Form::zero_copy, 1000), plain);
}

TEST_P(Codec, FlushOfAFileThatIsReadFails)
{
    store("0123456789");
    ASSERT_TRUE(open(mode_read));
    EXPECT_FALSE(io_.flush());
    EXPECT_THAT(store_.calls, ElementsAre("open a 1 0 0"));
    EXPECT_EQ(read_to_end(io_, Form::copying), "0123456789");
}

TEST_P(Codec, SeekIsRefusedWithoutAskingBelow)
{
    EXPECT_FALSE(io_.seek(0, 0));
    EXPECT_EQ(io_.error(), "Not seekable");
    store("0123456789");
    ASSERT_TRUE(open(mode_read));
    EXPECT_FALSE(io_.seek(5, 1));
    EXPECT_EQ(io_.error(), "Not seekable");
    EXPECT_THAT(store_.calls, ElementsAre("open a 1 0 0"));
    EXPECT_EQ(read_to_end(io_, Form::copying), "0123456789");
}

TEST_P(Codec, ReadingAFileThatIsWrittenFailsAndLeavesItAsItWas)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    EXPECT_EQ(read_byte(), -1);
    EXPECT_FALSE(read_block());
    ASSERT_TRUE(io_.write("def", 3));
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(store_.data, encoded(GetParam(), "abcdef"));
}

TEST_P(Codec, WritingToAFileThatIsReadFailsAndLeavesItAsItWas)
{
    store("0123456789");
    const std::string stored = store_.data;
    ASSERT_TRUE(open(mode_read));
    EXPECT_FALSE(io_.write("abc", 3));
    EXPECT_EQ(io_.error(), "Operation not permitted");
    EXPECT_EQ(read_to_end(io_, Form::copying), "0123456789");
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(store_.data, stored);
}

TEST_P(Codec, WithoutAnOpenFileNothingReachesTheLowerLayerButClose)
{
    for (int time = 0; time < 2; ++time) {
        store_.calls.clear();
        const std::string before = store_.data;
        EXPECT_EQ(read_byte(), -1);
        EXPECT_FALSE(read_block());
        EXPECT_FALSE(io_.write("abc", 3));
        EXPECT_EQ(io_.error(), "Not open");
        EXPECT_FALSE(io_.flush());
        EXPECT_EQ(io_.error(), "Not open");
        EXPECT_THAT(store_.calls, IsEmpty());
        EXPECT_FALSE(io_.close());
        EXPECT_THAT(store_.calls, ElementsAre("close"));
        EXPECT_EQ(store_.data, before);
        // The second time: after a file was written and read.
        ASSERT_TRUE(open(mode_write));
        ASSERT_TRUE(io_.close());
        ASSERT_TRUE(open(mode_read));
        ASSERT_TRUE(io_.close());
    }
}

TEST_P(Codec, WithoutALowerLayerEverythingFails)
{
    const std::unique_ptr<Client_IO_Base> below = io_.release();
    ASSERT_NE(below, nullptr);
    store_.retriable = true;
    EXPECT_FALSE(open(mode_read));
    EXPECT_FALSE(open(mode_write));
    EXPECT_FALSE(io_.open("a", mode_read, json_spirit::Value()));
    EXPECT_EQ(read_byte(), -1);
    EXPECT_FALSE(read_block());
    EXPECT_FALSE(io_.write("abc", 3));
    EXPECT_FALSE(io_.flush());
    EXPECT_FALSE(io_.close());
    EXPECT_FALSE(io_.seek(0, 0));
    EXPECT_FALSE(io_.retriable());
    EXPECT_FALSE(io_.is_open());
    EXPECT_EQ(io_.size(), unknown);
    EXPECT_EQ(io_.original_size(), unknown);
    EXPECT_EQ(io_.size("a"), unknown);
    EXPECT_THAT(store_.calls, IsEmpty());
}

TEST_P(Codec, ALowerLayerTakenAwayFromAnOpenFileFailsWhatFollows)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    const std::unique_ptr<Client_IO_Base> below = io_.release();
    EXPECT_FALSE(io_.write("def", 3));
    EXPECT_FALSE(io_.flush());
    EXPECT_FALSE(io_.close());
    EXPECT_TRUE(below->is_open());
}

TEST_P(Codec, SizesAreThoseOfWhatIsStored)
{
    store(sample_text(50000));
    EXPECT_EQ(io_.size(), unknown);
    ASSERT_TRUE(open(mode_read));
    EXPECT_EQ(io_.size(), store_.data.size());
    EXPECT_EQ(io_.original_size(), store_.data.size());
    EXPECT_EQ(io_.storage_size(), store_.data.size());
}

TEST_P(Codec, WhatConcernsPathsAndTheConnectionGoesToTheLowerLayer)
{
    store_.path_size = 123;
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(io_.connect(URI(), Client_IO_Base::Options()));
    EXPECT_TRUE(io_.reconnect());
    EXPECT_TRUE(io_.is_connected());
    EXPECT_EQ(io_.size("f"), 123U);
    EXPECT_TRUE(io_.get_dir("d", entries));
    EXPECT_TRUE(io_.make_dir("d", 0700));
    EXPECT_TRUE(io_.truncate("f", 5));
    EXPECT_TRUE(io_.remove("f"));
    EXPECT_TRUE(io_.copy("f", "g", true));
    EXPECT_TRUE(io_.rename("f", "g", true));
    EXPECT_EQ(io_.get_config("k"), "value of k");
    io_.disconnect();
    EXPECT_THAT(store_.calls,
                ElementsAre("connect", "reconnect", "size f", "get_dir d", "make_dir d",
                            "truncate f", "remove f", "copy f g", "rename f g", "disconnect"));
}

TEST_P(Codec, OpeningAnotherFileFirstEndsTheOneThatIsWritten)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    const std::string first = encoded(GetParam(), "abc");
    // The store holds one file only: the second open fails, before it could replace the first.
    store_.failing.insert("open");
    EXPECT_FALSE(io_.open("b", mode_write, 0, 0));
    EXPECT_EQ(store_.data, first);
    EXPECT_THAT(store_.calls, ElementsAre("open a 2 0 0", "close", "open b 2 0 0"));
    EXPECT_FALSE(io_.is_open());
}

TEST_P(Codec, OpeningAnotherFileFailsWhenTheOneBeforeCannotBeEnded)
{
    for (const char* operation : {"write", "close"}) {
        ASSERT_TRUE(open(mode_write));
        store_.failing = {operation};
        io_.write("abc", 3);
        EXPECT_FALSE(io_.open("b", mode_write, 0, 0)) << operation;
        EXPECT_EQ(io_.error(), "the store's words") << operation;
        EXPECT_EQ(store_.calls.back(), "close") << operation;
        store_.failing.clear();
        EXPECT_TRUE(open(mode_write)) << operation;
        EXPECT_TRUE(io_.close()) << operation;
    }
}

TEST_P(Codec, AFileThatTheLowerLayerLostDoesNotHinderTheNextOne)
{
    ASSERT_TRUE(open(mode_write));
    ASSERT_TRUE(io_.write("abc", 3));
    io_.disconnect();
    EXPECT_FALSE(io_.is_open());
    ASSERT_TRUE(io_.reconnect());
    ASSERT_TRUE(open(mode_write)) << io_.error();
    ASSERT_TRUE(io_.write("def", 3));
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(store_.data, encoded(GetParam(), "def"));
}

TEST_P(Codec, OneObjectServesFilesInBothDirectionsOneAfterTheOther)
{
    for (const std::string& plain : {sample_text(300000), std::string("x"), sample_text(70000)}) {
        ASSERT_TRUE(open(mode_write));
        ASSERT_TRUE(io_.write(plain.data(), plain.size()));
        ASSERT_TRUE(io_.close());
        EXPECT_EQ(store_.data, encoded(GetParam(), plain));
        for (const Form form : {Form::copying, Form::zero_copy}) {
            ASSERT_TRUE(open(mode_read));
            EXPECT_EQ(read_to_end(io_, form), plain);
            ASSERT_TRUE(io_.close());
            // Once more, and not to its end.
            ASSERT_TRUE(open(mode_read));
            EXPECT_EQ(read_byte(), 1);
            ASSERT_TRUE(io_.close());
        }
    }
}

} // namespace
