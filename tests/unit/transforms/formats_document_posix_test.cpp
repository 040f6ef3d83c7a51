#include "client_io/client_io.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <cctype>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

// Runs the commands that docs/formats.md shows, as they stand there.

namespace
{

struct Section
{
    std::string heading;
    Compression_Method compression;
    bool encrypted;
};

const std::vector<Section> sections = {
    {"zstd", COMPRESSION_ZSTD, false},           {"lzop", COMPRESSION_LZOP, false},
    {"encrypted", COMPRESSION_NONE, true},       {"zstd, encrypted", COMPRESSION_ZSTD, true},
    {"lzop, encrypted", COMPRESSION_LZOP, true},
};

/// The scripts below each heading of the third level.
std::map<std::string, std::vector<std::string>> scripts()
{
    std::map<std::string, std::vector<std::string>> found;
    std::istringstream page(read_local(FORMATS_PAGE));
    std::string heading;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line == "```sh") {
            inside = true;
            found[heading].emplace_back();
        } else if (inside && line == "```") {
            inside = false;
        } else if (inside) {
            found[heading].back() += line + '\n';
        } else if (line.starts_with('#')) {
            heading = line.starts_with("### ") ? line.substr(4) : std::string();
        }
    }
    return found;
}

class Formats_Document : public testing::TestWithParam<Section>
{
protected:
    void SetUp() override
    {
        write_local(directory_ / "K", "key=" + hex(test_key(32)) + "\niv=" + hex(test_iv()) + '\n');
        Client_IO_Base::Options options;
        options.overwrite = true;
        options.compression = GetParam().compression;
        if (GetParam().encrypted) {
            ASSERT_TRUE(options.set_encryption_from_binary("aes-256-cbc", test_key(32), test_iv()));
        }
        ASSERT_TRUE(io_.connect(file_uri(directory_.str()).c_str(), options)) << io_.error();
        const auto found = scripts();
        ASSERT_TRUE(found.contains(GetParam().heading));
        ASSERT_EQ(found.at(GetParam().heading).size(), 2U) << "one to read and one to write";
        decode_ = found.at(GetParam().heading)[0];
        encode_ = found.at(GetParam().heading)[1];
    }

    void run(const std::string& script)
    {
        const Program_Result result =
            run_program({"bash", "-e", "-u", "-o", "pipefail", "-c", script}, "", directory_.str());
        EXPECT_EQ(result.code, 0) << script << result.err;
        EXPECT_EQ(result.err, "") << script;
    }

    Temp_Directory directory_;
    Client_IO io_;
    std::string decode_;
    std::string encode_;
};

INSTANTIATE_TEST_SUITE_P(Of, Formats_Document, testing::ValuesIn(sections),
                         [](const testing::TestParamInfo<Section>& section) {
                             std::string name;
                             for (const char c : section.param.heading)
                                 if (std::isalnum(static_cast<unsigned char>(c)) != 0)
                                     name += c;
                             return name;
                         });

TEST_P(Formats_Document, ItsCommandReadsWhatTheLibraryStores)
{
    for (const std::string& plain : {std::string(), sample_text(1), sample_text(1000000)}) {
        ASSERT_TRUE(io_.put_contents("stored", plain, true)) << io_.error();
        EXPECT_NE(read_local(directory_ / "stored"), plain);
        run(decode_);
        EXPECT_TRUE(read_local(directory_ / "plain") == plain) << plain.size();
    }
}

TEST_P(Formats_Document, TheLibraryReadsWhatItsCommandStores)
{
    for (const std::string& plain : {std::string(), sample_text(1), sample_text(1000000)}) {
        write_local(directory_ / "plain", plain);
        run(encode_);
        std::string back;
        EXPECT_TRUE(io_.get_contents("stored", back)) << io_.error();
        EXPECT_TRUE(back == plain) << plain.size();
    }
}

TEST(Formats_Document_Page, ShowsNoCommandThatTheTestsDoNotRun)
{
    for (const auto& [heading, commands] : scripts()) {
        bool known = false;
        for (const Section& section : sections)
            known |= section.heading == heading;
        EXPECT_TRUE(known) << heading;
    }
    EXPECT_EQ(scripts().size(), sections.size());
}

} // namespace
