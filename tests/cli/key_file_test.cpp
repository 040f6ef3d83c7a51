#include "cli/key_file.h"

#include "cli/failure.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/cli/cli_test.h"
#include "tests/support/this_system.h"

#include <memory>
#include <new>

namespace fs = std::filesystem;

using cio::Key_Material;
using cio::Secret_Bytes;

namespace
{

constexpr const char* key_text = "000102030405060708090A0B0C0D0E0F";
constexpr const char* iv_text = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";

std::string bytes_of(const Secret_Bytes& secret)
{
    return {reinterpret_cast<const char*>(secret.data()), secret.size()};
}

std::string refusal(const std::string& text)
{
    Key_Material material;
    try {
        cio::parse_key_file(text, "K", material);
    } catch (const cio::Usage_Error& error) {
        return error.what();
    }
    return "accepted";
}

std::string lines(const std::string& key, const std::string& iv)
{
    return "key=" + key + "\niv =" + iv + "\n";
}

} // namespace

TEST(Key_File, FormThatOpenSSLPrintsIsRead)
{
    for (const std::string& text :
         {"salt=0011223344556677\n" + lines(key_text, iv_text), lines(key_text, iv_text),
          "# made today\n\n  iv\t= " + std::string(iv_text) +
              " # once only\r\n\t key = " + key_text + "  "})
    {
        Key_Material material;
        cio::parse_key_file(text, "K", material);
        ASSERT_EQ(material.key.size(), 16U);
        ASSERT_EQ(material.iv.size(), 16U);
        for (std::size_t i = 0; i < 16; ++i) {
            EXPECT_EQ(material.key.data()[i], i);
            EXPECT_EQ(material.iv.data()[i], 0xF0 + i);
        }
    }
}

TEST(Key_File, WhatIsNoKeyFileIsRefusedWithItsLine)
{
    const std::string nul("key=00\0"
                          "00\n",
                          10);
    const std::pair<std::string, const char*> texts[] = {
        {"", "K holds no key"},
        {"# nothing\n", "K holds no key"},
        {"iv=00\n", "K holds no key"},
        {"key=00\n", "K holds no iv"},
        {"key=00\nkey=00\niv=00\n", "K, line 2: a second key"},
        {"key=00\n\niv=00\niv=11\n", "K, line 4: a second iv"},
        {"key=\niv=00\n", "K, line 1: the value is no even number"},
        {"key=000\niv=00\n", "K, line 1: the value is no even number"},
        {"key=0g\niv=00\n", "K, line 1: the value holds what is no hexadecimal digit"},
        {"key=0x00\niv=00\n", "K, line 1: the value holds what is no hexadecimal digit"},
        {"key=00 11\niv=00\n", "K, line 1: the value"},
        {nul, "K, line 1: the value"},
        {"key=" + std::string(130, '0') + "\niv=00\n", "K, line 1: the value is longer than 64"},
        {"00112233\n", "K, line 1: neither key=HEX nor iv=HEX"},
        {"key\niv=00\n", "K, line 1: neither key=HEX nor iv=HEX"},
        {"salt\n", "K, line 1: neither key=HEX nor iv=HEX"},
        {"=00\n", "K, line 1: neither key=HEX nor iv=HEX"},
        {"password=secret\n", "K, line 1: neither key=HEX nor iv=HEX"},
    };
    for (const auto& [text, reason] : texts)
        EXPECT_EQ(refusal(text).rfind(reason, 0), 0U) << refusal(text);
}

TEST(Key_File, NothingOfTheFileIsInARefusal)
{
    for (const char* text : {"c0ffee15bad", "key=c0ffee1\n", "key=c0ffeeg1\n", "c0ffee=00\n",
                             "key=c0ffee\niv=c0ffee\nkey=c0ffee\n"})
        EXPECT_EQ(refusal(text).find("c0ffee"), std::string::npos) << refusal(text);
}

TEST(Key_File, SecretBytesAreWipedWhenTheyGo)
{
    alignas(Key_Material) unsigned char storage[sizeof(Key_Material)];
    auto* material = new (storage) Key_Material;
    cio::parse_key_file(lines("deadbeefdeadbeef", "cafebabecafebabe"), "K", *material);
    const auto holds = [&storage](unsigned char a, unsigned char b) {
        for (std::size_t i = 0; i + 1 < sizeof storage; ++i)
            if (storage[i] == a && storage[i + 1] == b)
                return true;
        return false;
    };
    ASSERT_TRUE(holds(0xDE, 0xAD) && holds(0xCA, 0xFE));
    std::destroy_at(material);
    EXPECT_FALSE(holds(0xDE, 0xAD));
    EXPECT_FALSE(holds(0xCA, 0xFE));
}

class Key_File_On_Disk : public Cli_Test
{
protected:
    std::string read_it()
    {
        Key_Material material;
        try {
            const std::string warning = cio::read_key_file(path("K"), material);
            EXPECT_EQ(bytes_of(material.key), "\x01\x02");
            EXPECT_EQ(bytes_of(material.iv), "\x03");
            return warning;
        } catch (const cio::Usage_Error& error) {
            return error.what();
        }
    }
};

TEST_F(Key_File_On_Disk, FileThatOthersCanReadIsWorthAWarning)
{
    write("K", lines("0102", "03"));
    make_private("K");
    EXPECT_EQ(read_it(), "");
    make_public("K");
    EXPECT_EQ(read_it(), "key file " + path("K") + " can be read by other users");
}

TEST_F(Key_File_On_Disk, FourKibibytesAreTheMost)
{
    const std::string key = lines("0102", "03");
    write("K", key + std::string(4096 - key.size(), '\n'));
    make_private("K");
    EXPECT_EQ(read_it(), "");
    fs::remove(at("K"));
    write("K", key + std::string(4097 - key.size(), '\n'));
    EXPECT_NE(read_it().find("is larger than 4 KiB"), std::string::npos);
}

TEST_F(Key_File_On_Disk, FileThatCannotBeReadIsNamedWithItsReason)
{
    const std::string missing = POSIX_Error(os_error::no_such_file, 1).str();
    EXPECT_EQ(read_it(), "key file " + path("K") + ": " + missing);
    fs::create_directory(at("K"));
    const std::string directory = POSIX_Error(this_system::errors.open_directory, 1).str();
    EXPECT_EQ(read_it(), "key file " + path("K") + ": " + directory);
}
