#include "tests/cli/file_size_limit.h"
#include "tests/cli/image_test.h"
#include "tests/cli/mount.h"
#include "tests/unit/runtime/page_cache_recorder.h"

#include "cli/image_source.h"
#include "cli/image_target.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// Full disks, devices, and files that are none.
class Image_On_Disk : public Image_Test
{};

/// A block device over a file of the test; needs root.
class Loop_Device
{
public:
    explicit Loop_Device(const std::string& file)
    {
        FILE* const pipe = ::popen(
            ("PATH=$PATH:/sbin:/usr/sbin losetup -f --show '" + file + "' 2>&1").c_str(), "r");
        char line[256] = {};
        if (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr)
            name_ = line;
        if (pipe != nullptr)
            ::pclose(pipe);
        name_.erase(name_.find_last_not_of('\n') + 1);
        if (!exists())
            std::cout << "a loop device is refused: " << name_ << "\n";
    }
    ~Loop_Device()
    {
        if (exists())
            (void)std::system(("PATH=$PATH:/sbin:/usr/sbin losetup -d " + name_).c_str());
    }
    Loop_Device(const Loop_Device&) = delete;
    Loop_Device& operator=(const Loop_Device&) = delete;

    bool exists() const { return name_.starts_with("/dev/"); }
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

TEST_F(Image_On_Disk, ADeviceIsStoredAndRestored)
{
    const std::string old = pattern(8 << 20, 7);
    write("backing", old);
    write_sparse("disk", (6 << 20) + 512, {{1 << 20, pattern(100'000)}, {5 << 20, pattern(5000)}});
    save("disk", "image");
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    EXPECT_EQ(image("restore", {uri(), "image", device.name()}).code, 4);
    done("restore", {"--overwrite", uri(), "image", device.name()});
    std::string expected = old;
    expected.replace(1 << 20, 131072, pattern(100'000) + std::string(31072, '\0'));
    expected.replace(5 << 20, 65536, pattern(5000) + std::string(60536, '\0'));
    EXPECT_EQ(read("backing"), expected);

    done("restore", {"--overwrite", "--zero", uri(), "image", device.name()});
    expected = read("disk") + old.substr((6 << 20) + 512);
    EXPECT_EQ(read("backing"), expected);
    // The disk is larger, but holds what the image does.
    done("verify", {uri(), "image", device.name()});

    save(device.name(), "of device");
    EXPECT_EQ(extents("of device"), "1048576 131072\n5242880 65536\n6291456 2097152\n");
    done("verify", {uri(), "of device", device.name()});
    done("restore", {uri(), "of device", "back"});
    EXPECT_TRUE(same("backing", "back"));
}

TEST_F(Image_On_Disk, ALargerDeviceEqualsTheSourceWhateverStandsBehindIt)
{
    write("backing", std::string(1 << 20, '\xff'));
    write("disk", pattern(197'120)); // three of its blocks, and 512 bytes of another
    save("disk", "image");
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    done("restore", {"--overwrite", uri(), "image", device.name()});
    EXPECT_TRUE(read("backing") == read("disk") + std::string((1 << 20) - 197'120, '\xff'));
    done("verify", {uri(), "image", device.name()});
}

TEST_F(Image_On_Disk, ADeviceInUseStaysAsItIs)
{
    const std::string old = pattern(1 << 20, 7);
    write("backing", old);
    write("disk", pattern(1 << 20));
    save("disk", "image");
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    const int user = ::open(device.name().c_str(), O_RDONLY | O_EXCL | O_CLOEXEC);
    ASSERT_GE(user, 0); // as a mount does it
    EXPECT_EQ(image("restore", {"--overwrite", uri(), "image", device.name()}).code, 1);
    ::close(user);
    EXPECT_EQ(read("backing"), old);
}

TEST_F(Image_On_Disk, ADeviceIsNotStoredInItself)
{
    const std::string old = pattern(1 << 20, 7);
    write("backing", old);
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    std::filesystem::create_directory(at("target"));
    std::filesystem::create_symlink(device.name(), at("target/link"));
    EXPECT_EQ(image("save", {"--overwrite", device.name(), uri(), "link"}).code, 1);
    EXPECT_EQ(read("backing"), old);
}

TEST_F(Image_On_Disk, ADeviceThatGetsAnotherBeginningHasChanged)
{
    write("backing", pattern(1 << 20, 7));
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    cio::Image_Source source;
    cio::Failure failure;
    ASSERT_TRUE(source.open(device.name(), failure)) << failure.text;
    EXPECT_TRUE(source.is_unchanged());
    const int writer = ::open(device.name().c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(writer, "new", 3, 1024), 3);
    ::close(writer);
    EXPECT_FALSE(source.is_unchanged());
}

TEST_F(Image_On_Disk, ADeviceThatIsTooSmallStaysAsItIs)
{
    const std::string old = pattern(1 << 20, 7);
    write("backing", old);
    write("disk", pattern((1 << 20) + 512));
    save("disk", "image");
    const Loop_Device device(path("backing"));
    if (!device.exists()) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to make a loop device";
        GTEST_SKIP() << "left out: the test of a device";
    }
    const Cio_Result result =
        image("restore", {"--overwrite", "--zero", uri(), "image", device.name()});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("Is smaller than the source: 1048576 bytes, 1049088 are needed"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(read("backing"), old);
}

TEST_F(Image_On_Disk, AFullDiskFailsARestoreAndLeavesNothingNew)
{
    Mount disk;
    if (!disk.small_disk(at("small"), 4 << 20)) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to mount a small disk";
        GTEST_SKIP() << "left out: the test of a full disk";
    }
    write("disk", pattern(6 << 20));
    save("disk", "image");
    const Cio_Result result = image("restore", {uri(), "image", "small/back"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    EXPECT_FALSE(exists("small/back"));

    write("small/there", "x");
    const Cio_Result in_place = image("restore", {"--overwrite", uri(), "image", "small/there"});
    EXPECT_EQ(in_place.code, 1);
    EXPECT_NE(in_place.err.find("bytes were written to small/there before that"), std::string::npos)
        << in_place.err;
    EXPECT_TRUE(exists("small/there"));
}

TEST_F(Image_On_Disk, AFullTargetFailsASaveAndLeavesNoImage)
{
    Mount disk;
    if (!disk.small_disk(at("target"), 4 << 20)) {
        ASSERT_TRUE(tests_without_mount()) << "this test has to mount a small disk";
        GTEST_SKIP() << "left out: the test of a full disk";
    }
    write("disk", pattern(6 << 20));
    const Cio_Result result = image("save", {"disk", uri(), "image"});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("No space left on device"), std::string::npos) << result.err;
    EXPECT_FALSE(exists("target/image"));
}

TEST_F(Image_On_Disk, PipesAndCharacterDevicesAreRefusedWithoutWaiting)
{
    ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
    write("disk", pattern(1000));
    save("disk", "image");
    for (const std::string& name : {std::string("pipe"), std::string("/dev/null")}) {
        const Cio_Result from = image("save", {name, uri(), "new"});
        EXPECT_EQ(from.code, 1);
        EXPECT_NE(from.err.find("Neither a file nor a block device"), std::string::npos);
        const Cio_Result to = image("restore", {"--overwrite", uri(), "image", name});
        EXPECT_EQ(to.code, 1);
        EXPECT_NE(to.err.find("Neither a file nor a block device"), std::string::npos);
    }
}

TEST_F(Image_On_Disk, ASourceThatMayNotBeReadIsToldAndCostsNothing)
{
    write("disk", pattern(1000));
    write("target/image", "there");
    ASSERT_EQ(::chmod(path("disk").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path("").c_str(), 0777), 0);
    const Cio_Result result =
        image("save", {"--overwrite", "disk", uri(), "image"}, {.powerless = true});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("disk: Failed to open local file: Permission denied"),
              std::string::npos)
        << result.err;
    EXPECT_EQ(read("target/image"), "there");
}

TEST_F(Image_On_Disk, HolesStayHolesWhenTheyComeBack)
{
    write_sparse("disk", 64 << 20, {{1 << 20, pattern(65536)}, {60 << 20, pattern(65536)}});
    save("disk", "image");
    done("restore", {uri(), "image", "back"});
    struct stat status = {};
    ASSERT_EQ(::stat(path("back").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 64 << 20);
    EXPECT_LE(status.st_blocks * 512, 200'000);
}

TEST_F(Image_On_Disk, AFileThatMayNotBecomeSoLongFailsARestoreWhichSaysWhatItDid)
{
    write("disk", pattern(3 << 20));
    save("disk", "image");
    const File_Size_Limit limit(100'000);
    const Cio_Result fresh = image("restore", {uri(), "image", "new"});
    EXPECT_EQ(fresh.code, 1);
    EXPECT_NE(fresh.err.find("new: Failed to write: File too large\n"), std::string::npos)
        << fresh.err;
    EXPECT_FALSE(exists("new"));

    write("back", "x");
    const Cio_Result shorter = image("restore", {"--overwrite", uri(), "image", "back"});
    EXPECT_EQ(shorter.code, 1);
    EXPECT_NE(shorter.err.find("back: Failed to write: File too large\n"), std::string::npos)
        << shorter.err;
    EXPECT_EQ(read("back"), "x");
}

TEST_F(Image_On_Disk, AFirstWriteThatFailsWithinSaysThatTheFileMayHaveChanged)
{
    write("disk", pattern(3 << 20));
    save("disk", "image");
    const std::string old = pattern(3 << 20, 7);
    write("back", old);
    {
        const File_Size_Limit limit(100'000);
        const Cio_Result result = image("restore", {"--overwrite", uri(), "image", "back"});
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find("back: Failed to write: File too large (back may have been "
                                  "changed before that)\n"),
                  std::string::npos)
            << result.err;
    }
    EXPECT_TRUE(read("back") == pattern(3 << 20).substr(0, 100'000) + old.substr(100'000));
}

TEST_F(Image_On_Disk, ANewFileThatCannotBeRemovedIsNotSaidToBe)
{
    cio::Image_Target target(path("new"));
    cio::Failure failure;
    ASSERT_TRUE(target.examine(false, failure)) << failure.text;
    ASSERT_TRUE(target.open(1000, false, failure)) << failure.text;
    ASSERT_TRUE(target.write("x", 1, 0, failure)) << failure.text;
    std::filesystem::remove(at("new"));
    write("new/in the way", "");
    EXPECT_FALSE(target.discard());
    std::filesystem::remove_all(at("new"));
    EXPECT_TRUE(target.discard()) << "somebody else has removed it";
}

TEST_F(Image_On_Disk, OfNoBytesNothingIsForgotten)
{
    Page_Cache_Recorder recorder;
    cio::image_disk::forget(0, 4096, 0); // to the system, no length is all up to the end
    EXPECT_TRUE(recorder.empty());
    cio::image_disk::forget(0, 4096, 512);
    EXPECT_EQ(
        recorder.calls(Page_Cache_Recorder::Hint::forget),
        (std::vector<Page_Cache_Recorder::Call>{{Page_Cache_Recorder::Hint::forget, 4096, 512}}));
}
