#include "client_io/file_io.h"
#include "platform/json/json_value.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>

namespace
{

constexpr const char* no_protocol = "Random write mode is not supported with this protocol";
constexpr const char* no_transforms =
    "Random write mode is not supported with compression or encryption";

TEST(Facade_Open, TellIsMinusOneBeforeTheFirstOpenAndAfterClose)
{
    Recorded_Facade facade;
    EXPECT_EQ(facade.io.tell(), -1);
    ASSERT_TRUE(facade.io.open("a", 1, 5, 0));
    EXPECT_EQ(facade.io.tell(), 5);
    ASSERT_TRUE(facade.io.close());
    EXPECT_EQ(facade.io.tell(), -1);
}

TEST(Facade_Open, TellStartsAtTheOffsetOfAWriteAndAtTheSizeOfAnAppend)
{
    Recorded_Facade facade;
    facade.log->stream_size = 777;
    ASSERT_TRUE(facade.io.open("a", 2, 100, 0));
    EXPECT_EQ(facade.io.tell(), 100);
    ASSERT_TRUE(facade.io.open("a", 3, 100, 0));
    EXPECT_EQ(facade.io.tell(), 777);
}

TEST(Facade_Open, AppendWithAFlagBitStartsAtTheOffset)
{
    Recorded_Facade facade;
    facade.log->stream_size = 777;
    ASSERT_TRUE(facade.io.open("a", 0x103, 100, 0));
    EXPECT_EQ(facade.io.tell(), 100);
}

TEST(Facade_Open, WithExtraSettingsStartsAtZeroOrAtTheSizeOfAnAppend)
{
    Recorded_Facade facade;
    facade.log->stream_size = 777;
    const json_spirit::Value extra;
    ASSERT_TRUE(facade.io.open("a", 1, extra));
    EXPECT_EQ(facade.io.tell(), 0);
    ASSERT_TRUE(facade.io.open("a", 3, extra));
    EXPECT_EQ(facade.io.tell(), 777);
    EXPECT_EQ(facade.log->count(call_text("open", "a", 1, &extra)), 1U);
    EXPECT_EQ(facade.log->count(call_text("open", "a", 3, &extra)), 1U);
}

TEST(Facade_Open, HandsItsArgumentsDownUnchanged)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("dir/file", 0x102, 11, 22));
    EXPECT_EQ(facade.log->actions(), std::vector<std::string>{"open(dir/file, 258, 11, 22)"});
}

TEST(Facade_Open, AFailedOpenOpensNothingAndHasTheBackendsText)
{
    Recorded_Facade facade;
    facade.log->failing = {"open"};
    facade.log->error = "no such file";
    EXPECT_FALSE(facade.io.open("a", 1, 5, 0));
    EXPECT_EQ(facade.io.error(), "no such file");
    EXPECT_FALSE(facade.io.is_open());
    EXPECT_EQ(facade.io.tell(), -1);
}

TEST(Facade_Open, WhileAnotherFileIsOpenClosesThatOneFirst)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    ASSERT_TRUE(facade.io.open("b", 1, 0, 0));
    EXPECT_EQ(facade.log->actions(),
              (std::vector<std::string>{"open(a, 2, 0, 0)", "close()", "open(b, 1, 0, 0)"}));
    EXPECT_FALSE(facade.io.writable());
}

TEST(Facade_Open, FailsWithTheOldErrorWhenThePreviousFileCannotBeClosed)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    facade.log->failing = {"close"};
    facade.log->error = "disk full";
    EXPECT_FALSE(facade.io.open("b", 1, 0, 0));
    EXPECT_EQ(facade.io.error(), "Failed to close previous file: disk full");
    EXPECT_EQ(facade.log->count("open("), 1U);
}

TEST(Facade_Open, InRandomWriteModeOnAnS3ConnectionIsRefused)
{
    Recorded_Facade facade(Client_IO::PROTOCOL_S3);
    EXPECT_FALSE(facade.io.open("a", 4, 0, 0));
    EXPECT_EQ(facade.io.error(), no_protocol);
    facade.io.error_.clear();
    EXPECT_FALSE(facade.io.open("a", 0x104, json_spirit::Value()));
    EXPECT_EQ(facade.io.error(), no_protocol);
    EXPECT_EQ(facade.log->count("open("), 0U);
    EXPECT_TRUE(facade.io.open("a", 2, 0, 0));
}

TEST(Facade_Open, RandomWritingIsForHTTPDedupAndFileOnly)
{
    for (unsigned protocol = 0; protocol < 20; ++protocol) {
        const Recorded_Facade facade(static_cast<Client_IO::Protocol>(protocol));
        ASSERT_TRUE(facade.connected);
        EXPECT_EQ(facade.io.allow_random_write(), protocol == 0 || protocol == 2 || protocol == 5)
            << protocol;
    }
}

TEST(Facade_Open, InRandomWriteModeOnAFileConnectionWithCompressionIsRefused)
{
    Recorded_Facade facade;
    facade.io.io_ = std::make_unique<Doubling_IO>(std::move(facade.io.io_));
    facade.io.compression_ = COMPRESSION_ZSTD;
    EXPECT_FALSE(facade.io.open("a", 4, 0, 0));
    EXPECT_EQ(facade.io.error(), no_transforms);
    facade.io.compression_ = COMPRESSION_NONE;
    facade.io.encryption_ = ENCRYPTION_AES_256_CTR;
    EXPECT_FALSE(facade.io.open("a", 4, 0, 0));
    EXPECT_EQ(facade.io.error(), no_transforms);
    EXPECT_EQ(facade.log->count("open("), 0U);
    EXPECT_TRUE(facade.io.open("a", 2, 0, 0));
    facade.io.encryption_ = ENCRYPTION_NONE;
    EXPECT_TRUE(facade.io.open("a", 4, 0, 0));
}

TEST(Facade_Open, InRandomWriteModeOnADedupConnectionPassesWhateverTransformsAreNoted)
{
    Recorded_Facade facade(Client_IO::PROTOCOL_DEDUP);
    facade.io.compression_ = COMPRESSION_ZSTD;
    facade.io.encryption_ = ENCRYPTION_AES_256_CTR;
    EXPECT_TRUE(facade.io.check_random_write(4));
    EXPECT_TRUE(facade.io.open("a", 4, 0, 0)) << facade.io.error();
}

TEST(Facade_Open, OnAFileConnectionTellsTheRealPositions)
{
    const Temp_Directory directory;
    write_local(directory / "a", "12345");
    URI uri;
    uri.scheme("file");
    uri.path(directory.str(), false);
    Client_IO io;
    ASSERT_TRUE(io.connect(uri, Client_IO::Options{})) << io.error();
    ASSERT_TRUE(io.open("b", 2, 100, 0));
    EXPECT_EQ(io.tell(), 100);
    // A local file counts its appended bytes from the open.
    ASSERT_TRUE(io.open("a", 3, 0, 0));
    EXPECT_EQ(io.tell(), 0);
    ASSERT_TRUE(io.write("678", 3));
    EXPECT_EQ(io.tell(), 3);
    ASSERT_TRUE(io.close());
    EXPECT_EQ(read_local(directory / "a"), "12345678");
}

} // namespace
