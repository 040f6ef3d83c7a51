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
        make_private(name);
    }

    void make_tree()
    {
        write("tree/one", "first\n");
        write("tree/empty", "");
        write("tree/random", pattern(1'500'000));
        // Words in no order, so that looking harder finds more.
        std::string text;
        const std::string choices = pattern(400'000, 3);
        for (const char choice : choices)
            text += std::to_string(static_cast<unsigned char>(choice) * 7919) + ' ';
        write("tree/sub/text", text);
        write("tree/sub/zeros", std::string(300'000, '\0'));
        std::filesystem::create_directories(at("tree/hollow"));
    }
    static std::vector<std::string> files()
    {
        return {"one", "empty", "random", "sub/text", "sub/zeros"};
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
    /// Runs a command with the flags behind its name.
    Cio_Result run(const std::string& command, const std::vector<std::string>& options,
                   const std::vector<std::string>& rest, Cio_Settings settings = {}) const
    {
        std::vector<std::string> arguments{command};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), rest.begin(), rest.end());
        return cio(arguments, std::move(settings));
    }
};
