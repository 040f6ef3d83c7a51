#include "client_io/client_io_base.h"
#include "platform/json/json_value.h"
#include "platform/runtime/base64.h"
#include "tests/support/log_capture.h"

#include <ace/Log_Priority.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using Options = Client_IO_Base::Options;

// 65 bytes and 64 bytes of zeros in base64.
const std::string base64_of_65 = std::string(86, 'A') + "A=";
const std::string base64_of_64 = std::string(86, 'A') + "==";

Object written(const Options& options)
{
    Object object;
    options >> object;
    return object;
}

std::vector<std::string> keys(const Object& object)
{
    std::vector<std::string> result;
    for (const auto& [key, value] : object)
        result.push_back(key);
    return result;
}

bool same(const Options& a, const Options& b)
{
    return written(a) == written(b);
}

TEST(Options_Record, HasTheDocumentedDefaults)
{
    const Options options;
    EXPECT_FALSE(options.overwrite);
    EXPECT_EQ(options.socket_timeout, 60);
    EXPECT_EQ(options.max_retry, 600U);
    EXPECT_EQ(options.resumption_buffer_size, 10485760U);
    EXPECT_FALSE(options.forward);
    EXPECT_EQ(options.max_bytes_per_second, 0U);
    EXPECT_TRUE(options.rate_control.empty());
    EXPECT_EQ(options.compression, COMPRESSION_NONE);
    EXPECT_EQ(options.compression_level, 1);
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_THAT(options.encryption_key, testing::Each(0));
    EXPECT_EQ(sizeof options.encryption_key, 64U);
    EXPECT_EQ(options.encryption_key_len, 0U);
    EXPECT_THAT(options.encryption_iv, testing::Each(0));
    EXPECT_EQ(sizeof options.encryption_iv, 16U);
    EXPECT_EQ(options.encryption_iv_len, 0U);
    EXPECT_EQ(options.dedup_chunk_size, 0U);
    EXPECT_EQ(options.dedup_max_memory, 0U);
    EXPECT_FALSE(options.flush_after_write);
    EXPECT_EQ(options.access_key, "");
    EXPECT_EQ(options.secret_key, "");
    EXPECT_EQ(options.preferred_source_address, "");
    EXPECT_EQ(options.d2t_access_mode, 0);
    EXPECT_TRUE(options.node_addrs.empty());
    EXPECT_TRUE(options.extra_options.empty());
}

TEST(Options_JSON, ADefaultRecordIsWrittenWith15KeysAndEmptyExtraOpts)
{
    const Object object = written(Options{});
    EXPECT_EQ(keys(object), (std::vector<std::string>{
                                "access_key", "compression", "compression_level", "d2t_access_mode",
                                "dedup_chunk_size", "dedup_max_memory", "extra_opts",
                                "flush_after_write", "forward", "max_bytes_per_second", "max_retry",
                                "overwrite", "preferred_source_address", "resumption_buffer_size",
                                "secret_key", "socket_timeout"}));
    EXPECT_EQ(object.at("extra_opts"), Value(Value::object()));
    EXPECT_EQ(object.at("compression"), Value(""));
    EXPECT_EQ(object.at("compression_level"), Value(1));
    EXPECT_EQ(object.at("max_retry"), Value(600));
}

