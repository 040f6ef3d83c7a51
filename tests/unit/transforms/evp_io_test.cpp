#include "client_io/evp_io.h"

#include "platform/json/json_value.h"
#include "tests/support/log_capture.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <ace/Log_Priority.h>
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <openssl/err.h>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned mode_read = Client_IO_Base::mode_read;
constexpr unsigned mode_write = Client_IO_Base::mode_write;

const unsigned char* bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

class Cipher : public testing::Test
{
protected:
    /// An object whose arguments do not suit one another, and what it logged.
    std::unique_ptr<EVP_IO> make(const char* cipher, const unsigned char* key,
                                 std::uint32_t key_len, const unsigned char* iv,
                                 std::uint32_t iv_len)
    {
        log_.clear();
        return std::make_unique<EVP_IO>(std::make_unique<Store_IO>(store_), cipher, key, key_len,
                                        iv, iv_len);
    }

    /// The conditions that were logged as broken, without the place and the stack.
    std::vector<std::string> broken() const
    {
        std::vector<std::string> conditions;
        const std::string start = "Unexpected error in backup/client_io/evp_io.cpp:";
        for (const Log_Capture::Message& message : log_.messages()) {
            EXPECT_EQ(message.priority, static_cast<unsigned long>(LM_EMERGENCY));
            EXPECT_EQ(message.text.find(start), 0U) << message.text;
            const std::size_t comma = message.text.find(", ");
            conditions.push_back(
                message.text.substr(comma + 2, message.text.find('\n') - comma - 2));
        }
        return conditions;
    }

    void expect_unusable(EVP_IO& io)
    {
        const std::string init = "init_ is false:";
        store_->retriable = true;
        log_.clear();
        EXPECT_FALSE(io.open("a", mode_write, 0, 0));
        EXPECT_EQ(io.error(), "The encryption key or IV does not suit the cipher");
        EXPECT_FALSE(io.open("a", mode_read, 0, 0));
        EXPECT_FALSE(io.open("a", mode_read, json_spirit::Value()));
        char byte = 0;
        const void* data = nullptr;
        std::uint64_t size = 0;
        EXPECT_EQ(io.read(&byte, 1), -1);
        EXPECT_FALSE(io.read(data, size));
        EXPECT_FALSE(io.write("x", 1));
        EXPECT_FALSE(io.flush());
        EXPECT_FALSE(io.close());
        EXPECT_THAT(broken(), ElementsAre(init, init, init, init, init, init, init, init));
        EXPECT_FALSE(io.retriable());
        EXPECT_THAT(store_->calls, IsEmpty());
        EXPECT_EQ(store_->data, "");
    }

    Log_Capture log_;
    std::shared_ptr<Store> store_ = std::make_shared<Store>();
    const std::string key_ = test_key(32);
    const std::string iv_ = test_iv();
};

TEST_F(Cipher, AnUnknownCipherMakesTheObjectUnusable)
{
    for (const char* name : {"no-such-cipher", "", static_cast<const char*>(nullptr)}) {
        const auto io = make(name, bytes(key_), 32, bytes(iv_), 16);
        EXPECT_THAT(broken(), ElementsAre("cipher_ is NULL:"));
        expect_unusable(*io);
    }
}

TEST_F(Cipher, AMissingKeyMakesTheObjectUnusable)
{
    const auto io = make("aes-256-cbc", nullptr, 32, nullptr, 16);
    EXPECT_THAT(broken(), ElementsAre("key is NULL:"));
    expect_unusable(*io);
}

TEST_F(Cipher, AMissingIvMakesTheObjectUnusable)
{
    const auto io = make("aes-256-cbc", bytes(key_), 32, nullptr, 16);
    EXPECT_THAT(broken(), ElementsAre("iv is NULL:"));
    expect_unusable(*io);
}

TEST_F(Cipher, AKeyOfAnotherLengthMakesTheObjectUnusable)
{
    const std::string long_key = test_key(64);
    for (const std::uint32_t length : {0U, 1U, 16U, 31U, 33U, 64U, 0xFFFFFFFFU}) {
        // The length of the IV is wrong too: the key is looked at first.
        const auto io = make("aes-256-cbc", bytes(long_key), length, bytes(iv_), 12);
        EXPECT_THAT(broken(), ElementsAre("EVP_CIPHER_key_length(cipher_)=32 != key_len_=" +
                                          std::to_string(length) + ":"));
        expect_unusable(*io);
    }
}

TEST_F(Cipher, AnIvOfAnotherLengthMakesTheObjectUnusable)
{
    for (const std::uint32_t length : {0U, 8U, 12U, 15U, 17U, 0xFFFFFFFFU}) {
        const auto io = make("aes-256-cbc", bytes(key_), 32, bytes(iv_), length);
        EXPECT_THAT(broken(), ElementsAre("EVP_CIPHER_iv_length(cipher_)=16 != iv_len_=" +
                                          std::to_string(length) + ":"));
        expect_unusable(*io);
    }
}

