#include "tests/support/open_facade.h"

#include <gtest/gtest.h>

namespace
{

/// A transform that tells when it is destroyed.
class Watched_IO : public Doubling_IO
{
public:
    Watched_IO(std::unique_ptr<Client_IO_Base> io, bool& destroyed)
        : Doubling_IO(std::move(io)), destroyed_(destroyed)
    {}
    ~Watched_IO() override { destroyed_ = true; }

private:
    bool& destroyed_;
};

class Facade_Transforms : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(facade_.connected);
        backend_ = io_.io_.get();
    }

    void stack_transform()
    {
        io_.io_ = std::make_unique<Watched_IO>(std::move(io_.io_), transform_destroyed_);
        transform_ = io_.io_.get();
    }

    Recorded_Facade facade_;
    Open_Facade& io_ = facade_.io;
    Client_IO_Base* backend_ = nullptr;
    Client_IO_Base* transform_ = nullptr;
    bool transform_destroyed_ = false;
};

TEST_F(Facade_Transforms, OriginalSizeThroughACompressingStackCountsUserBytesAlsoAfterClose)
{
    stack_transform();
    io_.compression_ = COMPRESSION_ZSTD;
    ASSERT_TRUE(io_.open("a", 2, 0, 0));
    ASSERT_TRUE(io_.write("0123456789", 10));
    EXPECT_EQ(facade_.log->written.size(), 20U);
    EXPECT_EQ(io_.original_size(), 10U);
    ASSERT_TRUE(io_.close());
    EXPECT_EQ(io_.original_size(), 10U);
}

TEST_F(Facade_Transforms, ANameWithoutADotTakesTheCompressionOff)
{
    stack_transform();
    io_.compression_ = COMPRESSION_ZSTD;
    io_.set_compression(std::string("backup"));
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    EXPECT_EQ(io_.io_.get(), backend_);
    EXPECT_TRUE(transform_destroyed_);
    EXPECT_FALSE(facade_.log->destroyed);
    EXPECT_TRUE(io_.open("a", 4, 0, 0)) << io_.error();
}

TEST_F(Facade_Transforms, ANameWithAnUnknownSuffixTakesTheCompressionOff)
{
    stack_transform();
    io_.compression_ = COMPRESSION_LZOP;
    io_.set_compression(std::string("archive.zst/backup.tar"));
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    EXPECT_EQ(io_.io_.get(), backend_);
}

TEST_F(Facade_Transforms, MethodAutoChangesNothing)
{
    stack_transform();
    io_.compression_ = COMPRESSION_ZSTD;
    io_.set_compression(COMPRESSION_AUTO);
    EXPECT_EQ(io_.compression_, COMPRESSION_ZSTD);
    EXPECT_EQ(io_.io_.get(), transform_);
    EXPECT_FALSE(transform_destroyed_);
}

TEST_F(Facade_Transforms, TheMethodThatIsThereAlreadyChangesNothing)
{
    stack_transform();
    io_.compression_ = COMPRESSION_ZSTD;
    io_.set_compression(COMPRESSION_ZSTD);
    EXPECT_EQ(io_.io_.get(), transform_);
    io_.set_compression(std::string("dump.zst"));
    EXPECT_EQ(io_.io_.get(), transform_);
    EXPECT_EQ(io_.compression_, COMPRESSION_ZSTD);
}

TEST_F(Facade_Transforms, TakingOffWhatIsNotThereLeavesTheBackend)
{
    io_.set_compression(COMPRESSION_NONE);
    io_.set_compression(std::string("backup"));
    EXPECT_EQ(io_.io_.get(), backend_);
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
}

