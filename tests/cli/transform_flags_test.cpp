#include "cli/failure.h"
#include "cli/option_table.h"
#include "tests/cli/cli_test.h"

using cio::read_options;
using cio::Transform_Flags;

/// The flags as far as the options that result, without a target.
class Transform_Flags_Test : public Cli_Test
{
protected:
    static constexpr const char* key_hex =
        "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    static constexpr const char* key_base64 = "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=";
    static constexpr const char* iv_hex = "202122232425262728292a2b2c2d2e2f";
    static constexpr const char* iv_base64 = "ICEiIyQlJicoKSorLC0uLw==";

    void SetUp() override
    {
        write("K", std::string("key=") + key_hex + "\niv =" + iv_hex + "\n");
        make_private("K");
    }

    Client_IO_Base::Options options(Transform_Flags flags,
                                    std::vector<std::string> assignments = {},
                                    std::optional<std::string> file = std::nullopt)
    {
        warnings_.clear();
        return read_options({std::move(file), std::move(assignments), std::move(flags)},
                            &warnings_);
    }
    std::string refusal(Transform_Flags flags, std::vector<std::string> assignments = {},
                        std::optional<std::string> file = std::nullopt)
    {
        try {
            (void)options(std::move(flags), std::move(assignments), std::move(file));
        } catch (const cio::Usage_Error& error) {
            return error.what();
        }
        return "accepted";
    }
    std::string key_file() const { return path("K"); }
    std::string options_file(const std::string& text) const
    {
        write("options.json", text);
        return path("options.json");
    }

    std::vector<std::string> warnings_;
};

TEST_F(Transform_Flags_Test, EachReachesItsFields)
{
    const auto set = options({.compress = "LZOP",
                              .level = "9",
                              .encrypt = "AES-256-CBC",
                              .key_file = key_file(),
                              .limit = "08:00-18:00=5M,else=1M"});
    EXPECT_EQ(set.compression, COMPRESSION_LZOP);
    EXPECT_EQ(set.compression_level, 9);
    EXPECT_EQ(set.encryption_algorithm, ENCRYPTION_AES_256_CBC);
    ASSERT_EQ(set.encryption_key_len, 32U);
    ASSERT_EQ(set.encryption_iv_len, 16U);
    for (unsigned i = 0; i < 48; ++i)
        EXPECT_EQ(i < 32 ? set.encryption_key[i] : set.encryption_iv[i - 32], i);
    EXPECT_EQ(set.max_bytes_per_second, 1U << 20U);
    EXPECT_EQ(set.rate_control,
              (std::vector<Rate_Control_Entry>{{8 * 3600, 18 * 3600, 5U << 20U}}));
    EXPECT_TRUE(warnings_.empty());
}

TEST_F(Transform_Flags_Test, WithoutThemNothingIsSet)
{
    const auto set = options({});
    EXPECT_EQ(set.compression, COMPRESSION_NONE);
    EXPECT_EQ(set.encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_EQ(set.max_bytes_per_second, 0U);
    EXPECT_TRUE(set.rate_control.empty());
}

TEST_F(Transform_Flags_Test, TheyOutrankTheFileAndTheEnvironment)
{
    const std::string file =
        options_file(R"({"compression":"zstd","compression_level":3,"encryption":"aes-128-cbc",
            "key":"AAECAwQFBgcICQoLDA0ODw==","iv":"AAECAwQFBgcICQoLDA0ODw==",
            "max_bytes_per_second":5,
            "rate_control":[{"start_time":1,"end_time":2,"max_bytes_per_second":3}]})");
    const Environment_Variable key("CIO_ENCRYPTION_KEY", "BBBB");
    const Environment_Variable iv("CIO_ENCRYPTION_IV", "CCCC");
    const auto set =
        options({.compress = "none", .encrypt = "chacha20", .key_file = key_file(), .limit = "0"},
                {}, file);
    EXPECT_EQ(set.compression, COMPRESSION_NONE);
    EXPECT_EQ(set.encryption_algorithm, ENCRYPTION_CHACHA20);
    EXPECT_EQ(set.encryption_key[31], 31U);
    EXPECT_EQ(set.max_bytes_per_second, 0U);
    EXPECT_TRUE(set.rate_control.empty()) << "a plain limit replaces a timetable";
}