TEST_F(Cipher, KeysAndIvsNeverReachTheLog)
{
    const std::string key = "a key that nobody may ever see!!";
    const std::string iv = "and an IV of it.";
    {
        const auto io = make("aes-256-cbc", bytes(key), 32, bytes(iv), 16);
        EXPECT_TRUE(io->open("a", mode_write, 0, 0));
        EXPECT_TRUE(io->close());
    }
    make("aes-128-cbc", bytes(key), 32, bytes(iv), 16);
    make("aes-256-cbc", bytes(key), 32, bytes(iv), 12);
    for (const Log_Capture::Message& message : log_.messages()) {
        EXPECT_EQ(message.text.find("nobody"), std::string::npos);
        EXPECT_EQ(message.text.find("an IV"), std::string::npos);
    }
}

TEST_F(Cipher, AMissingLowerLayerIsLogged)
{
    EVP_IO io(nullptr, "aes-256-cbc", bytes(key_), 32, bytes(iv_), 16);
    log_.clear();
    char byte = 0;
    EXPECT_FALSE(io.open("a", mode_write, 0, 0));
    EXPECT_FALSE(io.write("x", 1));
    EXPECT_EQ(io.read(&byte, 1), -1);
    EXPECT_THAT(broken(), ElementsAre("_io is NULL:", "_io is NULL:", "_io is NULL:"));
}

TEST_F(Cipher, AReadBeforeAnyOpenForReadingIsLogged)
{
    const auto io = make("aes-256-cbc", bytes(key_), 32, bytes(iv_), 16);
    char byte = 0;
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(io->read(&byte, 1), -1);
    EXPECT_FALSE(io->read(data, size));
    EXPECT_THAT(broken(), ElementsAre("io_buf_ is NULL:", "io_buf_ is NULL:"));
}

TEST_F(Cipher, NamesAreThoseOfOpenSslInAnyCase)
{
    for (const Encryption_Algorithm cipher : all_ciphers())
        for (const bool short_name : {false, true}) {
            const char* const name = encryption_value_to_name(cipher, short_name);
            const std::string key = test_key(key_length(name));
            const auto io =
                make(name, bytes(key), static_cast<std::uint32_t>(key.size()), bytes(iv_), 16);
            EXPECT_TRUE(io->open("a", mode_write, 0, 0)) << name;
            EXPECT_TRUE(io->close()) << name;
            EXPECT_THAT(broken(), IsEmpty()) << name;
        }
}

TEST_F(Cipher, OnlyCloseWritesThePartialBlock)
{
    const auto io = make("aes-256-cbc", bytes(key_), 32, bytes(iv_), 16);
    ASSERT_TRUE(io->open("a", mode_write, 0, 0));
    ASSERT_TRUE(io->write("0123456789abcdef+", 17));
    EXPECT_EQ(store_->data.size(), 16U);
    ASSERT_TRUE(io->flush());
    EXPECT_EQ(store_->data.size(), 16U);
    EXPECT_EQ(store_->calls.back(), "flush");
    ASSERT_TRUE(io->close());
    EXPECT_EQ(store_->data.size(), 32U);
}

TEST_F(Cipher, StreamModesWriteEveryByteAtOnceAndNothingMore)
{
    for (const char* name : {"aes-256-ctr", "aes-256-cfb", "aes-256-ofb", "chacha20"}) {
        store_->data.clear();
        const auto io = make(name, bytes(key_), 32, bytes(iv_), 16);
        ASSERT_TRUE(io->open("a", mode_write, 0, 0));
        ASSERT_TRUE(io->write("0123456789abcdef+", 17));
        EXPECT_EQ(store_->data.size(), 17U) << name;
        ASSERT_TRUE(io->close());
        EXPECT_EQ(store_->data.size(), 17U) << name;
    }
}

TEST_F(Cipher, EveryFileBeginsAnewWithTheSameKeyAndIv)
{
    const auto io = make("aes-256-cbc", bytes(key_), 32, bytes(iv_), 16);
    std::string first;
    for (int file = 0; file < 3; ++file) {
        ASSERT_TRUE(io->open("a", mode_write, 0, 0));
        ASSERT_TRUE(io->write("the same contents", 17));
        ASSERT_TRUE(io->close());
        if (file == 0)
            first = store_->data;
        EXPECT_EQ(store_->data, first);
    }
}

Decoded read_with(const std::string& cipher, const std::string& key, const std::string& iv,
                  const std::string& stored, Form form)
{
    const auto store = std::make_shared<Store>();
    store->data = stored;
    store->retriable = true;
    const auto io = make_cipher(std::make_unique<Store_IO>(store), cipher, key, iv);
    EXPECT_TRUE(io->open("a", mode_read, 0, 0));
    return read_to_end(*io, form);
}

constexpr char failed_end[] = "Failed to finalize decryption: error:";

TEST_F(Cipher, AWrongKeyFailsAtTheEndAndIsNotRetriable)
{
    const std::string stored = encoded(main_kinds().at(2), sample_text(1000));
    std::string key = key_;
    key[31] = static_cast<char>(key[31] ^ 1);
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const Decoded result = read_with("aes-256-cbc", key, iv_, stored, form);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.error.find(failed_end), 0U) << result.error;
        EXPECT_FALSE(result.retriable);
    }
}

