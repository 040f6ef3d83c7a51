#include "client_io/evp_io.h"
#include "client_io/file_io.h"
#include "client_io/lzop_io.h"
#include "client_io/rate_control_io.h"
#include "client_io/resumption_io.h"
#include "client_io/zstd_io.h"
#include "tests/support/allocation_count.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_io.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <ace/OS_NS_errno.h>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <random>

// The stack that options make, and what the facade does with it.

namespace
{

using testing::ElementsAre;

constexpr char zstd_magic[] = "\x28\xb5\x2f\xfd";
constexpr char lzop_magic[] = "\x89LZO";

using Names = std::vector<std::string>;

std::string name_of(Client_IO_Base* io)
{
    if (dynamic_cast<ZSTD_IO*>(io) != nullptr)
        return "zstd";
    if (dynamic_cast<Lzop_IO*>(io) != nullptr)
        return "lzop";
    if (dynamic_cast<EVP_IO*>(io) != nullptr)
        return "cipher";
    if (dynamic_cast<Rate_Control_IO*>(io) != nullptr)
        return "rate";
    if (dynamic_cast<Resumption_IO*>(io) != nullptr)
        return "resumption";
    return dynamic_cast<Pipe_IO*>(io) != nullptr ? "unknown transform" : "backend";
}

/// Takes the stack of a facade apart, from its top.
Names layers(Open_Facade& facade)
{
    Names names;
    for (std::unique_ptr<Client_IO_Base> io = std::move(facade.io_); io;) {
        names.push_back(name_of(io.get()));
        auto* const transform = dynamic_cast<Pipe_IO*>(io.get());
        std::unique_ptr<Client_IO_Base> below = transform ? transform->release() : nullptr;
        io = std::move(below);
    }
    return names;
}

void encrypt(Client_IO_Base::Options& options, const std::string& cipher = "aes-256-cbc")
{
    EXPECT_TRUE(options.set_encryption_from_binary(cipher.c_str(), test_key(key_length(cipher)),
                                                   test_iv()));
}

class Facade_Stack : public testing::Test
{
protected:
    Facade_Stack()
    {
        options_.max_retry = 0;
        options_.overwrite = true;
    }

    bool connect(Client_IO::Protocol protocol = Client_IO::PROTOCOL_HTTP)
    {
        return io_.connect_stack(std::make_unique<Memory_IO>(files_), protocol, URI(), options_,
                                 options_);
    }

    /// What the storage holds, whatever the stack.
    std::string stored(const std::string& path)
    {
        Memory_File_System::Node* const node = files_->find(path);
        if (node == nullptr)
            return "(no such file)";
        std::string data(node->bytes.size(), '\0');
        EXPECT_EQ(node->bytes.read(0, data.data(), data.size()), data.size());
        return data;
    }