TEST_F(Transform_Flags_Test, TheyMayRepeatWhatAnAssignmentSaysButNotContradictIt)
{
    const std::string key = std::string("key=") + key_base64;
    const std::string iv = std::string("iv=") + iv_base64;
    EXPECT_EQ(options({.compress = "zstd"}, {"compression=ZSTD"}).compression, COMPRESSION_ZSTD);
    EXPECT_EQ(refusal({.compress = "zstd", .level = "3"}, {"compression_level=3"}), "accepted");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc", .key_file = key_file()},
                      {"encryption=AES-256-CBC", key, iv}),
              "accepted");
    EXPECT_EQ(refusal({.limit = "1M"}, {"max_bytes_per_second=1048576"}), "accepted");
    EXPECT_EQ(
        refusal({.limit = "00:00-01:00=2"},
                {R"(rate_control=[{"start_time":0,"end_time":3600,"max_bytes_per_second":2}])"}),
        "accepted");

    EXPECT_EQ(refusal({.compress = "zstd"}, {"compression=lzop"}),
              "--compress and -o compression contradict each other");
    EXPECT_EQ(refusal({.compress = "zstd", .level = "3"}, {"compression_level=4"}),
              "--level and -o compression_level contradict each other");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc"}, {"encryption=none"}),
              "--encrypt and -o encryption contradict each other");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc", .key_file = key_file()}, {"key=AAAA"}),
              "--key-file and -o key contradict each other");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc", .key_file = key_file()}, {"iv=AAAA"}),
              "--key-file and -o iv contradict each other");
    EXPECT_EQ(refusal({.limit = "1M"}, {"max_bytes_per_second=1"}),
              "--limit and -o max_bytes_per_second contradict each other");
    EXPECT_EQ(refusal({.limit = "1M"},
                      {R"(rate_control=[{"start_time":0,"end_time":1,"max_bytes_per_second":2}])"}),
              "--limit and -o rate_control contradict each other");
}

TEST_F(Transform_Flags_Test, UnknownNamesGetTheNearest)
{
    EXPECT_EQ(refusal({.compress = "zst"}), "--compress: 'zst' is unknown, did you mean 'zstd'?");
    EXPECT_EQ(refusal({.encrypt = "aes256-cbc", .key_file = key_file()}),
              "--encrypt: 'aes256-cbc' is unknown, did you mean 'aes-256-cbc'?");
}

TEST_F(Transform_Flags_Test, AnEmptyValueIsNotTakenForNone)
{
    EXPECT_EQ(refusal({.compress = ""}), "--compress lacks its value");
    EXPECT_EQ(refusal({.encrypt = ""}), "--encrypt lacks its value");
    EXPECT_EQ(refusal({.key_file = ""}), "--key-file lacks its value");
    EXPECT_EQ(refusal({.limit = ""}), "--limit lacks its value");
    EXPECT_EQ(refusal({.compress = "zstd", .level = ""}),
              "--level: '' is no level (a whole number)");
}

TEST_F(Transform_Flags_Test, ALevelNeedsACompressionThatHasIt)
{
    const std::string needed = "--level needs a compression (--compress auto, lzop or zstd)";
    EXPECT_EQ(refusal({.level = "3"}), needed);
    EXPECT_EQ(refusal({.compress = "none", .level = "3"}), needed);
    EXPECT_EQ(options({.level = "3"}, {"compression=zstd"}).compression_level, 3);
    EXPECT_EQ(
        options({.level = "3"}, {}, options_file(R"({"compression":"lzop"})")).compression_level,
        3);
    EXPECT_EQ(refusal({}, {"compression_level=100"}), "accepted") << "it is not read then";

    for (const char* level : {"-131072", "-7", "0", "1", "22"})
        EXPECT_EQ(refusal({.compress = "zstd", .level = level}), "accepted") << level;
    for (const char* level : {"0", "1", "9"})
        EXPECT_EQ(refusal({.compress = "lzop", .level = level}), "accepted") << level;
    EXPECT_EQ(refusal({.compress = "auto", .level = "19"}), "accepted");
    EXPECT_EQ(refusal({.compress = "zstd", .level = "100"}),
              "--level: zstd has the levels -131072 to 22 (0: its default), but not 100");
    EXPECT_EQ(refusal({.compress = "lzop", .level = "10"}),
              "--level: lzop has the levels 1 to 9 (0: its default), but not 10");
    EXPECT_NE(refusal({.compress = "lzop", .level = "-1"}).find("but not -1"), std::string::npos);
    EXPECT_NE(refusal({.compress = "auto", .level = "23"}).find("but not 23"), std::string::npos);
    EXPECT_EQ(refusal({}, {"compression=zstd", "compression_level=100"}),
              "option 'compression_level': zstd has the levels -131072 to 22 (0: its default), but "
              "not 100");
    for (const char* level : {"three", "3.5", "3x", " 3", "+3", "2147483648"})
        EXPECT_NE(refusal({.compress = "zstd", .level = level}).find("is no level"),
                  std::string::npos)
            << level;
}