TEST_F(Cipher, AWrongIvFailsWhereThereIsOneBlockOnlyAndElseGarblesTheFirst)
{
    std::string iv = iv_;
    iv[15] = static_cast<char>(iv[15] ^ 0x40);
    const std::string one_block = encoded(main_kinds().at(2), "short");
    const std::string plain = sample_text(1000);
    const std::string stored = encoded(main_kinds().at(2), plain);
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const Decoded refused = read_with("aes-256-cbc", key_, iv, one_block, form);
        EXPECT_TRUE(refused.failed);
        EXPECT_EQ(refused.error.find(failed_end), 0U) << refused.error;
        EXPECT_FALSE(refused.retriable);
        const Decoded garbled = read_with("aes-256-cbc", key_, iv, stored, form);
        EXPECT_FALSE(garbled.failed);
        EXPECT_EQ(garbled.plain.substr(16), plain.substr(16));
        EXPECT_NE(garbled.plain.substr(0, 16), plain.substr(0, 16));
    }
}

TEST_F(Cipher, CutCiphertextFailsAtItsEnd)
{
    const std::string stored = encoded(main_kinds().at(2), sample_text(1000));
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16}, std::size_t{17},
                                   stored.size() - 16, stored.size() - 1})
        for (const Form form : {Form::copying, Form::zero_copy}) {
            const Decoded result =
                read_with("aes-256-cbc", key_, iv_, stored.substr(0, size), form);
            EXPECT_TRUE(result.failed) << size;
            EXPECT_EQ(result.error.find(failed_end), 0U) << result.error;
            EXPECT_NE(result.error.find("wrong final block length") != std::string::npos,
                      result.error.find("bad decrypt") != std::string::npos)
                << result.error;
            EXPECT_FALSE(result.retriable) << size;
        }
}

TEST_F(Cipher, StreamModesNoticeNothing)
{
    // docs/security.md says so; were it otherwise the page would be wrong.
    const std::string plain = sample_text(1000);
    std::string key = key_;
    key[0] = static_cast<char>(key[0] ^ 1);
    for (const char* name : {"aes-256-ctr", "aes-256-cfb", "aes-256-ofb", "chacha20"}) {
        const Kind kind{name, [&](auto io) { return make_cipher(std::move(io), name, key_, iv_); }};
        const std::string stored = encoded(kind, plain);
        EXPECT_EQ(read_with(name, key_, iv_, stored.substr(0, 100), Form::copying),
                  plain.substr(0, 100));
        EXPECT_FALSE(read_with(name, key, iv_, stored, Form::copying).failed);
        EXPECT_EQ(read_with(name, key_, iv_, "", Form::zero_copy), "");
    }
}

TEST_F(Cipher, AFailureLeavesOpenSslsErrorQueueEmpty)
{
    const std::string stored = encoded(main_kinds().at(2), "short");
    EXPECT_TRUE(read_with("aes-256-cbc", key_, iv_, stored.substr(1), Form::copying).failed);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

bool contains(const std::vector<unsigned char>& memory, const std::string& what)
{
    return std::search(memory.begin(), memory.end(), what.begin(), what.end(),
                       [](unsigned char a, char b) {
                           return a == static_cast<unsigned char>(b);
                       }) != memory.end();
}

TEST_F(Cipher, KeyIvAndPlainBytesAreWipedAtDestruction)
{
    alignas(EVP_IO) static unsigned char place[sizeof(EVP_IO)];
    const auto memory = [] {
        // Read byte by byte: what a destroyed object left there must not be guessed.
        const volatile unsigned char* const from = place;
        return std::vector<unsigned char>(from, from + sizeof place);
    };
    const std::string secret = "the plain text of a file that nobody else may read";
    store_->data = encoded(main_kinds().at(2), secret);

    auto* const io = new (place)
        EVP_IO(std::make_unique<Store_IO>(store_), "aes-256-cbc", bytes(key_), 32, bytes(iv_), 16);
    ASSERT_TRUE(io->open("a", mode_read, 0, 0));
    const void* data = nullptr;
    std::uint64_t size = 0;
    ASSERT_TRUE(io->read(data, size));
    ASSERT_EQ(size, 48U); // whole blocks; the last one comes with the end
    // The search finds them while they must be there.
    EXPECT_TRUE(contains(memory(), key_));
    EXPECT_TRUE(contains(memory(), iv_));
    EXPECT_TRUE(contains(memory(), secret.substr(0, 48)));
    io->~EVP_IO();
    EXPECT_FALSE(contains(memory(), key_.substr(0, 8)));
    EXPECT_FALSE(contains(memory(), key_.substr(24)));
    EXPECT_FALSE(contains(memory(), iv_.substr(0, 8)));
    EXPECT_FALSE(contains(memory(), secret.substr(0, 8)));
    EXPECT_FALSE(contains(memory(), secret.substr(40, 8)));
}

} // namespace
