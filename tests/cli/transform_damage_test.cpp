#include "cli/get_worker.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/cli/test_pipe.h"
#include "tests/cli/transform_test.h"

namespace fs = std::filesystem;

/// Wrong keys, damaged and cut files, and what must not be seen or left.
class Transform_Damage : public Transform_Test
{
protected:
    static constexpr std::size_t size = 6'000'000;
    const std::string data_ = pattern(size);
    const std::vector<std::string> both_ = flags("zstd", "aes-256-cbc");

    void store(const std::vector<std::string>& options)
    {
        write("source", data_);
        ASSERT_EQ(run("put", options, {"--overwrite", "source", uri(), "stored"}).code, 0);
    }
    void expect_failure(const Cio_Result& result, const std::string& text)
    {
        EXPECT_EQ(result.code, 1) << result.err;
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
    }
};

TEST_F(Transform_Damage, AWrongKeyFailsWithTheReasonAndCostsNothing)
{
    write_key("K", key_hex, iv_hex);
    write("little", "a few words");
    const auto encrypted = flags("", "aes-256-cbc");
    ASSERT_EQ(run("put", encrypted, {"little", uri(), "little"}).code, 0);
    store(both_);
    fs::remove(at("K"));
    write_key("K", std::string(64, 'a'), iv_hex);
    write("local", "stays");
    // One block: what comes out of it does not end as it must.
    const std::string text = "Failed to finalize decryption";
    expect_failure(run("get", encrypted, {"--overwrite", uri(), "little", "local"}), text);
    expect_failure(run("cat", encrypted, {uri(), "little"}), text);
    expect_failure(run("verify", encrypted, {"little", uri(), "little"}), text);
    // What was compressed shows it at its first bytes.
    expect_failure(run("get", both_, {"--overwrite", uri(), "stored", "local"}),
                   "Failed to zstd decompress");
    EXPECT_EQ(read("local"), "stays");
}

TEST_F(Transform_Damage, AFileThatIsNotInTheFormIsRefused)
{
    write("target/plain", "neither compressed nor encrypted, and long enough for a header");
    expect_failure(run("get", flags("zstd", ""), {uri(), "plain", "local"}),
                   "Failed to zstd decompress");
    expect_failure(run("get", flags("", "aes-256-cbc"), {uri(), "plain", "local"}),
                   "Failed to finalize decryption");
    if (CIO_WITH_LZOP)
        expect_failure(run("get", flags("lzop", ""), {uri(), "plain", "local"}),
                       "Failed to decompress");
    EXPECT_FALSE(exists("local"));
}

