#include "servers/storage/file_handle.h"
#include "tests/support/allocation_count.h"
#include "tests/unit/storage/storage_fixture.h"

#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// Status, downloads and listings.

namespace fs = std::filesystem;

namespace
{

class Storage_Reading : public Storage_Both_Ways
{};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Reading, testing::Bool(), resolution_name);

TEST_P(Storage_Reading, StatusTellsSizeTimeAndKind)
{
    write_local(on_disk("file"), "12345");
    fs::create_directory(on_disk("d"));
    const timespec times[] = {{0, UTIME_OMIT}, {1000, 7}};
    ASSERT_EQ(utimensat(AT_FDCWD, on_disk("file").c_str(), times, 0), 0);

    Storage_Status status;
    ASSERT_TRUE(tree_->status("/file", status));
    EXPECT_FALSE(status.is_dir);
    EXPECT_EQ(status.size, 5U);
    EXPECT_EQ(status.mtime_ns, 1000000000007);
    EXPECT_EQ(status.entity_tag.front(), '"');
    EXPECT_EQ(status.entity_tag.back(), '"');
    ASSERT_TRUE(tree_->status("d", status));
    EXPECT_TRUE(status.is_dir);
    EXPECT_EQ(status.size, 0U);
    EXPECT_EQ(status.entity_tag, "");
    ASSERT_TRUE(tree_->status("", status));
    EXPECT_TRUE(status.is_dir);
}

TEST_P(Storage_Reading, MissingPathsFilesAndDirectoriesAreToldApart)
{
    write_local(on_disk("file"), "");
    fs::create_directory(on_disk("d"));
    EXPECT_EQ(status("missing"), Failure::not_found);
    EXPECT_EQ(status("missing/x"), Failure::not_found);
    EXPECT_EQ(status("file/x"), Failure::not_collection);
    EXPECT_EQ(get("d"), "<is_collection>");
    EXPECT_EQ(get("missing"), "<not_found>");
    EXPECT_EQ(list("file"), Names{"<not_collection>"});
    EXPECT_EQ(list("missing"), Names{"<not_found>"});
    EXPECT_EQ(status("a/../file"), Failure::bad_path);
}

TEST_P(Storage_Reading, ADownloadReadsAnyPartAndKeepsItsVersionWhenTheFileIsReplaced)
{
    ASSERT_EQ(put("file", "old contents"), Failure::none);
    std::unique_ptr<Storage_Tree::Download> download;
    ASSERT_TRUE(tree_->download("file", download));
    ASSERT_EQ(put("file", "new", Kind::replace), Failure::none);
    char text[32];
    ASSERT_EQ(download->read(text, sizeof text, 4), 8);
    EXPECT_EQ(std::string(text, 8), "contents");
    EXPECT_EQ(download->read(text, sizeof text, 12), 0);
    EXPECT_EQ(download->status().size, 12U);
    EXPECT_EQ(get("file"), "new");
}

TEST_P(Storage_Reading, AListingHasNamesKindsSizesAndTimesInTheListedForm)
{
    write_local(on_disk("file"), "123");
    write_local(on_disk("\xFF"), "");
    fs::create_directory(on_disk("d"));
    const timespec times[] = {{0, UTIME_OMIT}, {5, 6}};
    ASSERT_EQ(utimensat(AT_FDCWD, on_disk("file").c_str(), times, 0), 0);
    EXPECT_EQ(list(""), (Names{"d/", "file", "\xEF\x9F\xBF"}));
    EXPECT_EQ(list("d"), Names{});
    std::unique_ptr<Storage_Tree::Listing> listing;
    ASSERT_TRUE(tree_->list("", listing));
    Storage_Tree::Entry entry;
    for (bool end = false; !end;) {
        ASSERT_TRUE(listing->next(entry, end));
        if (entry.name == "file" && !end) {
            EXPECT_EQ(entry.size, 3U);
            EXPECT_EQ(entry.mtime_ns, 5000000006);
            EXPECT_FALSE(entry.is_dir);
        }
    }
}

TEST_P(Storage_Reading, WhatAListingShowsIsFoundUnderThatName)
{
    for (const std::string name : {"\xFF\xFE", "\xEF\x9E\x80", "new\nline", "\xC3\xA9", "\xC3"})
        write_local(on_disk(name), name);
    const Names names = list("");
    EXPECT_EQ(names.size(), 5U);
    for (const std::string& name : names)
        EXPECT_EQ(get(name), Storage_Tree::meant_name(name));
}