TEST(Options_JSON, EveryFieldSurvivesWritingAndReading)
{
    Options options;
    options.overwrite = true;
    options.socket_timeout = -5;
    options.max_retry = ~std::uint64_t{0};
    options.resumption_buffer_size = 1;
    options.forward = true;
    options.max_bytes_per_second = 1ULL << 40U;
    options.rate_control = {{0, 3600, 1000}, {3600, 7200, 0}};
    options.compression = COMPRESSION_ZSTD;
    options.compression_level = 19;
    ASSERT_TRUE(options.set_encryption_from_binary("aes-256-cbc", std::string(32, 'k'),
                                                   std::string(16, 'i')));
    options.dedup_chunk_size = 2;
    options.dedup_max_memory = 3;
    options.flush_after_write = true;
    options.access_key = "access";
    options.secret_key = "secret \"quoted\"";
    options.preferred_source_address = "10.0.0.1";
    options.d2t_access_mode = -7;
    options.node_addrs = {{-1, "first"}, {2, "second"}};
    options.set_extra_option("x", "1");

    Object object = written(options);
    EXPECT_EQ(object.at("compression"), Value("zstd"));
    EXPECT_EQ(object.at("encryption"), Value("aes-256-cbc"));
    EXPECT_EQ(object.at("iv"), Value("aWlpaWlpaWlpaWlpaWlpaQ=="));
    Options copy;
    ASSERT_TRUE(copy << object);
    EXPECT_TRUE(same(copy, options));
    EXPECT_EQ(copy.max_retry, ~std::uint64_t{0});
    EXPECT_EQ(copy.rate_control, options.rate_control);
    EXPECT_EQ(copy.compression, COMPRESSION_ZSTD);
    EXPECT_EQ(copy.encryption_algorithm, ENCRYPTION_AES_256_CBC);
    EXPECT_EQ(copy.encryption_key_len, 32U);
    EXPECT_EQ(std::string(copy.encryption_key, copy.encryption_key + 32), std::string(32, 'k'));
    EXPECT_EQ(copy.node_addrs, options.node_addrs);
    EXPECT_EQ(copy.extra_options, options.extra_options);
}

TEST(Options_JSON, ListsAreWrittenInTheirForm)
{
    Options options;
    options.rate_control = {{60, 120, 1000}};
    options.node_addrs = {{2, "b"}, {1, "a"}};
    const Object object = written(options);
    EXPECT_EQ(
        object.at("rate_control"),
        Value(Array{{{"start_time", 60}, {"end_time", 120}, {"max_bytes_per_second", 1000}}}));
    EXPECT_EQ(object.at("node_addrs"),
              Value(Array{{{"node_id", 1}, {"address", "a"}}, {{"node_id", 2}, {"address", "b"}}}));
}

TEST(Options_JSON, AbsentKeysLeaveTheFields)
{
    Options options;
    options.socket_timeout = 5;
    options.rate_control = {{0, 1, 2}};
    options.access_key = "kept";
    const Object before = written(options);
    EXPECT_TRUE(options << Object{});
    EXPECT_TRUE(options << (Object{{"no_such_key", 1}}));
    EXPECT_EQ(written(options), before);
}

TEST(Options_JSON, ACompressionLevelAloneIsNotRead)
{
    Options options;
    EXPECT_TRUE(options << (Object{{"compression_level", 9}}));
    EXPECT_EQ(options.compression_level, 1);
    EXPECT_TRUE(options << (Object{{"compression", "lzop"}, {"compression_level", 9}}));
    EXPECT_EQ(options.compression_level, 9);
    EXPECT_EQ(options.compression, COMPRESSION_LZOP);
}

TEST(Options_JSON, AnUnknownCompressionBecomesMinusOne)
{
    Options options;
    EXPECT_TRUE(options << (Object{{"compression", "rot13"}}));
    EXPECT_EQ(static_cast<int>(options.compression), -1);
}

TEST(Options_JSON, AKeyThatDecodesTo65BytesIsRefused)
{
    Options options;
    EXPECT_FALSE(
        options << (Object{{"encryption", "aes-256-cbc"}, {"key", base64_of_65}, {"iv", ""}}));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_TRUE(
        options << (Object{{"encryption", "aes-256-cbc"}, {"key", base64_of_64}, {"iv", ""}}));
    EXPECT_EQ(options.encryption_key_len, 64U);
    EXPECT_EQ(options.encryption_iv_len, 0U);
}

TEST(Options_JSON, FailedEncryptionKeepsWhatWasReadBeforeAndReadsNothingBehind)
{
    Options options;
    EXPECT_FALSE(options << (Object{{"overwrite", true},
                                    {"compression", "zstd"},
                                    {"encryption", "aes-256-cbc"},
                                    {"extra_opts", {{"a", "b"}}},
                                    {"node_addrs", Array{{{"node_id", 1}, {"address", "a"}}}}}));
    EXPECT_TRUE(options.overwrite);
    EXPECT_EQ(options.compression, COMPRESSION_ZSTD);
    EXPECT_TRUE(options.extra_options.empty());
    EXPECT_TRUE(options.node_addrs.empty());
}

