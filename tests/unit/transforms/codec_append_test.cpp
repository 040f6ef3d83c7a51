#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using testing::ElementsAre;

constexpr unsigned mode_append = Client_IO_Base::mode_append;

class Codec_Append : public testing::TestWithParam<Kind>
{
protected:
    bool append(const std::string& plain)
    {
        store_.path_size = store_.data.size();
        return io_.open("a", mode_append, 0, 0) && io_.write(plain.data(), plain.size()) &&
               io_.close();
    }

    void expect_stored(const std::string& plain)
    {
        for (const Form form : {Form::copying, Form::zero_copy})
            for (const std::size_t cut : {0U, 1U, 1000U})
                EXPECT_EQ(decoded(GetParam(), store_.data, form, cut), plain) << cut;
    }

    Log_Capture log_;
    Stacked stacked_{GetParam()};
    Store& store_ = *stacked_.store;
    Codec_IO& io_ = *stacked_.io;
};

INSTANTIATE_TEST_SUITE_P(Of, Codec_Append, testing::ValuesIn(main_kinds()), kind_name);

TEST_P(Codec_Append, ToAnEmptyFileIsAsWriting)
{
    ASSERT_TRUE(append("abc"));
    EXPECT_EQ(store_.data, encoded(GetParam(), "abc"));
    EXPECT_EQ(store_.calls.back(), "close");
}

TEST_P(Codec_Append, ToAFileWhoseSizeIsUnknownIsAsWritingWhenItIsEmpty)
{
    store_.path_size = Client_IO_Base::size_unknown;
    ASSERT_TRUE(io_.open("a", mode_append, 0, 0));
    ASSERT_TRUE(io_.write("abc", 3));
    ASSERT_TRUE(io_.close());
    expect_stored("abc");
}

class Compression_Append : public Codec_Append
{};

INSTANTIATE_TEST_SUITE_P(Of, Compression_Append,
                         testing::Values(main_kinds().at(0), main_kinds().at(1)), kind_name);

TEST_P(Compression_Append, AddsWhatIsReadBackBehindTheRest)
{
    const std::string plain = sample_text(300000);
    ASSERT_TRUE(append(plain.substr(0, 1000)));
    const std::string first = store_.data;
    ASSERT_TRUE(append(plain.substr(1000, 1)));
    ASSERT_TRUE(append(""));
    ASSERT_TRUE(append(plain.substr(1001)));
    EXPECT_EQ(store_.data.substr(0, first.size()), first);
    expect_stored(plain);
    for (const std::uint64_t offset : {999U, 1000U, 1001U, 1002U, 299999U})
        for (const Form form : {Form::copying, Form::zero_copy}) {
            ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, offset, 0));
            EXPECT_EQ(read_to_end(io_, form), plain.substr(offset)) << offset;
            ASSERT_TRUE(io_.close());
        }
}

TEST_P(Compression_Append, ASecondStreamThatIsCutIsRefused)
{
    const std::string plain = sample_text(2000);
    ASSERT_TRUE(append(plain.substr(0, 1000)));
    const std::size_t first = store_.data.size();
    ASSERT_TRUE(append(plain.substr(1000)));
    const std::string whole = store_.data;
    for (std::size_t size = first + 1; size < whole.size(); ++size)
        for (const Form form : {Form::copying, Form::zero_copy}) {
            const Decoded result = decoded(GetParam(), whole.substr(0, size), form);
            EXPECT_TRUE(result.failed) << size - first;
            EXPECT_FALSE(result.retriable) << size - first;
        }
    EXPECT_EQ(decoded(GetParam(), whole.substr(0, first), Form::copying), plain.substr(0, 1000));
}

class Cipher_Append : public Codec_Append
{};

INSTANTIATE_TEST_SUITE_P(Of, Cipher_Append, testing::Values(main_kinds().at(2), main_kinds().at(3)),
                         kind_name);

TEST_P(Cipher_Append, ToAFileThatHoldsSomethingIsRefused)
{
    ASSERT_TRUE(append("abc"));
    const std::string before = store_.data;
    store_.calls.clear();
    EXPECT_FALSE(append("def"));
    EXPECT_EQ(io_.error(), "Invalid offset");
    EXPECT_THAT(store_.calls, ElementsAre("size a"));
    EXPECT_FALSE(io_.write("def", 3));
    EXPECT_EQ(store_.data, before);
}

TEST_P(Cipher_Append, ToAFileWhoseSizeOnlyTheOpenTellsIsRefusedToo)
{
    ASSERT_TRUE(append("abc"));
    const std::string before = store_.data;
    store_.calls.clear();
    store_.path_size = Client_IO_Base::size_unknown;
    EXPECT_FALSE(io_.open("a", mode_append, 0, 0));
    EXPECT_EQ(io_.error(), "Invalid offset");
    EXPECT_THAT(store_.calls, ElementsAre("size a", "open a 3 0 0", "close"));
    EXPECT_FALSE(io_.is_open());
    EXPECT_FALSE(io_.write("def", 3));
    EXPECT_EQ(store_.data, before);
}

TEST_P(Cipher_Append, ToADirectoryFailsInTheLowerLayersWords)
{
    store_.path_size = Client_IO_Base::size_of_directory;
    store_.failing = {"open"};
    EXPECT_FALSE(io_.open("a", mode_append, 0, 0));
    EXPECT_EQ(io_.error(), "the store's words");
}

} // namespace
