#include "client_io/lzop_io.h"

#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/interop.h"

// Files go both ways between the transform and the lzop program.

namespace
{

using Arguments = std::vector<std::string>;

Kind lzop_of_level(std::int32_t level)
{
    return {"", [level](auto io) { return std::make_unique<Lzop_IO>(std::move(io), level); }};
}

class Lzop_Interop : public testing::Test
{
protected:
    Log_Capture log_;
    const Kind kind_ = lzop_of_level(3);
};

TEST_F(Lzop_Interop, TheProgramReadsWhatIsStored)
{
    for (const auto& [name, plain] : contents_of_every_sort(500000))
        for (std::int32_t level = 1; level <= 9; ++level) {
            const std::string stored = written_in_parts(lzop_of_level(level), plain);
            EXPECT_TRUE(tool({"lzop", "-d", "-c"}, stored) == plain) << name << ", level " << level;
        }
}

TEST_F(Lzop_Interop, TheProgramReadsSeveralMegabytes)
{
    for (const auto& [name, plain] : contents_of_every_sort(3000000))
        EXPECT_TRUE(tool({"lzop", "-d", "-c"}, written_in_parts(kind_, plain)) == plain) << name;
}

TEST_F(Lzop_Interop, TheProgramReadsWhatWasFlushedAndAppended)
{
    const std::string plain = sample_text(1000000);
    Stacked stacked(kind_);
    Codec_IO& io = *stacked.io;
    ASSERT_TRUE(io.open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io.write(plain.data(), 100000) && io.flush() && io.flush());
    ASSERT_TRUE(io.write(plain.data() + 100000, 400000));
    ASSERT_TRUE(io.close());
    ASSERT_TRUE(io.open("a", Client_IO_Base::mode_append, 0, 0));
    ASSERT_TRUE(io.write(plain.data() + 500000, 500000));
    ASSERT_TRUE(io.close());
    // It warns of "a multipart archive" whenever there are several members.
    EXPECT_TRUE(tool({"lzop", "-d", "-c", "--ignore-warn"}, stacked.store->data) == plain);
}

TEST_F(Lzop_Interop, TheProgramFindsNothingWrongWithAStoredFile)
{
    const Temp_Directory directory;
    write_local(directory / "a.lzo", encoded(kind_, sample_text(1000000)));
    tool({"lzop", "-t", directory / "a.lzo"}, "");
    EXPECT_NE(tool({"lzop", "-l", directory / "a.lzo"}, "").find("1000000"), std::string::npos);
}

TEST_F(Lzop_Interop, WhatTheProgramMakesIsReadAtEveryLevel)
{
    for (const auto& [name, plain] : contents_of_every_sort(500000))
        for (char level = '1'; level <= '9'; ++level)
            expect_readable(kind_, tool({"lzop", "-c", std::string("-") + level}, plain), plain,
                            name + ' ' + level);
}

TEST_F(Lzop_Interop, WhatTheProgramMakesIsReadWithEverySortOfChecksum)
{
    for (const auto& [name, plain] : contents_of_every_sort(1500000))
        for (const Arguments& setting :
             {Arguments{"--crc32"}, Arguments{"--no-checksum"}, Arguments{"--crc32", "-9"}})
        {
            Arguments arguments = {"lzop", "-c"};
            arguments.insert(arguments.end(), setting.begin(), setting.end());
            expect_readable(kind_, tool(arguments, plain), plain, name + ' ' + setting[0]);
        }
}

TEST_F(Lzop_Interop, WhatTheProgramMakesOfNamedFilesIsRead)
{
    const Temp_Directory directory;
    for (const auto& [name, plain] : contents_of_every_sort(500000))
        for (const char* option : {"--name", "--no-name"}) {
            write_local(directory / "a", plain);
            tool({"lzop", "-f", option, directory / "a", "-o", directory / "a.lzo"}, "");
            expect_readable(kind_, read_local(directory / "a.lzo"), plain, name + option);
        }
}

TEST_F(Lzop_Interop, MembersOfTheProgramOneBehindTheOtherAreOneFile)
{
    std::string made;
    std::string plain;
    for (const auto& [name, part] : contents_of_every_sort(200000)) {
        made += tool({"lzop", "-c", name.size() % 2 == 0 ? "--crc32" : "--no-checksum"}, part);
        plain += part;
    }
    expect_readable(kind_, made, plain, "all sorts");
    EXPECT_TRUE(tool({"lzop", "-d", "-c", "--ignore-warn"}, made) == plain);
}

TEST_F(Lzop_Interop, WhatIsCutIsRefusedHereAndThere)
{
    const std::string made = tool({"lzop", "-c"}, sample_text(600000));
    for (const std::size_t less : {1U, 4U, 100U}) {
        const std::string cut = made.substr(0, made.size() - less);
        EXPECT_TRUE(decoded(kind_, cut, Form::copying).failed) << less;
        EXPECT_NE(run_program({"lzop", "-d", "-c"}, cut).code, 0) << less;
    }
}

} // namespace