TEST(Options_JSON, NodeAddressesWithoutIdOrAddressAreDropped)
{
    Options options;
    EXPECT_TRUE(options << (Object{{"node_addrs", Array{{{"node_id", 0}, {"address", "zero"}},
                                                        {{"node_id", 5}, {"address", ""}},
                                                        {{"node_id", 6}},
                                                        {{"address", "alone"}},
                                                        "text",
                                                        {{"node_id", 7}, {"address", "seven"}}}}}));
    EXPECT_EQ(options.node_addrs, (std::map<std::int32_t, std::string>{{7, "seven"}}));
}

TEST(Options_JSON, ExtraOptsThatAreNumbersAreDroppedAndStringsAdded)
{
    Options options;
    options.set_extra_option("kept", "1");
    options.set_extra_option("replaced", "old");
    EXPECT_TRUE(
        options << (Object{{"extra_opts", {{"number", 5}, {"text", "2"}, {"replaced", "new"}}}}));
    EXPECT_EQ(options.extra_options, (std::map<std::string, std::string>{
                                         {"kept", "1"}, {"replaced", "new"}, {"text", "2"}}));
}

TEST(Options_JSON, RateControlReplacesTheEntries)
{
    Options options;
    options.rate_control = {{1, 2, 3}};
    EXPECT_TRUE(options << (Object{{"rate_control", Array{}}}));
    EXPECT_TRUE(options.rate_control.empty());
}

TEST(Options_JSON, ABadRateControlEntryIsLoggedAndKeepsThoseBeforeIt)
{
    const Value good = {{"start_time", 1}, {"end_time", 2}, {"max_bytes_per_second", 3}};
    for (const Value& bad :
         {Value("text"), Value(7), Value(Array{}),
          Value({{"start_time", "noon"}, {"end_time", 2}, {"max_bytes_per_second", 3}})})
    {
        Options options;
        Log_Capture capture;
        EXPECT_TRUE(options << (Object{{"rate_control", Array{good, bad, good}},
                                       {"extra_opts", {{"read", "on"}}}}));
        EXPECT_EQ(options.rate_control, (std::vector<Rate_Control_Entry>{{1, 2, 3}})) << bad;
        EXPECT_EQ(options.extra_options.count("read"), 1U);
        ASSERT_EQ(capture.messages().size(), 1U) << bad;
        EXPECT_THAT(capture.messages()[0].text,
                    testing::MatchesRegex("Failed to parse rate control entries: .+\\.\n"));
    }
}

TEST(Options_JSON, MembersOfTheWrongTypeLeaveTheirFieldsAndNeverCrash)
{
    const Options defaults;
    const Object object = written(defaults);
    for (const Value& wrong : {Value(nullptr), Value(Array{1}), Value({{"a", 1}}), Value(1.5)}) {
        for (const auto& [key, value] : object) {
            if (value.type() == wrong.type())
                continue; // "extra_opts" is an object itself
            Options options;
            const Log_Capture capture;
            EXPECT_TRUE(options << (Object{{key, wrong}})) << key << wrong;
            EXPECT_TRUE(same(options, defaults)) << key << wrong;
        }
        Options options;
        const Log_Capture capture;
        options << (Object{{"node_addrs", wrong}, {"rate_control", 5}, {"iv", wrong}});
        EXPECT_TRUE(same(options, defaults)) << wrong;
    }
}

TEST(Options_JSON, NumbersOutOfRangeLeaveTheirFields)
{
    Options options;
    const Log_Capture capture;
    EXPECT_TRUE(options << (Object{{"socket_timeout", 1LL << 40}, {"max_retry", -1}}));
    EXPECT_EQ(options.socket_timeout, 60);
    EXPECT_EQ(options.max_retry, 600U);
}

