#include "tests/cli/transform_test.h"

#include <cstdlib>

/// What zstd, lzop and openssl read and write.
class Standard_Tools : public Transform_Test
{
protected:
    /// Runs a command of the shell in the test's directory. @return whether it succeeded
    bool shell(const std::string& command) const
    {
        return std::system(("cd '" + path("") + "' && " + command).c_str()) == 0;
    }
    /// A shell filter that turns a stored form into the contents.
    static std::string decoder(const std::string& method, const std::string& cipher)
    {
        return (cipher.empty() ? std::string("cat") : openssl("-d", cipher)) + " | " +
               (method.empty() ? "cat" : method + " -dc");
    }
    static std::string encoder(const std::string& method, const std::string& cipher)
    {
        return (method.empty() ? std::string("cat") : method + " -c") + " | " +
               (cipher.empty() ? std::string("cat") : openssl("-e", cipher));
    }

private:
    static std::string openssl(const char* direction, const std::string& cipher)
    {
        return std::string("openssl enc ") + direction + " -" + cipher + " -K " +
               std::string(key_hex).substr(0, cipher.find("128") == std::string::npos ? 64 : 32) +
               " -iv " + iv_hex;
    }
};

TEST_F(Standard_Tools, StandardToolsReadWhatIsStored)
{
    make_tree();
    for (const std::string& method : methods())
        for (const char* cipher : {"", "aes-256-cbc", "aes-256-ctr"}) {
            SCOPED_TRACE(method + " " + cipher);
            const std::string name = "stored" + method + cipher;
            ASSERT_EQ(run("put", flags(method, cipher), {"tree", uri(), name}).code, 0);
            for (const std::string& file : files())
                EXPECT_TRUE(shell("(" + decoder(method, cipher) + ") < target/" + name + "/" +
                                  file + " | cmp - tree/" + file))
                    << file;
            const bool same_bytes = method.empty() && *cipher == '\0';
            EXPECT_EQ(read("target/" + name + "/sub/text") == read("tree/sub/text"), same_bytes);
        }
}

TEST_F(Standard_Tools, WhatStandardToolsMadeIsRead)
{
    make_tree();
    for (const std::string& method : methods())
        for (const char* cipher : {"", "aes-256-cbc"}) {
            SCOPED_TRACE(method + " " + cipher);
            ASSERT_TRUE(shell("rm -rf target back && mkdir -p target/sub"));
            for (const std::string& file : files())
                ASSERT_TRUE(
                    shell("(" + encoder(method, cipher) + ") < tree/" + file + " > target/" + file))
                    << file;
            const auto options = flags(method, cipher);
            const Cio_Result get = run("get", options, {uri(), "", "back"});
            EXPECT_EQ(get.code, 0) << get.err;
            for (const std::string& file : files())
                EXPECT_TRUE(shell("cmp back/" + file + " tree/" + file));
            EXPECT_EQ(run("verify", options, {"tree/sub", uri(), "sub"}).code, 0);
        }
}

TEST_F(Standard_Tools, SeveralFramesOfOneFileAreRead)
{
    write("a", pattern(200'000));
    write("b", pattern(70'000, 2));
    for (const std::string& method : methods()) {
        const std::string encode = method.empty() ? "cat" : method + " -c";
        ASSERT_TRUE(
            shell("mkdir -p target && (" + encode + " < a; " + encode + " < b) > target/both"));
        EXPECT_EQ(run("cat", flags(method, ""), {uri(), "both"}).out, read("a") + read("b"));
    }
}

TEST_F(Standard_Tools, WhatAutoCompressedBySuffixIsRead)
{
    const std::string text(100'000, 'x');
    for (const char* name : {"tree/plain", "tree/a.zst", "tree/b.ZSTD"})
        write(name, text);
    if (CIO_WITH_LZOP)
        write("tree/c.lzo", text);
    ASSERT_EQ(cio({"put", "--compress", "auto", "tree", uri()}).code, 0);
    EXPECT_TRUE(shell("zstd -dc < target/tree/a.zst | cmp - tree/plain"));
    EXPECT_TRUE(shell("zstd -dc < target/tree/b.ZSTD | cmp - tree/plain"));
    EXPECT_TRUE(!CIO_WITH_LZOP || shell("lzop -dc < target/tree/c.lzo | cmp - tree/plain"));
    ASSERT_EQ(cio({"put", "--compress", "auto", "tree/plain", uri(), "named.zst"}).code, 0);
    EXPECT_TRUE(shell("zstd -dc < target/named.zst | cmp - tree/plain"));
}
