#include "cli/option_table.h"

#include "cli/failure.h"
#include "platform/json/json_value.h"
#include "tests/cli/cli_test.h"

#include <set>

using cio::read_options;
using cio::Usage_Error;

namespace
{

Client_IO_Base::Options assigned(std::vector<std::string> assignments)
{
    return read_options({std::nullopt, std::move(assignments)});
}

std::string refusal(std::vector<std::string> assignments)
{
    try {
        (void)assigned(std::move(assignments));
    } catch (const Usage_Error& error) {
        return error.what();
    }
    return "accepted";
}

} // namespace

TEST(Option_Table, HoldsEveryKeyThatTheLibraryWrites)
{
    Client_IO_Base::Options options;
    const std::string key(32, 'k');
    const std::string iv(16, 'i');
    ASSERT_TRUE(options.set_encryption_from_binary("aes-256-cbc", key, iv));
    options.rate_control.emplace_back(0, 1, 2);
    options.node_addrs[1] = "a";
    json_spirit::Object written;
    options >> written;
    const std::vector<std::string> keys = cio::option_keys();
    std::set<std::string> expected;
    for (const auto& [name, value] : written)
        expected.insert(name);
    EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()), expected);
}

TEST(Option_Table, EveryAssignmentReachesItsField)
{
    const Client_IO_Base::Options options =
        assigned({"overwrite=true",
                  "socket_timeout=-5",
                  "max_retry=7",
                  "resumption_buffer_size=8",
                  "forward=1",
                  "max_bytes_per_second=18446744073709551615",
                  "compression=zstd",
                  "compression_level=19",
                  "dedup_chunk_size=1",
                  "dedup_max_memory=2",
                  "flush_after_write=false",
                  "access_key=a=b",
                  "secret_key=",
                  "preferred_source_address=::1",
                  "d2t_access_mode=3",
                  "extra_opts.NAME=v=w",
                  "extra_opts.other=",
                  R"(extra_opts={"j":"k"})",
                  R"(node_addrs=[{"node_id":4,"address":"x"}])",
                  R"(rate_control=[{"start_time":1,"end_time":2,"max_bytes_per_second":3}])"});
    EXPECT_TRUE(options.overwrite);
    EXPECT_EQ(options.socket_timeout, -5);
    EXPECT_EQ(options.max_retry, 7U);
    EXPECT_EQ(options.resumption_buffer_size, 8U);
    EXPECT_TRUE(options.forward);
    EXPECT_EQ(options.max_bytes_per_second, ~std::uint64_t{0});
    EXPECT_EQ(options.compression, COMPRESSION_ZSTD);
    EXPECT_EQ(options.compression_level, 19);
    EXPECT_EQ(options.dedup_chunk_size, 1U);
    EXPECT_EQ(options.dedup_max_memory, 2U);
    EXPECT_FALSE(options.flush_after_write);
    EXPECT_EQ(options.access_key, "a=b");
    EXPECT_EQ(options.secret_key, "");
    EXPECT_EQ(options.preferred_source_address, "::1");
    EXPECT_EQ(options.d2t_access_mode, 3);
    EXPECT_EQ(options.extra_options,
              (std::map<std::string, std::string>{{"NAME", "v=w"}, {"other", ""}, {"j", "k"}}));
    EXPECT_EQ(options.node_addrs, (std::map<std::int32_t, std::string>{{4, "x"}}));
    ASSERT_EQ(options.rate_control.size(), 1U);
    EXPECT_EQ(options.rate_control[0], Rate_Control_Entry(1, 2, 3));
}

TEST(Option_Table, EncryptionNeedsAKeyUnlessItIsNone)
{
    const Client_IO_Base::Options options = assigned(
        {"encryption=AES-128-CTR", "key=AAECAwQFBgcICQoLDA0ODw==", "iv=Dw4NDAsKCQgHBgUEAwIBAA=="});
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_AES_128_CTR);
    EXPECT_EQ(options.encryption_key_len, 16U);
    EXPECT_EQ(options.encryption_key[15], 15U);
    EXPECT_EQ(options.encryption_iv_len, 16U);
    EXPECT_EQ(options.encryption_iv[15], 0U);
    EXPECT_EQ(assigned({"encryption=none"}).encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_EQ(refusal({"encryption=aes-256-cbc"}),
              "cipher aes-256-cbc takes a key of 32 bytes, but none is given (--key-file, option "
              "'key' or CIO_ENCRYPTION_KEY)");
}

TEST(Option_Table, UnknownNamesOfMethodsGetTheNearest)
{
    EXPECT_NE(refusal({"compression=zst"}).find("did you mean 'zstd'?"), std::string::npos);
    EXPECT_NE(refusal({"encryption=aes256-cbc", "key=AA=="}).find("did you mean 'aes-256-cbc'?"),
              std::string::npos);
}

TEST(Option_Table, ValuesThatDoNotFitAreRefused)
{
    for (const char* assignment :
         {"overwrite=yes", "overwrite=", "socket_timeout=2147483648", "socket_timeout=1.5",
          "max_retry=-1", "max_retry=18446744073709551616", "max_retry=1e3", "max_retry=",
          "compression=3", "key=***", "key=", "iv=AAAAAAAAAAAAAAAAAAAAAAAAAAA=", "rate_control=[1]",
          R"(rate_control=[{"start_time":1}])", "node_addrs={}", R"(extra_opts={"a":1})",
          "extra_opts=a"})
        EXPECT_NE(refusal({assignment}).find("must be a value of type"), std::string::npos)
            << assignment;
    EXPECT_NE(refusal({"extra_opts.=x"}).find("unknown option"), std::string::npos);
    EXPECT_NE(refusal({"=x"}).find("unknown option"), std::string::npos);
    EXPECT_NE(refusal({""}).find("unknown option"), std::string::npos);
}

TEST(Option_Table, EnvironmentStandsBetweenFileAndAssignments)
{
    {
        const Environment_Variable secret("CIO_SECRET_KEY", "from \xC3\xA4 environment");
        EXPECT_EQ(assigned({}).secret_key, "from \xC3\xA4 environment");
        EXPECT_EQ(assigned({"secret_key=from command line"}).secret_key, "from command line");
    }
    EXPECT_EQ(assigned({}).secret_key, "");
}

TEST(Option_Table, HelpNamesEveryKey)
{
    const std::string help = cio::option_help();
    for (const std::string& key : cio::option_keys())
        EXPECT_NE(help.find("\n  " + key + " "), std::string::npos) << key;
}