TEST(Options_Encryption, AlgorithmNoneAlwaysSucceedsWhateverTheOtherArguments)
{
    Options options;
    ASSERT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CBC, std::string(16, 'k'),
                                                   std::string(16, 'i')));
    EXPECT_TRUE(options.set_encryption_from_binary(ENCRYPTION_NONE, nullptr, 1000, nullptr, 1000));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_EQ(options.encryption_key_len, 0U);
    EXPECT_EQ(options.encryption_iv_len, 0U);
    EXPECT_EQ(options.encryption_key[0], 'k');
    EXPECT_EQ(options.encryption_iv[0], 'i');
}

TEST(Options_Encryption, KeyAndIVLengthsHaveLimitsAndARefusalChangesNothing)
{
    const std::vector<unsigned char> bytes(65, 'x');
    Options options;
    ASSERT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CBC, std::string(16, 'k'),
                                                   std::string(16, 'i')));
    const Object before = written(options);
    const auto set = [&](const unsigned char* key, std::uint64_t key_len, std::uint64_t iv_len) {
        return options.set_encryption_from_binary(ENCRYPTION_AES_256_CBC, key, key_len,
                                                  bytes.data(), iv_len);
    };
    EXPECT_FALSE(set(nullptr, 16, 16));
    EXPECT_FALSE(set(bytes.data(), 0, 16));
    EXPECT_FALSE(set(bytes.data(), 65, 16));
    EXPECT_FALSE(set(bytes.data(), 32, 17));
    EXPECT_FALSE(set(bytes.data(), ~std::uint64_t{0}, 16));
    EXPECT_EQ(written(options), before);
    EXPECT_TRUE(set(bytes.data(), 1, 0));
    EXPECT_TRUE(set(bytes.data(), 64, 16));
    EXPECT_EQ(options.encryption_key_len, 64U);
}

TEST(Options_Encryption, ANullIVKeepsTheFormerBytesUnderTheNewLength)
{
    Options options;
    const unsigned char key[16] = {1};
    const unsigned char iv[16] = {7, 8, 9};
    ASSERT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CBC, key, 16, iv, 16));
    ASSERT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CBC, key, 16, nullptr, 8));
    EXPECT_EQ(options.encryption_iv_len, 8U);
    EXPECT_EQ(options.encryption_iv[1], 8);
}

TEST(Options_Encryption, ByNameRefusesNoneAndPassesAnUnknownNameOnAsMinusOne)
{
    Options options;
    EXPECT_FALSE(options.set_encryption_from_binary("none", std::string(16, 'k'), std::string()));
    EXPECT_FALSE(options.set_encryption_from_binary("", std::string(16, 'k'), std::string()));
    EXPECT_EQ(options.encryption_key_len, 0U);
    const unsigned char key[16] = {};
    EXPECT_TRUE(options.set_encryption_from_binary("rot13", key, 16, nullptr, 0));
    EXPECT_EQ(static_cast<int>(options.encryption_algorithm), -1);
    EXPECT_TRUE(options.set_encryption_from_binary("AES-128-CTR", key, 16, nullptr, 0));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_AES_128_CTR);
}

TEST(Options_Encryption, FromBase64TakesKeyAndIV)
{
    Options options;
    EXPECT_TRUE(options.set_encryption_from_base64("aes-128-cbc", "a2V5", "aXY="));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_AES_128_CBC);
    EXPECT_EQ(options.encryption_key_len, 3U);
    EXPECT_EQ(std::string(options.encryption_key, options.encryption_key + 3), "key");
    EXPECT_EQ(options.encryption_iv_len, 2U);
    EXPECT_EQ(std::string(options.encryption_iv, options.encryption_iv + 2), "iv");
    EXPECT_TRUE(
        options.set_encryption_from_base64("aes-256-cbc", std::string("a2V5"), std::string()));
    EXPECT_EQ(options.encryption_iv_len, 0U);
}

