#include "tests/cli/transform_test.h"

namespace fs = std::filesystem;

/// What is stored compressed and encrypted, and what comes back.
class Transforms : public Transform_Test
{};

TEST_F(Transforms, TreesComeBackAndVerifyWithEveryCombination)
{
    make_tree();
    for (const std::string& method : methods())
        for (const char* cipher : {"", "aes-256-cbc", "camellia-256-cfb", "chacha20"}) {
            const auto options = flags(method, cipher);
            const std::string name = "p-" + method + "-" + cipher;
            SCOPED_TRACE(name);
            const Cio_Result put = run("put", options, {"tree", uri(), name});
            EXPECT_EQ(put.code, 0) << put.err;
            EXPECT_EQ(put.err, "");
            EXPECT_EQ(paths_below(at("target/" + name)), paths_below(at("tree")));

            const Cio_Result verify = run("verify", options, {"tree", uri(), name});
            EXPECT_EQ(verify.code, 0) << verify.out << verify.err;
            EXPECT_NE(verify.out.find("5 files"), std::string::npos);

            const Cio_Result get = run("get", options, {uri(), name, "back-" + name});
            EXPECT_EQ(get.code, 0) << get.err;
            EXPECT_TRUE(same("tree", "back-" + name));
            for (const std::string& file : files())
                EXPECT_EQ(run("cat", options, {uri(), name + "/" + file}).out, read("tree/" + file))
                    << file;
        }
}

TEST_F(Transforms, TheLevelReachesTheCodec)
{
    make_tree();
    for (const std::string& method : methods()) {
        if (method.empty())
            continue;
        std::vector<std::uintmax_t> sizes;
        for (const char* level : {"1", method == "zstd" ? "19" : "9"}) {
            const std::string name = method + level;
            ASSERT_EQ(
                cio({"put", "--compress", method, "--level", level, "tree/sub/text", uri(), name})
                    .code,
                0);
            sizes.push_back(fs::file_size(at("target/" + name)));
        }
        EXPECT_LT(sizes[1], sizes[0]) << method;
    }
}