TEST_F(Transform_Flags_Test, AKeyFileNeedsACipherAndACipherAKey)
{
    const std::string needed = "--key-file needs a cipher (--encrypt CIPHER)";
    EXPECT_EQ(refusal({.key_file = key_file()}), needed);
    EXPECT_EQ(refusal({.encrypt = "none", .key_file = key_file()}), needed);
    EXPECT_EQ(refusal({.key_file = key_file()}, {"encryption=aes-256-cbc"}), "accepted");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc"}),
              "cipher aes-256-cbc takes a key of 32 bytes, but none is given (--key-file, option "
              "'key' or CIO_ENCRYPTION_KEY)");
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc"}, {std::string("key=") + key_base64}),
              "cipher aes-256-cbc takes an IV of 16 bytes, but none is given (--key-file, option "
              "'iv' or CIO_ENCRYPTION_IV)");
}

TEST_F(Transform_Flags_Test, KeysOfTheWrongLengthAreNamedWithTheirSourceAndNotShown)
{
    EXPECT_EQ(refusal({.encrypt = "aes-128-cbc", .key_file = key_file()}),
              "cipher aes-128-cbc takes a key of 16 bytes, but --key-file holds 32");
    const std::string short_key = "c2VjcmV0";
    EXPECT_EQ(refusal({.encrypt = "aes-256-cbc"}, {"key=" + short_key}),
              "cipher aes-256-cbc takes a key of 32 bytes, but option 'key' holds 6");
    EXPECT_EQ(
        refusal({.encrypt = "aes-256-cbc"}, {std::string("key=") + key_base64, "iv=c2VjcmV0"}),
        "cipher aes-256-cbc takes an IV of 16 bytes, but option 'iv' holds 6");
    {
        const Environment_Variable key("CIO_ENCRYPTION_KEY", short_key);
        EXPECT_EQ(refusal({.encrypt = "sm4-ofb"}),
                  "cipher sm4-ofb takes a key of 16 bytes, but environment variable "
                  "CIO_ENCRYPTION_KEY holds 6");
    }
    const std::string file = options_file(R"({"encryption":"aes-256-cbc","key":"c2VjcmV0"})");
    EXPECT_EQ(refusal({}, {}, file),
              "cipher aes-256-cbc takes a key of 32 bytes, but options file " + file + " holds 6");
}

TEST_F(Transform_Flags_Test, EveryCipherThatTheLibraryNamesIsAskedForItsLengths)
{
    for (int number = ENCRYPTION_NONE + 1;; ++number) {
        const char* name =
            encryption_value_to_name(static_cast<Encryption_Algorithm>(number), false);
        if (name == nullptr)
            break;
        EXPECT_EQ(
            refusal({.encrypt = name}).rfind(std::string("cipher ") + name + " takes a key", 0), 0U)
            << refusal({.encrypt = name});
    }
}

TEST_F(Transform_Flags_Test, AKeyFileThatOthersCanReadGivesAWarning)
{
    make_public("K");
    (void)options({.encrypt = "aes-256-cbc", .key_file = key_file()});
    EXPECT_EQ(warnings_,
              std::vector<std::string>{"key file " + key_file() + " can be read by other users"});
}