    Log_Capture log_;
    std::shared_ptr<Memory_File_System> files_ = std::make_shared<Memory_File_System>();
    Client_IO_Base::Options options_;
    Open_Facade io_;
};

TEST_F(Facade_Stack, EverySetOfOptionsBuildsItsLayersInTheirOrder)
{
    for (int set = 0; set < 24; ++set) {
        options_ = Client_IO_Base::Options();
        Names expected = {"backend"};
        options_.max_retry = (set & 1) != 0 ? 5 : 0;
        if (options_.max_retry != 0)
            expected.insert(expected.begin(), "resumption");
        if ((set & 2) != 0) {
            options_.max_bytes_per_second = 1000;
            expected.insert(expected.begin(), "rate");
        }
        if ((set & 4) != 0) {
            encrypt(options_);
            expected.insert(expected.begin(), "cipher");
        }
        if (set >= 8) {
            options_.compression = set >= 16 ? COMPRESSION_ZSTD : COMPRESSION_LZOP;
            expected.insert(expected.begin(), set >= 16 ? "zstd" : "lzop");
        }
        ASSERT_TRUE(connect()) << set << io_.error();
        EXPECT_EQ(layers(io_), expected) << set;
    }
}

TEST_F(Facade_Stack, AScheduleAloneBringsRateControl)
{
    options_.rate_control.emplace_back(0, 3600, 1000);
    ASSERT_TRUE(connect());
    EXPECT_THAT(layers(io_), ElementsAre("rate", "backend"));
}

TEST_F(Facade_Stack, BtrfsConnectionsHaveNoResumption)
{
    options_.max_retry = 600;
    ASSERT_TRUE(connect(Client_IO::PROTOCOL_BTRFS_HTTP));
    EXPECT_THAT(layers(io_), ElementsAre("backend"));
}

TEST_F(Facade_Stack, LocalFilesHaveNoResumptionButEverythingElse)
{
    const Temp_Directory directory;
    options_.max_retry = 600;
    options_.max_bytes_per_second = 1000000000;
    options_.compression = COMPRESSION_ZSTD;
    encrypt(options_);
    ASSERT_TRUE(io_.connect(file_uri(directory.str()).c_str(), options_)) << io_.error();
    EXPECT_EQ(options_.max_retry, 600U);
    EXPECT_THAT(layers(io_), ElementsAre("zstd", "cipher", "rate", "backend"));
}

TEST_F(Facade_Stack, TheLevelReachesTheCodec)
{
    options_.compression = COMPRESSION_ZSTD;
    options_.compression_level = 17;
    ASSERT_TRUE(connect());
    ASSERT_FALSE(log_.messages().empty());
    EXPECT_EQ(log_.messages().back().text, "zstd io with level 17\n");
}

TEST_F(Facade_Stack, AnUnknownCompressionIsRefusedAndNothingIsStored)
{
    for (const int method : {-1, 4, 77}) {
        options_.compression = static_cast<Compression_Method>(method);
        EXPECT_FALSE(connect());
        EXPECT_EQ(io_.error(), "Unknown compression method " + std::to_string(method));
        EXPECT_FALSE(io_.is_connected());
        EXPECT_FALSE(io_.reconnect());
        EXPECT_FALSE(io_.put_contents("a", "plain", true));
        EXPECT_EQ(files_->find("a"), nullptr);
    }
}

TEST_F(Facade_Stack, AnUnknownCipherIsRefusedAndNothingIsStored)
{
    options_.encryption_algorithm = static_cast<Encryption_Algorithm>(-1);
    EXPECT_FALSE(connect());
    EXPECT_EQ(io_.error(), "Unknown encryption algorithm -1");
    EXPECT_FALSE(io_.put_contents("a", "plain", true));
    EXPECT_EQ(files_->find("a"), nullptr);
}

TEST_F(Facade_Stack, AKeyThatDoesNotSuitTheCipherFailsEveryOpenAndNothingIsStored)
{
    ASSERT_TRUE(
        options_.set_encryption_from_binary("aes-256-cbc", std::string(16, 'k'), test_iv()));
    EXPECT_TRUE(connect());
    EXPECT_FALSE(io_.put_contents("a", "plain", true));
    EXPECT_EQ(io_.error(), "The encryption key or IV does not suit the cipher");
    EXPECT_FALSE(io_.retriable());
    EXPECT_EQ(files_->find("a"), nullptr);
}

TEST_F(Facade_Stack, AutoCompressionChoosesByEachFilesName)
{
    options_.compression = COMPRESSION_AUTO;
    encrypt(options_, "aes-256-ctr");
    const std::string plain = sample_text(5000);
    const struct
    {
        const char* path;
        const char* top;
        std::string magic;
    } files[] = {{"a.zst", "zstd", zstd_magic}, {"dir.zst/b", "cipher", plain.substr(0, 4)},
                 {"c.lzo", "lzop", lzop_magic}, {"d.ZSTD", "zstd", zstd_magic},
                 {"e.txt", "cipher", "line"},   {"f.tar.LZO", "lzop", lzop_magic},
                 {"g", "cipher", "line"}};
    ASSERT_TRUE(connect());
    EXPECT_EQ(name_of(io_.io_.get()), "cipher");
    for (const auto& file : files) {
        ASSERT_TRUE(io_.put_contents(file.path, plain, true)) << file.path << io_.error();
        EXPECT_EQ(name_of(io_.io_.get()), file.top) << file.path;
        // Beneath the cipher stands what the name asks for.
        const Kind cipher{"", [](auto io) {
                              return make_cipher(std::move(io), "aes-256-ctr", test_key(32),
                                                 test_iv());
                          }};
        const Decoded beneath = decoded(cipher, stored(file.path), Form::copying);
        EXPECT_EQ(beneath.plain.substr(0, file.magic.size()), file.magic) << file.path;
    }
    for (const auto& file : files) {
        std::string back;
        EXPECT_TRUE(io_.get_contents(file.path, back)) << file.path << io_.error();
        EXPECT_EQ(back, plain) << file.path;
    }
    EXPECT_THAT(layers(io_), ElementsAre("cipher", "backend"));
}

TEST_F(Facade_Stack, SettingACompressionReplacesTheOneOnTop)
{
    encrypt(options_);
    options_.compression = COMPRESSION_ZSTD;
    ASSERT_TRUE(connect());
    io_.set_compression(COMPRESSION_LZOP);
    EXPECT_EQ(io_.compression_, COMPRESSION_LZOP);
    EXPECT_EQ(name_of(io_.io_.get()), "lzop");
    io_.set_compression(COMPRESSION_AUTO);
    EXPECT_EQ(name_of(io_.io_.get()), "lzop");
    io_.set_compression(std::string("a.zst"));
    EXPECT_EQ(name_of(io_.io_.get()), "zstd");
    EXPECT_TRUE(io_.is_connected());
    io_.set_compression(static_cast<Compression_Method>(55));
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    io_.set_compression(COMPRESSION_ZSTD);
    io_.set_compression(COMPRESSION_NONE);
    EXPECT_THAT(layers(io_), ElementsAre("cipher", "backend"));
}

TEST_F(Facade_Stack, SettingAnEncryptionReplacesTheOneOnTop)
{
    encrypt(options_);
    ASSERT_TRUE(connect());
    const auto set = [&](Encryption_Algorithm algorithm, const std::string& key) {
        const std::string iv = test_iv();
        return io_.set_encryption(algorithm, reinterpret_cast<const unsigned char*>(key.data()),
                                  static_cast<int>(key.size()),
                                  reinterpret_cast<const unsigned char*>(iv.data()), 16);
    };
    ASSERT_TRUE(set(ENCRYPTION_AES_128_CTR, test_key(16)));
    EXPECT_EQ(io_.encryption_, ENCRYPTION_AES_128_CTR);
    ASSERT_TRUE(io_.put_contents("a", "plain", true)) << io_.error();
    const Kind expected = main_kinds().at(3);
    EXPECT_EQ(stored("a"), encoded(expected, "plain"));
    // The one that is there already is not replaced, whatever the key.
    ASSERT_TRUE(set(ENCRYPTION_AES_128_CTR, std::string(16, 'x')));
    ASSERT_TRUE(io_.put_contents("a", "plain", true));
    EXPECT_EQ(stored("a"), encoded(expected, "plain"));
    EXPECT_FALSE(set(ENCRYPTION_NONE, ""));
    EXPECT_EQ(io_.error(), "Unknown encryption algorithm 0");
    EXPECT_EQ(io_.encryption_, ENCRYPTION_AES_128_CTR);
    EXPECT_THAT(layers(io_), ElementsAre("cipher", "backend"));
}

TEST_F(Facade_Stack, RandomWritesAreRefusedWithCompressionOrEncryption)
{
    const auto refused = [&] {
        ASSERT_TRUE(connect(Client_IO::PROTOCOL_FILE));
        EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_random_write, 0, 0));
        EXPECT_EQ(io_.error(), "Random write mode is not supported with compression or encryption");
        EXPECT_EQ(files_->find("a"), nullptr);
    };
    options_.compression = COMPRESSION_ZSTD;
    refused();
    options_.compression = COMPRESSION_LZOP;
    refused();
    encrypt(options_);
    refused();
    options_.compression = COMPRESSION_NONE;
    refused();
    // By the suffix of the name likewise.
    options_ = Client_IO_Base::Options();
    options_.max_retry = 0;
    options_.compression = COMPRESSION_AUTO;
    ASSERT_TRUE(connect(Client_IO::PROTOCOL_FILE));
    EXPECT_FALSE(io_.open("a.zst", Client_IO_Base::mode_random_write, 0, 0));
    EXPECT_TRUE(io_.open("a", Client_IO_Base::mode_random_write, 0, 0)) << io_.error();
}