TEST(Options_Encryption, FromBase64RefusesWhatDoesNotServe)
{
    const char* key = "a2V5";
    const std::string iv_of_17 = "AAAAAAAAAAAAAAAAAAAAAAA=";
    Options options;
    EXPECT_FALSE(options.set_encryption_from_base64("none", key, ""));
    EXPECT_FALSE(options.set_encryption_from_base64("aes-128-cbc", nullptr, ""));
    EXPECT_FALSE(
        options.set_encryption_from_base64("aes-128-cbc", key, static_cast<const char*>(nullptr)));
    EXPECT_FALSE(options.set_encryption_from_base64("aes-128-cbc", "", ""));
    EXPECT_FALSE(options.set_encryption_from_base64("aes-128-cbc", "not base64!", ""));
    EXPECT_FALSE(options.set_encryption_from_base64("aes-128-cbc", key, iv_of_17.c_str()));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_NONE);
}

TEST(Options_Extra, AreSetReplacedAndRead)
{
    Options options;
    std::string value = "untouched";
    EXPECT_FALSE(options.get_extra_option("key", value));
    EXPECT_EQ(value, "untouched");
    options.set_extra_option("key", "1");
    options.set_extra_option("key", std::string("2\0 3", 4));
    EXPECT_TRUE(options.get_extra_option("key", value));
    EXPECT_EQ(value, std::string("2\0 3", 4));
}

TEST(Options_Extra, D2TPortIs50309UntilItIsSet)
{
    Options options;
    EXPECT_EQ(options.get_d2t_rpc_port(), 50309);
    EXPECT_EQ(options.get_d2t_rpc_host(), "127.0.0.1");
    options.set_d2t_rpc_port(8080);
    options.set_d2t_rpc_host("tape");
    EXPECT_EQ(options.get_d2t_rpc_port(), 8080);
    EXPECT_EQ(options.get_d2t_rpc_host(), "tape");
    EXPECT_EQ(written(options).at("extra_opts"),
              Value({{"D2T_RPC_HOST", "tape"}, {"D2T_RPC_PORT", "8080"}}));
}

TEST(Options_Extra, D2TPortIsConvertedLikeANumberAtTheStartOfAText)
{
    Options options;
    options.set_extra_option("D2T_RPC_PORT", "123abc");
    EXPECT_EQ(options.get_d2t_rpc_port(), 123);
    options.set_extra_option("D2T_RPC_PORT", "text");
    EXPECT_EQ(options.get_d2t_rpc_port(), 0);
    options.set_extra_option("D2T_RPC_PORT", "65537");
    EXPECT_EQ(options.get_d2t_rpc_port(), 1);
    options.set_d2t_rpc_port(65535);
    EXPECT_EQ(options.get_d2t_rpc_port(), 65535);
}

TEST(Options_Record, ACopyIsIndependent)
{
    Options options;
    ASSERT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CBC, std::string(16, 'k'),
                                                   std::string(16, 'i')));
    options.set_extra_option("a", "1");
    Options copy(options);
    EXPECT_TRUE(same(copy, options));
    copy.encryption_key[0] = 'z';
    copy.set_extra_option("a", "2");
    EXPECT_EQ(options.encryption_key[0], 'k');
    EXPECT_EQ(options.extra_options.at("a"), "1");
    options = copy;
    EXPECT_EQ(options.extra_options.at("a"), "2");
}

TEST(Options_JSON, NamesAndKeysAreNotCutAtANulByte)
{
    Client_IO_Base::Options options;
    const std::string key = Base64_Encoder::encode("0123456789abcdef", 16);
    json_spirit::Object object{{"encryption", "aes-128-cbc"}, {"key", key + '\0'}, {"iv", key}};
    EXPECT_FALSE(options << object);
    object["key"] = key;
    object["encryption"] = std::string("aes-128-cbc\0x", 13);
    EXPECT_TRUE(options << object);
    EXPECT_EQ(options.encryption_algorithm, -1); // as for any unknown name
    object = {{"compression", std::string("zstd\0x", 6)}};
    EXPECT_TRUE(options << object);
    EXPECT_EQ(options.compression, -1);
}

} // namespace
