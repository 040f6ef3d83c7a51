#include "cli/image.h"
#include "tests/cli/image_test.h"

#include "tests/cli/test_pipe.h"
#include "tests/support/fake_clock.h"
#include "tests/support/this_system.h"

#include <functional>
#include <utility>

/// What is stored, and that it comes back.
class Image_Save : public Image_Test
{
protected:
    void expect_round_trip(const std::string& source, const std::vector<std::string>& options) const
    {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {"--overwrite", source, uri(), "image"});
        done("save", arguments);
        // How blocks are cut is the image's own, which readers need not be told.
        done("verify", {uri(), "image", source});
        done("restore", {"--overwrite", "--zero", uri(), "image", "back"});
        EXPECT_TRUE(same(source, "back")) << source;
        EXPECT_EQ(std::filesystem::file_size(at("back")), std::filesystem::file_size(at(source)));
    }
};

TEST_F(Image_Save, HolesAndBlocksOfZerosAreNotStored)
{
    write_sparse("disk", 10 << 20,
                 {{0, pattern(1000)},
                  {2 << 20, pattern(200'000)},
                  {4 << 20, std::string(1 << 20, '\0')},
                  {(4 << 20) + 300'000, "x"}});
    save("disk", "image");
    EXPECT_EQ(extents("image"), "0 65536\n2097152 262144\n4456448 65536\n");
    EXPECT_LT(stored_size("image"), 6 * 65536 + 20'000U);
    done("verify", {uri(), "image", "disk"});
    done("restore", {uri(), "image", "back"});
    EXPECT_TRUE(same("disk", "back"));
}

TEST_F(Image_Save, SourcesOfEveryShapeComeBack)
{
    write("one byte", "x");
    write("odd", pattern(1'333'333));
    write("dense", pattern(2 << 20));
    write("zeros", std::string(200'001, '\0'));
    write_sparse("hole", 5'000'001, {});
    write_sparse("end", (7 << 20) + 5, {{(7 << 20) + 4, "x"}});
    write_sparse("start", 7 << 20, {{0, "x"}});
    std::string every_other(1 << 19, '\0');
    for (std::size_t at = 0; at < every_other.size(); at += 1024)
        every_other[at + 1023] = 'x';
    write("every other", every_other);
    for (const char* source :
         {"one byte", "odd", "dense", "zeros", "hole", "end", "start", "every other"})
        for (const auto& [block, descriptor] :
             {std::pair("512", "512"), std::pair("64K", "4K"), std::pair("1M", "512")})
        {
            SCOPED_TRACE(std::string(source) + " " + block + " " + descriptor);
            expect_round_trip(source, {"--block-size", block, "--descriptor-size", descriptor});
        }
}

TEST_F(Image_Save, ASourceWithoutDataHasOneBlock)
{
    write_sparse("hole", 5 << 20, {});
    save("hole", "image");
    EXPECT_EQ(extents("image"), "0 65536\n");
    write("few zeros", std::string(100, '\0'));
    save("few zeros", "small");
    EXPECT_EQ(extents("small"), "0 100\n");
}

TEST_F(Image_Save, AnEmptySourceIsRefused)
{
    write("empty", "");
    const Cio_Result result = image("save", {"empty", uri(), "image"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("empty: Is empty"), std::string::npos) << result.err;
    EXPECT_FALSE(exists("target/image"));
}

TEST_F(Image_Save, WhatIsNoDiskAndWhatIsNotThereIsRefused)
{
    std::filesystem::create_directories(at("directory"));
    EXPECT_EQ(image("save", {"directory", uri(), "image"}).code, 1);
    EXPECT_EQ(image("save", {"nope", uri(), "image"}).code, 3);
    EXPECT_FALSE(exists("target/image"));
    EXPECT_EQ(image("save", {"nope", uri(), "/"}).code, 2);
}

TEST_F(Image_Save, AnExistingImageStaysUnlessItIsToBeOverwritten)
{
    write("disk", pattern(100'000));
    write("target/image", "there");
    const Cio_Result refused = image("save", {"disk", uri(), "image"});
    EXPECT_EQ(refused.code, 4) << refused.err;
    EXPECT_EQ(read("target/image"), "there");
    // A source that cannot be read does not cost it either.
    EXPECT_EQ(image("save", {"--overwrite", "nope", uri(), "image"}).code, 3);
    EXPECT_EQ(read("target/image"), "there");
    save("disk", "image", {"--overwrite"});
    done("verify", {uri(), "image", "disk"});
    EXPECT_EQ(image("save", {"-o", "overwrite=true", "disk", uri(), "image"}).code, 0);
}

TEST_F(Image_Save, ASourceIsNotStoredOntoItself)
{
    write("target/disk", pattern(100'000));
    const Cio_Result result = image("save", {"--overwrite", path("target/disk"), uri(), "disk"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("the same file"), std::string::npos) << result.err;
    EXPECT_EQ(read("target/disk"), pattern(100'000));
}

TEST_F(Image_Save, ImagesGoThroughEveryTransform)
{
    write_sparse("disk", 9'000'001,
                 {{100'000, pattern(300'000)}, {8 << 20, std::string(5000, 'a')}});
    for (const std::string& method : methods())
        for (const char* cipher : {"", "aes-256-cbc"}) {
            SCOPED_TRACE(method + " " + cipher);
            const std::vector<std::string> with = flags(method, cipher);
            const auto run = [&](const std::string& command, std::vector<std::string> arguments) {
                arguments.insert(arguments.begin(), with.begin(), with.end());
                return done(command, arguments);
            };
            run("save", {"--overwrite", "disk", uri(), "image"});
            EXPECT_NE(run("info", {uri(), "image"}).out.find("\n65536 393216\n8388608 65536\n# 2 "),
                      std::string::npos);
            run("verify", {uri(), "image", "disk"});
            run("restore", {"--overwrite", "--zero", uri(), "image", "back"});
            EXPECT_TRUE(same("disk", "back"));
        }
}

TEST_F(Image_Save, AWrongKeyRestoresNothing)
{
    write("disk", pattern(300'000));
    write_key("wrong", std::string(64, '1'), iv_hex);
    done("save", {"--encrypt", "aes-256-cbc", "--key-file", "K", "disk", uri(), "image"});
    const Cio_Result result = image(
        "restore", {"--encrypt", "aes-256-cbc", "--key-file", "wrong", uri(), "image", "back"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("not a block image"), std::string::npos) << result.err;
    EXPECT_FALSE(exists("back"));
}

TEST_F(Image_Save, TotalsCountWhatIsStored)
{
    write_sparse("disk", 64 << 20, {{1 << 20, pattern(100'000)}});
    const Cio_Result result = done("save", {"--json", "disk", uri(), "image"});
    EXPECT_NE(result.out.find("\"command\":\"image save\""), std::string::npos);
    EXPECT_NE(result.out.find("\"bytes\":131072"), std::string::npos) << result.out;
    EXPECT_EQ(done("save", {"-q", "disk", uri(), "quiet"}).out, "");
    EXPECT_NE(done("save", {"disk", uri(), "told"}).out.find("image save: 1 files, 128.0 KiB"),
              std::string::npos);
}

/// The progress line reads the clock after every piece, which is the moment at which the source is
/// changed.
class Image_Of_Changing_Source : public Image_Test
{
protected:
    int save_while(const std::function<void()>& change)
    {
        Fake_Clock clock;
        cio::Output out(pipe_.write_end());
        cio::Reporter report({"image save", false, true, true}, out, out);
        unsigned looks = 0;
        clock.on_look = [&] {
            if (++looks == 2)
                change();
        };
        cio::Invocation invocation{{path("disk"), uri(), "image"},
                                   {},
                                   false,
                                   false,
                                   true,
                                   false,
                                   false,
                                   1,
                                   {},
                                   {},
                                   report,
                                   out};
        cio::image_save_command.run(invocation);
        clock.on_look = nullptr;
        const int code = report.finish(false);
        out.flush();
        messages_ = pipe_.take();
        return code;
    }

    Test_Pipe pipe_;
    std::string messages_;
};

TEST_F(Image_Of_Changing_Source, OneThatStaysAsItIsIsNoFailure)
{
    write("disk", pattern(3 << 20));
    EXPECT_EQ(save_while([] {}), 0) << messages_;
}

TEST_F(Image_Of_Changing_Source, OneWhoseTimeOrSizeChangesIsAFailure)
{
    write("disk", pattern(3 << 20));
    EXPECT_EQ(save_while([this] { shift_time("disk", -100); }), 1);
    EXPECT_NE(messages_.find("changed while it was read"), std::string::npos) << messages_;
    EXPECT_EQ(save_while([this] { write_into("disk", 3 << 20, "more"); }), 1);
    EXPECT_NE(messages_.find("changed while it was read"), std::string::npos) << messages_;
}

TEST_F(Image_Of_Changing_Source, OneThatBecomesShorterLeavesNoImage)
{
    write("disk", pattern(6 << 20));
    EXPECT_EQ(save_while([this] { std::filesystem::resize_file(at("disk"), 10); }), 1);
    EXPECT_NE(messages_.find("changed while it was read"), std::string::npos) << messages_;
    EXPECT_FALSE(exists("target/image"));
    EXPECT_EQ(messages_.find("what was there before is gone"), std::string::npos) << messages_;
}

TEST_F(Image_Of_Changing_Source, AFailureThatCostTheOlderImageSaysSo)
{
    write("disk", pattern(6 << 20));
    save("disk", "image");
    EXPECT_EQ(save_while([this] { std::filesystem::resize_file(at("disk"), 10); }), 1);
    EXPECT_FALSE(exists("target/image"));
    EXPECT_NE(messages_.find(R"({"path":"image","text":"what was there before is gone")"),
              std::string::npos)
        << messages_;
}

/// Slowed down, so that there is time to end it.
class Interrupted_Image : public Image_Test
{
protected:
    Cio_Result end_in_progress(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin() + 2, {"--json", "--limit", "2M"});
        Cio_Process process(arguments, in_here());
        EXPECT_TRUE(process.wait_for_output("\"progress\""));
        process.ask_to_end();
        return process.wait();
    }
};

TEST_F(Interrupted_Image, SavingLeavesNoImage)
{
    write("disk", pattern(16 << 20));
    EXPECT_EQ(end_in_progress({"image", "save", "disk", uri(), "image"}).code, 130);
    EXPECT_FALSE(exists("target/image"));
    write("all", "0 16777216\n");
    EXPECT_EQ(end_in_progress({"image", "save", "--extents", "all", "disk", uri(), "image"}).code,
              130);
    EXPECT_FALSE(exists("target/image"));
}

TEST_F(Interrupted_Image, SavingInPlaceOfAnOlderImageSaysThatThisIsGone)
{
    write("disk", pattern(16 << 20));
    save("disk", "image");
    const Cio_Result result =
        end_in_progress({"image", "save", "--overwrite", "disk", uri(), "image"});
    EXPECT_EQ(result.code, 130);
    EXPECT_FALSE(exists("target/image"));
    EXPECT_NE(result.out.find("\"text\":\"what was there before is gone\""), std::string::npos)
        << result.out;
}

TEST_F(Interrupted_Image, RestoringLeavesNoNewFileAndNamesOneThatWasThere)
{
    write("disk", pattern(16 << 20));
    save("disk", "image");
    EXPECT_EQ(end_in_progress({"image", "restore", uri(), "image", "back"}).code, 130);
    EXPECT_FALSE(exists("back"));
    write("back", pattern(16 << 20, 2));
    const Cio_Result result =
        end_in_progress({"image", "restore", "--overwrite", uri(), "image", "back"});
    EXPECT_EQ(result.code, 130);
    EXPECT_NE(result.out.find("\"partial\""), std::string::npos) << result.out;
    EXPECT_TRUE(exists("back"));
}

TEST_F(Interrupted_Image, VerifyingEnds)
{
    write("disk", pattern(16 << 20));
    save("disk", "image");
    const Cio_Result result = end_in_progress({"image", "verify", uri(), "image", "disk"});
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.out.find("\"difference\":"), std::string::npos) << result.out;
}