TEST_F(Facade_Stack, FailuresOfTheCodecShowThroughAndAreNotRetriable)
{
    options_.compression = COMPRESSION_ZSTD;
    encrypt(options_);
    ASSERT_TRUE(connect());
    ASSERT_TRUE(io_.put_contents("a", "contents", true));
    files_->find("a")->bytes.truncate(7);
    std::string back;
    EXPECT_FALSE(io_.get_contents("a", back));
    EXPECT_EQ(io_.error().find("Failed to finalize decryption"), 0U) << io_.error();
    EXPECT_FALSE(io_.retriable());
}

TEST_F(Facade_Stack, ADownloadGoesOnWhereTheLocalFileEnds)
{
    const Temp_Directory directory;
    const std::string plain = sample_text(400000);
    options_.compression = COMPRESSION_ZSTD;
    encrypt(options_);
    ASSERT_TRUE(connect());
    ASSERT_TRUE(io_.put_contents("a", plain, true));
    write_local(directory / "a", plain.substr(0, 123457));
    ASSERT_TRUE(io_.get_file("a", (directory / "a").c_str(), O_WRONLY | O_APPEND, 0, {}))
        << io_.error();
    EXPECT_TRUE(read_local(directory / "a") == plain);
}

TEST_F(Facade_Stack, AStackThatRunsOutOfMemoryStoresNothing)
{
    options_.max_retry = 5;
    options_.max_bytes_per_second = 1000;
    options_.compression = COMPRESSION_ZSTD;
    encrypt(options_);
    std::size_t good = 0;
    for (bool connected = false; !connected; ++good) {
        ASSERT_LT(good, 1000U);
        auto backend = std::make_unique<Memory_IO>(files_);
        const URI uri;
        bool thrown = false;
        ACE_OS::last_error(0);
        {
            const Allocation_Failure failure(good);
            try {
                connected = io_.connect_stack(std::move(backend), Client_IO::PROTOCOL_HTTP, uri,
                                              options_, options_);
            } catch (const std::bad_alloc&) {
                thrown = true; // connect() catches what connect_stack() lets through
            }
        }
        if (connected) {
            EXPECT_THAT(layers(io_),
                        ElementsAre("zstd", "cipher", "rate", "resumption", "backend"));
        } else if (!thrown) {
            EXPECT_EQ(ACE_OS::last_error(), ENOMEM) << good;
            EXPECT_EQ(io_.error(), "") << good;
            EXPECT_EQ(io_.io_, nullptr) << good;
        }
    }
    EXPECT_GT(good, 5U);
    EXPECT_EQ(files_->find("a"), nullptr);
}

