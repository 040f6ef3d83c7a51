#include "client_io/zstd_io.h"

#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/transforms/interop.h"

// Files go both ways between the transform and the zstd program.

namespace
{

using Arguments = std::vector<std::string>;

Kind zstd_of_level(std::int32_t level)
{
    return {"", [level](auto io) { return std::make_unique<ZSTD_IO>(std::move(io), level); }};
}

class Zstd_Interop : public testing::Test
{
protected:
    Log_Capture log_;
    const Kind kind_ = zstd_of_level(3);
};

TEST_F(Zstd_Interop, TheProgramReadsWhatIsStored)
{
    for (const auto& [name, plain] : contents_of_every_sort(1500000))
        for (const std::int32_t level : {-5, 1, 3, 9}) {
            const std::string stored = written_in_parts(zstd_of_level(level), plain);
            EXPECT_TRUE(tool({"zstd", "-d", "-c"}, stored) == plain) << name << ", level " << level;
        }
}

TEST_F(Zstd_Interop, TheProgramReadsWhatTheHighestLevelsStore)
{
    for (const auto& [name, plain] : contents_of_every_sort(300000))
        for (const std::int32_t level : {19, 22}) {
            const std::string stored = written_in_parts(zstd_of_level(level), plain);
            EXPECT_TRUE(tool({"zstd", "-d", "-c"}, stored) == plain) << name << ", level " << level;
        }
}

TEST_F(Zstd_Interop, TheProgramReadsWhatWasFlushedAndAppended)
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
    EXPECT_TRUE(tool({"zstd", "-d", "-c"}, stacked.store->data) == plain);
}

TEST_F(Zstd_Interop, TheProgramFindsTheChecksum)
{
    const Temp_Directory directory;
    write_local(directory / "a.zst", encoded(kind_, sample_text(1000)));
    EXPECT_NE(tool({"zstd", "-l", "-v", directory / "a.zst"}, "").find("XXH64"), std::string::npos);
}

TEST_F(Zstd_Interop, WhatTheProgramMakesIsRead)
{
    const std::vector<Arguments> settings = {{"-1"},
                                             {"-3"},
                                             {"-9"},
                                             {"--fast=5"},
                                             {"--no-check"},
                                             {"--check"},
                                             {"--long=27"},
                                             {"-T0"},
                                             {"-T2", "-B64KiB"},
                                             {"--rsyncable"},
                                             {"--stream-size=1500000"},
                                             {"--adapt", "-T1"}};
    for (const auto& [name, plain] : contents_of_every_sort(1500000))
        for (const Arguments& setting : settings) {
            if (setting[0].starts_with("--stream-size") && plain.size() != 1500000)
                continue; // it tells the program the size
            Arguments arguments = {"zstd", "-q", "-c"};
            arguments.insert(arguments.end(), setting.begin(), setting.end());
            expect_readable(kind_, tool(arguments, plain), plain, name + ' ' + setting[0]);
        }
}

TEST_F(Zstd_Interop, WhatTheProgramMakesAtItsHighestLevelsIsRead)
{
    for (const auto& [name, plain] : contents_of_every_sort(300000)) {
        expect_readable(kind_, tool({"zstd", "-c", "-19"}, plain), plain, name);
        expect_readable(kind_, tool({"zstd", "-c", "--ultra", "-22"}, plain), plain, name);
    }
}

TEST_F(Zstd_Interop, WhatTheProgramMakesOfNamedFilesIsRead)
{
    // Unlike from a pipe it knows the size, and puts it into the header.
    const Temp_Directory directory;
    for (const auto& [name, plain] : contents_of_every_sort(1000000)) {
        write_local(directory / "a", plain);
        tool({"zstd", "-q", "-f", directory / "a", "-o", directory / "a.zst"}, "");
        expect_readable(kind_, read_local(directory / "a.zst"), plain, name);
    }
}

TEST_F(Zstd_Interop, FilesOfTheProgramOneBehindTheOtherAreOne)
{
    std::string made;
    std::string plain;
    for (const auto& [name, part] : contents_of_every_sort(200000)) {
        made += tool({"zstd", "-c", name.size() % 2 == 0 ? "--check" : "--no-check"}, part);
        plain += part;
    }
    expect_readable(kind_, made, plain, "all sorts");
}

TEST_F(Zstd_Interop, WhatNeedsTooMuchMemoryIsRefused)
{
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const Decoded result =
            decoded(kind_, tool({"zstd", "-c", "--long=31"}, sample_text(1000)), form);
        EXPECT_TRUE(result.failed);
        EXPECT_EQ(result.error,
                  "Failed to zstd decompress, Frame requires too much memory for decoding");
        EXPECT_FALSE(result.retriable);
    }
}

} // namespace