TEST_P(Storage_Reading, PipesAndSocketsAreNeitherListedNorOpenedNorWaitedFor)
{
    ASSERT_EQ(mkfifo(on_disk("pipe").c_str(), 0600), 0);
    const File_Handle socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = ""};
    const std::string name = on_disk("socket");
    ASSERT_LT(name.size(), sizeof address.sun_path);
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

    EXPECT_EQ(list(""), Names{});
    for (const std::string path : {"pipe", "socket"}) {
        EXPECT_EQ(status(path), Failure::denied);
        EXPECT_EQ(get(path), "<denied>");
        EXPECT_EQ(list(path), Names{"<not_collection>"});
        EXPECT_EQ(put(path, "x", Kind::create), Failure::exists);
        EXPECT_EQ(put(path, "x", Kind::replace), Failure::denied);
        EXPECT_EQ(put(path, "x", Kind::within), Failure::denied);
        EXPECT_EQ(put(path, "x", Kind::cut), Failure::denied);
        EXPECT_EQ(tree_->remove(path).failure, Failure::denied);
        EXPECT_EQ(tree_->copy(path, "copy", true).failure, Failure::denied);
        EXPECT_EQ(tree_->move(path, "moved", true).failure, Failure::denied);
        write_local(on_disk("file"), "");
        EXPECT_EQ(tree_->move("file", path, true).failure, Failure::denied);
        EXPECT_EQ(tree_->copy("file", path, true).failure, Failure::denied);
        EXPECT_EQ(names_on_disk(""), (Names{"file", "pipe", "socket"}));
        fs::remove(on_disk("file"));
    }
}

TEST_P(Storage_Reading, AListingNeedsTheSameMemoryForAnyNumberOfEntries)
{
    const auto allocations = [&](const std::string& path, std::size_t expected) {
        std::unique_ptr<Storage_Tree::Listing> listing;
        Storage_Tree::Entry entry;
        entry.name.reserve(32);
        const Allocation_Count before;
        std::size_t count = 0;
        EXPECT_TRUE(tree_->list(path, listing));
        for (bool end = false; !end; ++count)
            if (!listing->next(entry, end))
                return std::size_t{0};
        EXPECT_EQ(count - 1, expected);
        return before.allocations();
    };
    fs::create_directory(on_disk("few"));
    fs::create_directory(on_disk("many"));
    write_local(on_disk("few/1"), "");
    for (int i = 0; i < 2000; ++i)
        write_local(on_disk("many/" + std::to_string(i)), "");
    EXPECT_EQ(allocations("few", 1), allocations("many", 2000));
}

TEST_P(Storage_Reading, PathsLongerThanTheSystemTakesWork)
{
    std::string path;
    for (int i = 0; i < 60; ++i)
        path += std::string(200, 'n') + '/';
    ASSERT_GT(path.size(), 3U * PATH_MAX - 1000);
    ASSERT_EQ(put(path + "file", "deep"), Failure::none);
    EXPECT_EQ(get(path + "file"), "deep");
    EXPECT_EQ(put(path + "file", "deeper", Kind::replace), Failure::none);
    EXPECT_EQ(list(path), Names{"file"});
    EXPECT_TRUE(tree_->copy(path + "file", path + "copy", false));
    EXPECT_TRUE(tree_->move(path + "copy", path + "moved", false));
    EXPECT_EQ(get(path + "moved"), "deeper");
    EXPECT_TRUE(tree_->remove(path + "moved"));
    EXPECT_TRUE(tree_->make_collection(path + "a/b", 022));
    EXPECT_EQ(list(path), (Names{"a/", "file"}));
}

TEST_P(Storage_Reading, ASubtreeIsARootOfItsOwn)
{
    ASSERT_EQ(put("user/file", "theirs"), Failure::none);
    ASSERT_EQ(put("other", "not theirs"), Failure::none);
    std::unique_ptr<Storage_Tree> subtree;
    ASSERT_TRUE(tree_->subtree("user", subtree));
    std::swap(tree_, subtree);
    EXPECT_EQ(get("file"), "theirs");
    EXPECT_EQ(get("../other"), "<bad_path>");
    EXPECT_EQ(tree_->remove("").failure, Failure::denied);
    fs::create_symlink("../other", on_disk("user/link"));
    EXPECT_EQ(get("link"), "<bad_path>");
    std::swap(tree_, subtree);
    EXPECT_EQ(tree_->subtree("other", subtree).failure, Failure::not_collection);
    EXPECT_EQ(tree_->subtree("missing", subtree).failure, Failure::not_found);
}

TEST_P(Storage_Reading, AListingOutlivesItsTree)
{
    ASSERT_EQ(put("user/file", ""), Failure::none);
    std::unique_ptr<Storage_Tree> subtree;
    ASSERT_TRUE(tree_->subtree("user", subtree));
    std::unique_ptr<Storage_Tree::Listing> listing;
    ASSERT_TRUE(subtree->list("", listing));
    subtree.reset();
    Storage_Tree::Entry entry;
    bool end = false;
    ASSERT_TRUE(listing->next(entry, end));
    EXPECT_EQ(entry.name, "file");
}

TEST_F(Storage_Test, AMissingRootIsToldWithItsName)
{
    std::string error;
    EXPECT_EQ(Storage_Tree::open({.root = root_ + "/missing"}, error), nullptr);
    EXPECT_NE(error.find(root_ + "/missing"), std::string::npos);
    EXPECT_NE(error.find("No such file or directory"), std::string::npos);
    write_local(directory_ / "file", "");
    EXPECT_EQ(Storage_Tree::open({.root = directory_ / "file"}, error), nullptr);
    EXPECT_NE(error.find("Not a directory"), std::string::npos);
}

} // namespace