struct Whole_Stack
{
    std::string name;
    Compression_Method compression;
    const char* cipher;
};

class Facade_Offsets : public testing::TestWithParam<Whole_Stack>
{};

INSTANTIATE_TEST_SUITE_P(Of, Facade_Offsets,
                         testing::Values(Whole_Stack{"Zstd", COMPRESSION_ZSTD, nullptr},
                                         Whole_Stack{"Lzop", COMPRESSION_LZOP, nullptr},
                                         Whole_Stack{"Cbc", COMPRESSION_NONE, "aes-256-cbc"},
                                         Whole_Stack{"ChaCha20", COMPRESSION_NONE, "chacha20"},
                                         Whole_Stack{"ZstdCbc", COMPRESSION_ZSTD, "aes-256-cbc"},
                                         Whole_Stack{"LzopCtr", COMPRESSION_LZOP, "aes-128-ctr"}),
                         [](const testing::TestParamInfo<Whole_Stack>& stack) {
                             return stack.param.name;
                         });

TEST_P(Facade_Offsets, OfAnOpenAreBytesOfThePlainContents)
{
    const Log_Capture log;
    Client_IO_Base::Options options;
    options.overwrite = true;
    options.max_retry = 5;
    options.max_bytes_per_second = 1ULL << 50U;
    options.compression = GetParam().compression;
    if (GetParam().cipher != nullptr)
        encrypt(options, GetParam().cipher);
    Open_Facade io;
    ASSERT_TRUE(
        io.connect_stack(std::make_unique<Memory_IO>(std::make_shared<Memory_File_System>()),
                         Client_IO::PROTOCOL_HTTP, URI(), options, options));
    const std::string plain = sample_text(700000);
    ASSERT_TRUE(io.put_contents("a", plain, true)) << io.error();
    EXPECT_EQ(io.original_size(), plain.size());

    const char* const given = std::getenv("CLIENT_IO_SEED");
    const auto seed = given == nullptr ? std::random_device()()
                                       : static_cast<unsigned>(std::strtoul(given, nullptr, 10));
    SCOPED_TRACE("CLIENT_IO_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    for (int time = 0; time < 40; ++time) {
        const std::uint64_t offset = time == 0 ? plain.size() : random() % plain.size();
        const std::uint64_t limit = random() % 3 == 0 ? 0 : 1 + random() % 300000;
        const Form form = random() % 2 == 0 ? Form::copying : Form::zero_copy;
        ASSERT_TRUE(io.open("a", Client_IO_Base::mode_read, offset, limit)) << io.error();
        EXPECT_EQ(io.tell(), static_cast<std::int64_t>(offset));
        const std::string expected = plain.substr(offset, limit == 0 ? plain.npos : limit);
        EXPECT_EQ(read_to_end(io, form, 1 + random() % 100000), expected)
            << "offset " << offset << ", limit " << limit;
        EXPECT_EQ(io.tell(), static_cast<std::int64_t>(offset + expected.size()));
        ASSERT_TRUE(io.close()) << io.error();
    }
    for (const Form form : {Form::copying, Form::zero_copy}) {
        ASSERT_TRUE(io.open("a", Client_IO_Base::mode_read, plain.size() + 1, 0));
        const Decoded result = read_to_end(io, form);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.error, "Invalid offset");
        EXPECT_TRUE(io.close());
    }
    EXPECT_FALSE(io.open("a", Client_IO_Base::mode_write, 1, 0));
    EXPECT_EQ(io.error(), "Invalid offset");
}