TEST_F(Transform_Damage, ACutFileLeavesNothingThatLooksComplete)
{
    for (const std::string& method : methods())
        for (const char* cipher : {"", "aes-256-cbc"}) {
            if (method.empty() && *cipher == '\0')
                continue;
            SCOPED_TRACE(method + " " + cipher);
            const auto options = flags(method, cipher);
            store(options);
            const std::uintmax_t stored = fs::file_size(at("target/stored"));
            for (const std::uintmax_t left : {stored - 1, stored / 2, std::uintmax_t{100'000}}) {
                fs::resize_file(at("target/stored"), left);
                const Cio_Result get = run("get", options, {uri(), "stored", "local"});
                EXPECT_EQ(get.code, 1) << left;
                EXPECT_NE(get.err, "");
                EXPECT_FALSE(exists("local")) << left;
                EXPECT_EQ(run("cat", options, {uri(), "stored"}).code, 1) << left;
                EXPECT_NE(run("verify", options, {"source", uri(), "stored"}).code, 0) << left;
            }
        }
}

TEST_F(Transform_Damage, DamageInTheMiddleLeavesNothingThatLooksComplete)
{
    for (const std::string& method : methods()) {
        if (method.empty())
            continue; // a cipher alone does not notice it
        for (const char* cipher : {"", "aes-256-cbc", "aes-256-ctr"}) {
            SCOPED_TRACE(method + " " + cipher);
            const auto options = flags(method, cipher);
            store(options);
            std::string stored = read("target/stored");
            stored[stored.size() / 2] = static_cast<char>(stored[stored.size() / 2] ^ 0x10);
            write("target/stored", stored);
            const Cio_Result get = run("get", options, {uri(), "stored", "local"});
            EXPECT_EQ(get.code, 1);
            EXPECT_NE(get.err.find("before that were removed"), std::string::npos) << get.err;
            EXPECT_FALSE(exists("local"));
            EXPECT_EQ(run("cat", options, {uri(), "stored"}).code, 1);
            EXPECT_EQ(run("verify", options, {"source", uri(), "stored"}).code, 1);
        }
    }
}

TEST_F(Transform_Damage, OneDamagedFileDoesNotStopTheOthers)
{
    write("tree/a", pattern(1000));
    write("tree/b", pattern(2000));
    write("tree/c", pattern(3000));
    ASSERT_EQ(run("put", both_, {"tree", uri(), "p"}).code, 0);
    fs::resize_file(at("target/p/b"), fs::file_size(at("target/p/b")) / 2);
    const Cio_Result get = run("get", both_, {"--jobs", "1", uri(), "p", "back"});
    EXPECT_EQ(get.code, 6);
    EXPECT_EQ(paths_below(at("back")), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(read("back/c"), pattern(3000));
}

TEST_F(Transform_Damage, AFailureOfTheStreamIsNeverNotFound)
{
    // The number of the first failure is still in the connection when the second one comes.
    write("target/damaged", std::string(4096, 'x'));
    const Test_Pipe pipe;
    cio::Output out(pipe.write_end());
    Client_IO_Base::Options options;
    options.compression = COMPRESSION_ZSTD;
    const cio::Target target = cio::make_target(uri(), options, false);
    cio::Reporter report({"get", true, false, true}, out, out);
    cio::Transfer transfer{target, report, false, false};
    cio::Get_Worker worker(transfer);
    worker.run({"missing", path("local"), {}, false});
    worker.run({"damaged", path("local"), {}, false});
    EXPECT_EQ(report.finish(false), 1) << "3 if both were not found";
}

TEST_F(Transform_Damage, AnInterruptedPutLeavesNoFileThatLooksComplete)
{
    write("source", pattern(32 << 20));
    auto options = both_;
    options.insert(options.end(), {"--limit", "8M"});
    std::vector<std::string> arguments{"put", "--json"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), {"source", uri(), "stored"});
    Cio_Process process(arguments, in_here());
    ASSERT_TRUE(process.wait_for_output("\"type\":\"progress\""));
    process.ask_to_end();
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.out.find("\"partial\""), std::string::npos) << result.out;
    EXPECT_FALSE(exists("target/stored"));
    EXPECT_TRUE(!exists("state/cio") || fs::is_empty(at("state/cio")));
}

TEST_F(Transform_Damage, SecretsAreInNoOutput)
{
    write("a", "A");
    const std::string base64 = "Y2hhbmdlIHRoaXMgcGFzc3dvcmQgdG8gYSBzZWNyZXQ=";
    const std::string raw = "change this password to a secret";
    const std::string iv_base64 = "Dx4tPEtaaXiHlqW0w9Lh8A==";
    const Cio_Settings keys{
        .environment = {{"CIO_ENCRYPTION_KEY", base64}, {"CIO_ENCRYPTION_IV", iv_base64}}};
    const auto flagged = flags("zstd", "aes-256-cbc");
    make_public("K");
    std::vector<Cio_Result> results;
    for (const char* command : {"put", "get", "cat", "verify"}) {
        const std::vector<std::string> rest =
            std::string(command) == "get"   ? std::vector<std::string>{uri(), "a", "back"}
            : std::string(command) == "cat" ? std::vector<std::string>{uri(), "a"}
                                            : std::vector<std::string>{"a", uri(), "a"};
        for (int repeated = 0; repeated < 2; ++repeated) {
            auto options = flagged;
            options.emplace_back("--debug");
            results.push_back(run(command, options, rest));
            results.push_back(
                run(command, {"--debug", "--json", "-o", "encryption=aes-256-cbc"}, rest, keys));
            results.push_back(run(command, {"--debug", "--encrypt", "aes-128-cbc"}, rest, keys));
            results.push_back(
                run(command, {"--debug", "--encrypt", "aes-128-cbc", "--key-file", "K"}, rest));
            results.push_back(run(command,
                                  {"--debug", "--encrypt", "aes-256-cbc", "--key-file", "K", "-o",
                                   "key=" + base64.substr(0, 40)},
                                  rest));
        }
    }
    bool warned = false;
    for (const Cio_Result& result : results) {
        const std::string output = result.out + result.err;
        for (const std::string& secret : {std::string(key_hex), std::string(iv_hex), base64,
                                          iv_base64, raw, base64.substr(0, 40)})
            EXPECT_EQ(output.find(secret), std::string::npos) << output;
        warned = warned || result.err.find("K can be read by other users") != std::string::npos;
    }
    EXPECT_TRUE(warned);
}

TEST_F(Transform_Damage, UsageErrorsComeBeforeAnythingIsDone)
{
    write("a", "A");
    const std::string missing = "nope: " + POSIX_Error(os_error::no_such_file, 1).str();
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{"--compress", "zst"}, "--compress: 'zst' is unknown, did you mean 'zstd'?"},
        {{"--compress="}, "--compress lacks its value"},
        {{"--encrypt="}, "--encrypt lacks its value"},
        {{"--compress", "zstd", "--compress", "lzop"}, "--compress"},
        {{"--level", "3"}, "--level needs a compression"},
        {{"--compress", "zstd", "--level", "100"}, "but not 100"},
        {{"--encrypt", "aes-256-cbc"}, "none is given"},
        {{"--encrypt", "aes-256-gcm", "--key-file", "K"}, "is unknown"},
        {{"--key-file", "K"}, "--key-file needs a cipher"},
        {{"--encrypt", "aes-256-cbc", "--key-file", "nope"}, missing.c_str()},
        {{"--encrypt", "aes-192-cbc", "--key-file", "K"}, "a key of 24 bytes"},
        {{"--compress", "zstd", "-o", "compression=none"}, "contradict each other"},
        {{"--limit", "fast"}, "is no rate"},
        {{"--limit", "08:00-18:00=5M,"}, "is empty"},
    };
    for (const auto& [options, text] : wrong) {
        const Cio_Result result = run("put", options, {"a", uri()});
        EXPECT_EQ(result.code, 2) << text;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(text), std::string::npos) << result.err;
        EXPECT_FALSE(exists("target"));
    }
    for (const char* command : {"ls", "tree", "stat", "du", "rm", "mkdir", "cp", "mv", "truncate"})
        EXPECT_EQ(cio({command, "--compress", "zstd", uri(), "a", "b"}).code, 2) << command;
}