TEST_F(Transforms, AutoGoesByTheSuffixOfTheStoredName)
{
    const std::string text(100'000, 'x');
    write("tree/plain", text);
    write("tree/dir.zst/inside", text);
    write("tree/zst", text);
    std::vector<std::string> compressed{"a.zst", "b.ZSTD"};
    if (CIO_WITH_LZOP)
        compressed.emplace_back("c.lzo");
    for (const std::string& name : compressed)
        write("tree/" + name, text);
    ASSERT_EQ(cio({"put", "--compress", "auto", "tree", uri()}).code, 0);
    for (const char* name : {"plain", "dir.zst/inside", "zst"})
        EXPECT_EQ(read(std::string("target/tree/") + name), text) << name;
    for (const std::string& name : compressed)
        EXPECT_LT(fs::file_size(at("target/tree/" + name)), text.size()) << name;
    EXPECT_EQ(cio({"verify", "--compress", "auto", "tree", uri(), "tree"}).code, 0);
    EXPECT_EQ(cio({"get", "--compress", "auto", uri(), "tree", "back"}).code, 0);
    EXPECT_TRUE(same("tree", "back"));

    // The stored name counts, not the local one.
    ASSERT_EQ(cio({"put", "--compress", "auto", "tree/plain", uri(), "named.zst"}).code, 0);
    EXPECT_LT(fs::file_size(at("target/named.zst")), text.size());
}

TEST_F(Transforms, StandardInputIsTransformedLikeAFile)
{
    const auto options = flags("zstd", "aes-256-cbc");
    const std::string data = pattern(500'000);
    EXPECT_EQ(run("put", options, {"-", uri(), "in"}, {.input = data}).code, 0);
    EXPECT_EQ(run("cat", options, {uri(), "in"}).out, data);
    EXPECT_NE(read("target/in"), data);
}

TEST_F(Transforms, VerifyComparesContentsAndNamesTheByteThatDiffers)
{
    make_tree();
    const auto options = flags("zstd", "aes-256-cbc");
    ASSERT_EQ(run("put", options, {"tree", uri(), "p"}).code, 0);
    std::string changed = read("tree/random");
    changed[1'234'567] = static_cast<char>(changed[1'234'567] ^ 1);
    write("tree/random", changed);
    write("tree/one", "first\nand more");
    write("tree/sub/zeros", std::string(299'999, '\0'));
    const Cio_Result result = run("verify", options, {"tree", uri(), "p"});
    EXPECT_EQ(result.code, 1);
    for (const char* line :
         {"p/random: content differs at byte 1234567\n",
          "p/one: size differs: the target's file ends after 6 bytes, the other goes on\n",
          "p/sub/zeros: size differs: the local file ends after 299999 bytes, the other goes on\n",
          "3 differences"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << result.out;
}

TEST_F(Transforms, ListingsShowStoredSizesAndTotalsCountContents)
{
    const std::string text(1'000'000, 'x');
    write("text", text);
    const auto options = flags("zstd", "");
    const Cio_Result put = run("put", options, {"--json", "text", uri(), "t"});
    EXPECT_NE(put.out.find("\"bytes\":1000000"), std::string::npos) << put.out;
    const std::string stored = std::to_string(fs::file_size(at("target/t")));
    EXPECT_NE(cio({"ls", "-l", "-o", "compression=zstd", uri()}).out.find(" " + stored + " "),
              std::string::npos);
    EXPECT_NE(cio({"stat", uri(), "t"}).out.find("size:  " + stored + "\n"), std::string::npos);
    EXPECT_EQ(cio({"du", uri()}).out.rfind(stored + "\t", 0), 0U);
    const Cio_Result get = run("get", options, {"--json", uri(), "t", "back"});
    EXPECT_NE(get.out.find("\"bytes\":1000000"), std::string::npos) << get.out;
    EXPECT_EQ(get.out.find("bytes_total"), std::string::npos) << get.out;
    EXPECT_EQ(read("back"), text);
}

TEST_F(Transforms, OptionsAndEnvironmentDoTheSameAsTheFlags)
{
    write("a", pattern(100'000));
    ASSERT_EQ(run("put", flags("zstd", "aes-256-cbc"), {"a", uri(), "by-flags"}).code, 0);
    const Cio_Settings keys{
        .environment = {{"CIO_ENCRYPTION_KEY", "Y2hhbmdlIHRoaXMgcGFzc3dvcmQgdG8gYSBzZWNyZXQ="},
                        {"CIO_ENCRYPTION_IV", "Dx4tPEtaaXiHlqW0w9Lh8A=="}}};
    ASSERT_EQ(cio({"put", "-o", "compression=zstd", "-o", "encryption=aes-256-cbc", "a", uri(),
                   "by-options"},
                  keys)
                  .code,
              0);
    EXPECT_EQ(read("target/by-flags"), read("target/by-options"));
    write("options.json", R"({"compression":"zstd","encryption":"aes-256-cbc"})");
    EXPECT_EQ(cio({"cat", "--options", "options.json", uri(), "by-flags"}, keys).out, read("a"));
}

TEST_F(Transforms, ALimitFarAboveTheTrafficChangesNothing)
{
    make_tree();
    auto options = flags("zstd", "aes-256-cbc");
    options.insert(options.end(), {"--limit", "08:00-18:00=4T,else=1T"});
    EXPECT_EQ(run("put", options, {"--jobs", "8", "tree", uri(), "p"}).code, 0);
    EXPECT_EQ(run("verify", options, {"tree", uri(), "p"}).code, 0);
    EXPECT_EQ(run("get", options, {uri(), "p", "back"}).code, 0);
    EXPECT_TRUE(same("tree", "back"));
    write("a", "A");
    options = {"--limit", "1T"};
    EXPECT_EQ(run("put", options, {"a", uri(), "a"}).code, 0);
    EXPECT_EQ(run("cat", options, {uri(), "a"}).out, "A");
}

TEST_F(Transforms, NothingCutsOrExtendsATransformedFile)
{
    write("a", pattern(10'000));
    ASSERT_EQ(run("put", flags("zstd", ""), {"a", uri(), "a"}).code, 0);
    const std::string stored = read("target/a");
    const Cio_Result result = cio({"truncate", "-o", "compression=zstd", uri(), "a", "10"});
    EXPECT_EQ(result.code, 2);
    EXPECT_NE(result.err.find("cannot be cut or extended"), std::string::npos);
    EXPECT_EQ(read("target/a"), stored);
}

TEST_F(Transforms, CompressionThatThisBuildLacksIsRefused)
{
    write("a", "A");
    const Cio_Result result = cio({"put", "--compress", "lzop", "a", uri()});
    if (CIO_WITH_LZOP) {
        EXPECT_EQ(result.code, 0);
    } else {
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find("lzop is not supported by this build"), std::string::npos);
        EXPECT_FALSE(exists("target/a"));
    }
}