TEST(Facade_Stack_Changes, AreRefusedWhileAFileIsOpenAndLoseNothingOfIt)
{
    const Temp_Directory directory;
    Client_IO::Options options;
    options.compression = COMPRESSION_ZSTD;
    Client_IO io;
    ASSERT_TRUE(io.connect(file_uri(directory / "target").c_str(), options)) << io.error();
    ASSERT_TRUE(io.open("a", Client_IO::mode_write, 0, 0));
    const std::string data(1000, 'd');
    ASSERT_TRUE(io.write(data.data(), data.size()));

    io.set_compression(COMPRESSION_NONE);
    EXPECT_EQ(io.error(), "A file is already open");
    const unsigned char key[32] = {};
    EXPECT_FALSE(io.set_encryption(ENCRYPTION_AES_256_CBC, key, 32, key, 16));
    EXPECT_EQ(io.error(), "A file is already open");

    ASSERT_TRUE(io.close());
    std::string back;
    ASSERT_TRUE(io.get_contents("a", back)) << io.error();
    EXPECT_EQ(back, data);
}

TEST(Facade_Stack_Changes, EncryptionThatComesAfterCompressionStandsBeneathIt)
{
    const Temp_Directory directory;
    Client_IO::Options options;
    options.compression = COMPRESSION_ZSTD;
    Open_Facade io;
    ASSERT_TRUE(io.connect(file_uri(directory / "target").c_str(), options)) << io.error();
    const unsigned char key[32] = {1};
    ASSERT_TRUE(io.set_encryption(ENCRYPTION_AES_256_CBC, key, 32, key, 16));
    EXPECT_NE(dynamic_cast<ZSTD_IO*>(io.io_.get()), nullptr);
    // What takes the compression away leaves the encryption.
    io.set_compression(COMPRESSION_NONE);
    EXPECT_NE(dynamic_cast<EVP_IO*>(io.io_.get()), nullptr);
    ASSERT_TRUE(io.put_contents("secret", std::string(100, 's'), false));
    EXPECT_EQ(read_local(directory / "target/secret").find("ssss"), std::string::npos);
}

