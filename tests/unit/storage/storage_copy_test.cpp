#include "tests/unit/storage/storage_fixture.h"

#include <climits>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

class Storage_Copy : public Storage_Both_Ways
{};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Copy, testing::Bool(), resolution_name);

TEST_P(Storage_Copy, AFileIsCopiedWithItsPermissionsAndMissingDirectories)
{
    const std::string data = sample_bytes(3 << 20);
    ASSERT_EQ(put("file", data), Failure::none);
    ASSERT_EQ(chmod(on_disk("file").c_str(), 0604), 0);
    ASSERT_TRUE(tree_->copy("file", "a/b/copy", false));
    EXPECT_EQ(get("a/b/copy"), data);
    struct stat info;
    ASSERT_EQ(stat(on_disk("a/b/copy").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0604U);
    ASSERT_EQ(put("file", "changed", Kind::within), Failure::none);
    EXPECT_EQ(get("a/b/copy"), data);
}

TEST_P(Storage_Copy, HolesStayHoles)
{
    constexpr std::uint64_t size = 3ULL << 30U;
    write_local(on_disk("file"), "start");
    fs::resize_file(on_disk("file"), size - 3);
    std::ofstream(on_disk("file"), std::ios::app) << "end";
    ASSERT_TRUE(tree_->copy("file", "copy", false));
    struct stat info;
    ASSERT_EQ(stat(on_disk("copy").c_str(), &info), 0);
    EXPECT_EQ(static_cast<std::uint64_t>(info.st_size), size);
    EXPECT_LT(info.st_blocks, 2048) << "in blocks of 512 bytes";
    std::unique_ptr<Storage_Tree::Download> download;
    ASSERT_TRUE(tree_->download("copy", download));
    char text[6];
    ASSERT_EQ(download->read(text, 6, 0), 6);
    EXPECT_EQ(std::string(text, 6), std::string("start\0", 6));
    ASSERT_EQ(download->read(text, 6, size - 4), 4);
    EXPECT_EQ(std::string(text, 4), std::string("\0end", 4));
    fs::resize_file(on_disk("file"), 0);
    fs::resize_file(on_disk("file"), size);
    ASSERT_TRUE(tree_->copy("file", "all hole", false));
    EXPECT_EQ(fs::file_size(on_disk("all hole")), size);
}

TEST_P(Storage_Copy, WhatExistsNeedsOverwriteAndReadersKeepIt)
{
    ASSERT_EQ(put("from", "new"), Failure::none);
    ASSERT_EQ(put("to", "old"), Failure::none);
    EXPECT_EQ(tree_->copy("from", "to", false).failure, Failure::exists);
    EXPECT_EQ(get("to"), "old");
    std::unique_ptr<Storage_Tree::Download> download;
    ASSERT_TRUE(tree_->download("to", download));
    EXPECT_TRUE(tree_->copy("from", "to", true));
    EXPECT_EQ(get("to"), "new");
    char text[3];
    ASSERT_EQ(download->read(text, 3, 0), 3);
    EXPECT_EQ(std::string(text, 3), "old");
    EXPECT_EQ(names_on_disk(""), (Names{"from", "to"}));
}

TEST_P(Storage_Copy, AMissingSourceFailsAndLeavesEverything)
{
    ASSERT_EQ(put("to", "old"), Failure::none);
    EXPECT_EQ(tree_->copy("missing", "to", true).failure, Failure::not_found);
    EXPECT_EQ(tree_->copy("missing", "a/b", true).failure, Failure::not_found);
    EXPECT_EQ(get("to"), "old");
    EXPECT_EQ(names_on_disk(""), Names{"to"});
}

TEST_P(Storage_Copy, ADirectoryIsCopiedWithAllItHolds)
{
    ASSERT_EQ(put("d/a/b/file", "deep"), Failure::none);
    ASSERT_EQ(put("d/file", "flat"), Failure::none);
    ASSERT_TRUE(tree_->make_collection("d/empty", 022));
    ASSERT_EQ(chmod(on_disk("d/a").c_str(), 0705), 0);
    ASSERT_EQ(chmod(on_disk("d").c_str(), 0711), 0);
    write_local(on_disk("d/.cio-new-0123456789abcdef"), "not to be copied");
    ASSERT_EQ(mkfifo(on_disk("d/pipe").c_str(), 0600), 0);
    fs::create_symlink("../d/file", on_disk("d/link"));

    ASSERT_TRUE(tree_->copy("d", "x/copy", false));
    EXPECT_EQ(names_on_disk("x"), Names{"copy"});
    EXPECT_EQ(names_on_disk("x/copy"), (Names{"a", "empty", "file", "link"}));
    EXPECT_EQ(get("x/copy/a/b/file"), "deep");
    EXPECT_EQ(get("x/copy/file"), "flat");
    EXPECT_EQ(fs::read_symlink(on_disk("x/copy/link")), "../d/file");
    struct stat info;
    ASSERT_EQ(stat(on_disk("x/copy/a").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0705U);
    ASSERT_EQ(stat(on_disk("x/copy").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0711U);
}

TEST_P(Storage_Copy, NothingIsCopiedOntoOrIntoItself)
{
    ASSERT_EQ(put("d/file", "kept"), Failure::none);
    EXPECT_EQ(tree_->copy("d/file", "d/file", true).failure, Failure::denied);
    EXPECT_EQ(tree_->copy("d", "d", true).failure, Failure::denied);
    EXPECT_EQ(tree_->copy("d", "d/a/b", true).failure, Failure::denied);
    EXPECT_EQ(tree_->copy("", "d/a", true).failure, Failure::denied);
    EXPECT_EQ(tree_->copy("d", "", true).failure, Failure::denied);
    fs::create_hard_link(on_disk("d/file"), on_disk("d/same"));
    EXPECT_EQ(tree_->copy("d/file", "d/same", true).failure, Failure::denied);
    EXPECT_EQ(get("d/file"), "kept");
    EXPECT_EQ(names_on_disk("d"), (Names{"file", "same"}));
}

TEST_P(Storage_Copy, ALinkHidesNoWayIntoTheSourceItself)
{
    if (!follows_links())
        return; // there is no way over one
    ASSERT_EQ(put("d/a/file", "kept"), Failure::none);
    fs::create_directory_symlink("d/a", on_disk("way"));
    EXPECT_EQ(tree_->copy("d", "way/copy", true).failure, Failure::denied);
    EXPECT_EQ(names_on_disk("d/a"), Names{"file"});
}

TEST_P(Storage_Copy, AFileReplacesNoDirectoryAndADirectoryOnlyAnEmptyOne)
{
    ASSERT_EQ(put("file", "x"), Failure::none);
    ASSERT_EQ(put("d/file", "y"), Failure::none);
    ASSERT_EQ(put("full/file", "kept"), Failure::none);
    ASSERT_TRUE(tree_->make_collection("empty", 022));
    EXPECT_EQ(tree_->copy("file", "empty", true).failure, Failure::is_collection);
    EXPECT_EQ(tree_->copy("d", "file", true).failure, Failure::not_collection);
    EXPECT_EQ(tree_->copy("d", "full", true).failure, Failure::not_empty);
    EXPECT_EQ(get("full/file"), "kept");
    EXPECT_EQ(get("file"), "x");
    EXPECT_TRUE(tree_->copy("d", "empty", true));
    EXPECT_EQ(get("empty/file"), "y");
    EXPECT_EQ(names_on_disk(""), (Names{"d", "empty", "file", "full"}));
}

TEST_P(Storage_Copy, DirectoriesOfAnyDepthNeedFewHandles)
{
    std::string path = "d";
    for (int depth = 0; depth < 500; ++depth)
        path += "/directory";
    ASSERT_GT(path.size(), std::size_t{PATH_MAX});
    ASSERT_EQ(put(path + "/file", "deep"), Failure::none);
    ASSERT_EQ(put("d/directory/directory/sibling", "flat"), Failure::none);
    rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    const rlimit few{100, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    EXPECT_TRUE(tree_->copy("d", "copy", false));
    // A walk over all of it is the beginning of a tree with a quota.
    auto limited = options();
    limited.quota = 1000;
    open(limited);
    EXPECT_EQ(tree_->used(), 16U);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
    EXPECT_EQ(get("copy" + path.substr(1) + "/file"), "deep");
    EXPECT_EQ(get("copy/directory/directory/sibling"), "flat");
}

} // namespace
