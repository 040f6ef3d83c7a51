#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/unit/runtime/copy_file_fixture.h"

namespace fs = std::filesystem;

namespace
{

TEST_F(Copy_File_Test, ContentsOfEverySizeAreCopied)
{
    for (const std::size_t size : {0U, 1U, 4096U, 262144U, 3000001U}) {
        const std::string data = sample_bytes(size);
        write_local(source, data);
        ASSERT_TRUE(copy(source, target)) << error;
        EXPECT_TRUE(read_local(target) == data) << size;
        EXPECT_TRUE(read_local(source) == data) << size;
        EXPECT_EQ(names_in(directory.str()), (Names{"source", "target"}));
    }
    EXPECT_EQ(error, "old") << "a success has no text";
}

TEST_F(Copy_File_Test, AnExistingTargetIsReplaced)
{
    write_local(source, "new");
    write_local(target, "a longer old text");
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_EQ(read_local(target), "new");
}

TEST_F(Copy_File_Test, CopyingAFileOntoItselfKeepsIt)
{
    write_local(source, "kept");
    EXPECT_TRUE(copy(source, source)) << error;
    EXPECT_EQ(read_local(source), "kept");
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, RelativeNamesAreCopiedInTheWorkingDirectory)
{
    write_local(source, "data");
    const fs::path old = fs::current_path();
    fs::current_path(directory.path());
    const bool copied = copy("source", "target");
    fs::current_path(old);
    ASSERT_TRUE(copied) << error;
    EXPECT_EQ(read_local(target), "data");
}

TEST_F(Copy_File_Test, AMissingSourceLeavesTheTarget)
{
    write_local(target, "kept");
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, os_error::no_such_file);
    EXPECT_EQ(error, POSIX_Error(os_error::no_such_file, 1).str());
    EXPECT_EQ(read_local(target), "kept");
    EXPECT_EQ(names_in(directory.str()), Names{"target"});
}

TEST_F(Copy_File_Test, ADirectoryIsNoSource)
{
    fs::create_directory(source);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, os_error::is_a_directory);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, ADirectoryIsNoTarget)
{
    write_local(source, "data");
    fs::create_directory(target);
    EXPECT_FALSE(copy(source, target));
    EXPECT_EQ(reason, this_system::errors.replace_directory);
    EXPECT_EQ(names_in(directory.str()), (Names{"source", "target"}));
    EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(Copy_File_Test, AMissingDirectoryOfTheTargetIsAFailure)
{
    write_local(source, "data");
    EXPECT_FALSE(copy(source, directory / "missing/target"));
    EXPECT_EQ(reason, os_error::no_such_directory);
    EXPECT_FALSE(copy(source, directory / "source/target"));
    EXPECT_EQ(reason, this_system::errors.below_a_file);
    EXPECT_EQ(names_in(directory.str()), Names{"source"});
}

TEST_F(Copy_File_Test, EmptyAndNullPathsAreRefused)
{
    EXPECT_FALSE(copy("", target));
    EXPECT_EQ(reason, os_error::invalid_argument);
    EXPECT_FALSE(copy(source, ""));
    EXPECT_FALSE(copy_file(nullptr, target.c_str(), 7, nullptr));
    EXPECT_FALSE(copy_file(source.c_str(), nullptr, 7, nullptr));
}

TEST_F(Copy_File_Test, AHoleAtTheEndIsKept)
{
    write_local(source, sample_bytes(100000));
    this_system::resize_with_hole(source, 10000000);
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_TRUE(read_local(target) == read_local(source));
    write_local(source, "");
    this_system::resize_with_hole(source, 10000000);
    ASSERT_TRUE(copy(source, target)) << error;
    EXPECT_TRUE(read_local(target) == std::string(10000000, '\0'));
}

TEST_F(Copy_File_Test, NoHandleIsLeaked)
{
    write_local(source, "data");
    fs::create_directory(directory / "directory");
    const std::size_t before = this_system::open_handles();
    EXPECT_TRUE(copy(source, target));
    EXPECT_FALSE(copy(source, directory / "directory"));
    EXPECT_FALSE(copy(directory / "directory", target));
    EXPECT_FALSE(copy(source, directory / "missing/target"));
    EXPECT_EQ(this_system::open_handles(), before);
}

} // namespace