TEST(Facade_Stack_Changes, AConnectionForgetsTheCompressionOfTheOneBefore)
{
    const Temp_Directory directory;
    Client_IO::Options options;
    options.compression = COMPRESSION_ZSTD;
    Open_Facade io;
    ASSERT_TRUE(io.connect(file_uri(directory / "target").c_str(), options)) << io.error();
    options.compression = COMPRESSION_NONE;
    const std::string key(32, 'k');
    ASSERT_TRUE(options.set_encryption_from_binary("aes-256-cbc", key, std::string(16, 'i')));
    ASSERT_TRUE(io.connect(file_uri(directory / "target").c_str(), options)) << io.error();
    EXPECT_NE(dynamic_cast<EVP_IO*>(io.io_.get()), nullptr);
}

TEST(Facade_Lost_File, ThatWasOpenForWritingMakesTheNextOpenFailOnce)
{
    auto files = std::make_shared<Memory_File_System>();
    Open_Facade io;
    auto memory = std::make_unique<Memory_IO>(files);
    Memory_IO* const below = memory.get();
    ASSERT_TRUE(io.connect_plain(std::move(memory)));
    ASSERT_TRUE(io.open("a", Client_IO::mode_write, 0, 0));
    ASSERT_TRUE(io.write("abc", 3));
    below->disconnect(); // the connection goes between two operations
    EXPECT_FALSE(io.open("b", Client_IO::mode_write, 0, 0));
    EXPECT_EQ(io.error(), "Failed to close previous file: the connection was lost");
    EXPECT_EQ(io.tell(), -1);
    EXPECT_TRUE(io.open("b", Client_IO::mode_write, 0, 0)) << io.error();
    EXPECT_TRUE(io.close());
}

TEST(Facade_Lost_File, WhoseCloseFailedAlreadyIsNotReportedTwice)
{
    auto files = std::make_shared<Memory_File_System>();
    Open_Facade io;
    auto memory = std::make_unique<Memory_IO>(files);
    Memory_IO* const below = memory.get();
    ASSERT_TRUE(io.connect_plain(std::move(memory)));
    ASSERT_TRUE(io.open("a", Client_IO::mode_write, 0, 0));
    below->disconnect();
    EXPECT_FALSE(io.close());
    EXPECT_TRUE(io.open("b", Client_IO::mode_write, 0, 0)) << io.error();
}

} // namespace