TEST_F(Facade_Transforms, WithAutoCompressionEachOpenChoosesByTheNameThroughTheVirtualCall)
{
    class Listening_Facade : public Open_Facade
    {
    public:
        using Client_IO::set_compression;
        void set_compression(const std::string& file_name) override { asked.push_back(file_name); }
        std::vector<std::string> asked;
    };
    const auto log = std::make_shared<Recording>();
    Listening_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Recording_IO>(log)));
    ASSERT_TRUE(io.open("plain.zst", 2, 0, 0));
    EXPECT_TRUE(io.asked.empty());
    io.auto_compression_ = true;
    ASSERT_TRUE(io.open("dir/a.zst", 2, 0, 0));
    ASSERT_TRUE(io.open("b", 1, 0, 0));
    EXPECT_EQ(io.asked, (std::vector<std::string>{"dir/a.zst", "b"}));
}

TEST_F(Facade_Transforms, TheEncryptionThatIsThereAlreadyIsAccepted)
{
    EXPECT_TRUE(io_.set_encryption(ENCRYPTION_NONE, nullptr, 0, nullptr, 0));
    EXPECT_EQ(io_.io_.get(), backend_);
    stack_transform();
    io_.encryption_ = ENCRYPTION_AES_128_CBC;
    EXPECT_TRUE(io_.set_encryption(ENCRYPTION_AES_128_CBC, nullptr, 0, nullptr, 0));
    EXPECT_EQ(io_.io_.get(), transform_);
}

TEST_F(Facade_Transforms, AnUnknownEncryptionIsRefusedByNumberAndChangesNothing)
{
    const unsigned char key[32] = {};
    EXPECT_FALSE(io_.set_encryption(static_cast<Encryption_Algorithm>(-1), key, 32, key, 16));
    EXPECT_EQ(io_.error(), "Unknown encryption algorithm -1");
    EXPECT_FALSE(io_.set_encryption(static_cast<Encryption_Algorithm>(9999), key, 32, key, 16));
    EXPECT_EQ(io_.error(), "Unknown encryption algorithm 9999");
    EXPECT_EQ(io_.encryption_, ENCRYPTION_NONE);
    EXPECT_EQ(io_.io_.get(), backend_);
}

TEST_F(Facade_Transforms, AnUnknownEncryptionLeavesThePresentOneInPlace)
{
    stack_transform();
    io_.encryption_ = ENCRYPTION_AES_128_CBC;
    EXPECT_FALSE(
        io_.set_encryption(static_cast<Encryption_Algorithm>(9999), nullptr, 0, nullptr, 0));
    EXPECT_EQ(io_.encryption_, ENCRYPTION_AES_128_CBC);
    EXPECT_EQ(io_.io_.get(), transform_);
}

TEST_F(Facade_Transforms, ATransformsOwnTextHidesTheBackends)
{
    auto transform = std::make_unique<Doubling_IO>(std::move(io_.io_));
    transform->fail("the codec's words");
    facade_.log->error = "the backend's words";
    io_.io_ = std::move(transform);
    EXPECT_EQ(io_.error(), "the codec's words");
}

TEST_F(Facade_Transforms, ANewConnectionDestroysTheOldStack)
{
    stack_transform();
    io_.compression_ = COMPRESSION_ZSTD;
    io_.encryption_ = ENCRYPTION_AES_128_CBC;
    const auto second = std::make_shared<Recording>();
    ASSERT_TRUE(io_.connect_plain(std::make_unique<Recording_IO>(second)));
    EXPECT_TRUE(transform_destroyed_);
    EXPECT_TRUE(facade_.log->destroyed);
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    EXPECT_EQ(io_.encryption_, ENCRYPTION_NONE);
}

TEST(Facade_Missing_Transforms, BtrfsConnectionsNeedNoResumption)
{
    Client_IO::Options options;
    const auto log = std::make_shared<Recording>();
    Open_Facade io;
    EXPECT_TRUE(io.connect_stack(std::make_unique<Recording_IO>(log),
                                 Client_IO::PROTOCOL_BTRFS_HTTP, URI(), options, options))
        << io.error();
}

} // namespace
