#pragma once

#include "tests/cli/cli_test.h"

#include <algorithm>
#include <string>
#include <vector>

/// A test of compressed and encrypted files: keys, flags and the commands that undo them.
class Transform_Test : public Cli_Test
{
protected:
    static constexpr const char* key_hex =
        "6368616e676520746869732070617373776f726420746f206120736563726574";
    static constexpr const char* iv_hex = "0f1e2d3c4b5a69788796a5b4c3d2e1f0";

    void SetUp() override { write_key("K", key_hex, iv_hex); }

    void write_key(const std::string& name, const std::string& key, const std::string& iv) const
    {
        write(name, "key=" + key + "\niv =" + iv + "\n");
        std::filesystem::permissions(at(name), std::filesystem::perms::owner_read);
    }

    /// "" is none.
    static std::vector<std::string> methods()
    {
        return CIO_WITH_LZOP ? std::vector<std::string>{"", "zstd", "lzop"}
                             : std::vector<std::string>{"", "zstd"};
    }
    static std::vector<std::string> flags(const std::string& method, const std::string& cipher)
    {
        std::vector<std::string> arguments;
        if (!method.empty())
            arguments.insert(arguments.end(), {"--compress", method});
        if (!cipher.empty())
            arguments.insert(arguments.end(), {"--encrypt", cipher, "--key-file", "K"});
        return arguments;
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

    /// Runs a command with the flags behind its name.
    Cio_Result run(const std::string& command, const std::vector<std::string>& options,
                   const std::vector<std::string>& rest, Cio_Settings settings = {}) const
    {
        std::vector<std::string> arguments{command};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), rest.begin(), rest.end());
        return cio(arguments, std::move(settings));
    }

private:
    static std::string openssl(const char* direction, const std::string& cipher)
    {
        return std::string("openssl enc ") + direction + " -" + cipher + " -K " +
               std::string(key_hex).substr(0, cipher.find("128") == std::string::npos ? 64 : 32) +
               " -iv " + iv_hex;
    }
};
