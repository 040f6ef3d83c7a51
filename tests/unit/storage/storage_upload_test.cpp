#include "tests/support/small_disk.h"
#include "tests/unit/storage/storage_fixture.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <sys/stat.h>

// What uploads do to the file, beside races and the disk.

namespace fs = std::filesystem;

namespace
{

class Storage_Upload : public Storage_Both_Ways
{
protected:
    unsigned mode_of(const std::string& path) const
    {
        struct stat info = {};
        EXPECT_EQ(lstat(on_disk(path).c_str(), &info), 0) << path;
        return info.st_mode & 07777U;
    }
};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Upload, testing::Bool(), resolution_name);

TEST_P(Storage_Upload, CreateMakesAFileWithItsDirectoriesAndRefusesAnExistingOne)
{
    EXPECT_EQ(put("a/b/file", "first"), Failure::none);
    EXPECT_EQ(put("a/b/file", "second"), Failure::exists);
    EXPECT_EQ(put("a/b", "second"), Failure::exists);
    EXPECT_EQ(get("a/b/file"), "first");
    EXPECT_EQ(names_on_disk("a/b"), Names{"file"});
}

TEST_P(Storage_Upload, ReplaceShowsOnlyTheNewContentsFromItsBeginOn)
{
    ASSERT_EQ(put("file", "old contents"), Failure::none);
    const auto upload = begin("file", Kind::replace);
    ASSERT_NE(upload, nullptr);
    EXPECT_EQ(get("file"), "");
    ASSERT_TRUE(upload->write("new"));
    EXPECT_EQ(get("file"), "new");
    EXPECT_EQ(list(""), Names{"file"});
    ASSERT_TRUE(upload->finish());
    EXPECT_EQ(get("file"), "new");
    EXPECT_EQ(names_on_disk(""), Names{"file"});
}

TEST_P(Storage_Upload, ReplaceCreatesWhatIsMissing)
{
    EXPECT_EQ(put("a/file", "new", Kind::replace), Failure::none);
    EXPECT_EQ(get("a/file"), "new");
}

TEST_P(Storage_Upload, WithinKeepsTheRestAndFillsUpWithZeros)
{
    ASSERT_EQ(put("file", "0123456789"), Failure::none);
    EXPECT_EQ(put("file", "ab", Kind::within, 3), Failure::none);
    EXPECT_EQ(get("file"), "012ab56789");
    EXPECT_EQ(put("file", "z", Kind::within, 12), Failure::none);
    EXPECT_EQ(get("file"), std::string("012ab56789\0\0z", 13));
    EXPECT_EQ(put("a/new", "x", Kind::within, 1), Failure::none);
    EXPECT_EQ(get("a/new"), std::string("\0x", 2));
}

TEST_P(Storage_Upload, CutEndsTheFileAtTheOffset)
{
    ASSERT_EQ(put("file", "0123456789"), Failure::none);
    EXPECT_EQ(put("file", "", Kind::cut, 4), Failure::none);
    EXPECT_EQ(get("file"), "0123");
    EXPECT_EQ(put("file", "x", Kind::cut, 2), Failure::none);
    EXPECT_EQ(get("file"), "01x");
    EXPECT_EQ(put("file", "", Kind::cut, 5), Failure::none);
    EXPECT_EQ(get("file"), std::string("01x\0\0", 5));
}

TEST_P(Storage_Upload, CutOfAMissingFileFailsAndMakesNothing)
{
    EXPECT_EQ(put("a/file", "x", Kind::cut), Failure::not_found);
    EXPECT_EQ(names_on_disk(""), Names{});
}

TEST_P(Storage_Upload, DirectoriesAreNotWrittenAndFilesHoldNoFiles)
{
    ASSERT_EQ(put("d/file", "kept"), Failure::none);
    for (const Kind kind : {Kind::replace, Kind::within, Kind::cut})
        for (const std::string path : {"d", ""})
            EXPECT_EQ(put(path, "x", kind), Failure::is_collection) << path;
    for (const Kind kind : {Kind::create, Kind::replace, Kind::within, Kind::cut})
        EXPECT_EQ(put("d/file/x", "x", kind), Failure::not_collection);
    EXPECT_EQ(get("d/file"), "kept");
    EXPECT_EQ(names_on_disk("d"), Names{"file"});
}

TEST_P(Storage_Upload, ReservedNamesAreRefusedAndNotListed)
{
    for (const Kind kind : {Kind::create, Kind::replace, Kind::within, Kind::cut})
        EXPECT_EQ(put(".cio-new-0123456789abcdef", "x", kind), Failure::bad_path);
    EXPECT_EQ(tree_->make_collection("a/.cio-x", 0).failure, Failure::bad_path);
    EXPECT_EQ(names_on_disk(""), Names{});
    write_local(on_disk(".cio-anything"), "");
    EXPECT_EQ(list(""), Names{});
    EXPECT_EQ(get(".cio-anything"), "<bad_path>");
    EXPECT_EQ(tree_->remove(".cio-anything").failure, Failure::bad_path);
    EXPECT_EQ(names_on_disk(""), Names{".cio-anything"});
}

TEST_P(Storage_Upload, NewFilesAndDirectoriesLackTheCreationMaskWhateverTheUmask)
{
    const mode_t old = umask(077);
    EXPECT_EQ(put("a/b/file", "", Kind::create, 0, {.creation_mask = 027}), Failure::none);
    EXPECT_EQ(put("c/file", "", Kind::replace, 0, {.creation_mask = 002}), Failure::none);
    EXPECT_EQ(put("e/file", "", Kind::within, 0, {.creation_mask = 0}), Failure::none);
    EXPECT_TRUE(tree_->make_collection("f/g", 007));
    umask(old);
    EXPECT_EQ(mode_of("a"), 0750U);
    EXPECT_EQ(mode_of("a/b"), 0750U);
    EXPECT_EQ(mode_of("a/b/file"), 0640U);
    EXPECT_EQ(mode_of("c"), 0775U);
    EXPECT_EQ(mode_of("c/file"), 0664U);
    EXPECT_EQ(mode_of("e/file"), 0666U);
    EXPECT_EQ(mode_of("f/g"), 0770U);
}

TEST_P(Storage_Upload, WhatWasThereKeepsItsPermissions)
{
    ASSERT_EQ(put("file", "old"), Failure::none);
    ASSERT_EQ(chmod(on_disk("file").c_str(), 0604), 0);
    EXPECT_EQ(put("file", "new", Kind::replace), Failure::none);
    EXPECT_EQ(mode_of("file"), 0604U);
    EXPECT_EQ(put("file", "newer", Kind::within), Failure::none);
    EXPECT_EQ(mode_of("file"), 0604U);
}

TEST_P(Storage_Upload, DirectoriesKeepTheGroupThatTheirEntriesInherit)
{
    fs::create_directory(on_disk("d"));
    ASSERT_EQ(chmod(on_disk("d").c_str(), 02775), 0);
    ASSERT_TRUE(tree_->make_collection("d/new", 022));
    EXPECT_EQ(mode_of("d/new"), 02755U);
}

TEST_P(Storage_Upload, TheTimeThatTheClientAsksForIsSetWhenTheFileIsComplete)
{
    for (const std::int64_t time :
         {1700000000123456789, std::int64_t{0}, std::int64_t{-1500000000}}) {
        ASSERT_EQ(put("file", "x", Kind::replace, 0, {.mtime_ns = time}), Failure::none);
        Storage_Status status;
        ASSERT_TRUE(tree_->status("file", status));
        EXPECT_EQ(status.mtime_ns, time);
    }
}

TEST_P(Storage_Upload, AnUploadThatEndsEarlyLeavesWhatArrived)
{
    for (const Kind kind : {Kind::create, Kind::replace, Kind::within, Kind::cut}) {
        auto upload = begin("file", kind);
        ASSERT_NE(upload, nullptr);
        ASSERT_TRUE(upload->write("arrived"));
        upload.reset();
        EXPECT_EQ(get("file"), "arrived");
    }
    EXPECT_EQ(put("file", " too", Kind::within, 7), Failure::none);
    EXPECT_EQ(get("file"), "arrived too");
    EXPECT_EQ(names_on_disk(""), Names{"file"});
}

TEST_P(Storage_Upload, AnUploadThatEndsBeforeItsFirstByteLeavesTheTime)
{
    constexpr std::int64_t time = 1700000000000000000;
    ASSERT_EQ(put("file", "x", Kind::create, 0, {.mtime_ns = time}), Failure::none);
    const std::string before = tag("file");
    begin("file", Kind::within).reset();
    Storage_Status status;
    ASSERT_TRUE(tree_->status("file", status));
    EXPECT_EQ(status.mtime_ns, time);
    EXPECT_EQ(tag("file"), before);
}

TEST_P(Storage_Upload, EveryChangeOfContentsChangesTheTag)
{
    std::set<std::string> tags;
    std::size_t states = 0;
    const auto is_new = [&] {
        ++states;
        return tags.insert(tag("file")).second;
    };
    constexpr std::int64_t time = 1700000000000000000;
    // Of the same size and, as far as the client tells, of the same time; faster than any clock.
    for (int i = 0; i < 40; ++i) {
        const Kind kind = i % 3 == 0 ? Kind::replace : i % 3 == 1 ? Kind::within : Kind::cut;
        std::unique_ptr<Storage_Tree::Upload> upload;
        ASSERT_TRUE(tree_->upload("file", kind, 0, {.mtime_ns = i % 2 == 0 ? time : -1}, upload));
        ASSERT_TRUE(upload->write("12"));
        EXPECT_TRUE(is_new());
        ASSERT_TRUE(upload->write("34"));
        EXPECT_TRUE(is_new());
        if (i % 5 != 0) {
            ASSERT_TRUE(upload->finish());
        }
        upload.reset();
        EXPECT_TRUE(is_new());
        EXPECT_EQ(tag("file"), tag("file"));
    }
    EXPECT_EQ(tags.size(), states);
}

TEST_P(Storage_Upload, APositionBeyondTheLargestIsRefused)
{
    std::unique_ptr<Storage_Tree::Upload> upload;
    const Storage_Result result = tree_->upload("file", Kind::within, 1ULL << 63U, {}, upload);
    EXPECT_EQ(result.failure, Failure::no_space);
    EXPECT_EQ(result.errnum, EFBIG);
    EXPECT_EQ(put("file", "xy", Kind::within, (1ULL << 63U) - 2), Failure::no_space);
    EXPECT_EQ(fs::file_size(on_disk("file")), 0U);
}

TEST_P(Storage_Upload, CollectionsAreMadeWithTheirParentsAndMayBeThere)
{
    EXPECT_TRUE(tree_->make_collection("a/b/c", 022));
    EXPECT_TRUE(tree_->make_collection("a/b/c", 022));
    EXPECT_TRUE(tree_->make_collection("", 022));
    EXPECT_EQ(list("a/b"), Names{"c/"});
    ASSERT_EQ(put("a/file", ""), Failure::none);
    EXPECT_EQ(tree_->make_collection("a/file", 022).failure, Failure::exists);
    EXPECT_EQ(tree_->make_collection("a/file/d", 022).failure, Failure::not_collection);
    EXPECT_EQ(tree_->make_collection("../d", 022).failure, Failure::bad_path);
}

TEST_P(Storage_Upload, RemoveTakesFilesAndEmptyDirectoriesOnly)
{
    ASSERT_EQ(put("d/file", ""), Failure::none);
    EXPECT_EQ(tree_->remove("d").failure, Failure::not_empty);
    EXPECT_EQ(tree_->remove("d/missing").failure, Failure::not_found);
    EXPECT_EQ(tree_->remove("missing/file").failure, Failure::not_found);
    EXPECT_EQ(tree_->remove("d/file/x").failure, Failure::not_collection);
    EXPECT_EQ(tree_->remove("").failure, Failure::denied);
    EXPECT_EQ(tree_->remove("/").failure, Failure::denied);
    EXPECT_EQ(list("d"), Names{"file"});
    EXPECT_TRUE(tree_->remove("d/file"));
    EXPECT_TRUE(tree_->remove("d"));
    EXPECT_EQ(names_on_disk(""), Names{});
}

TEST_F(Storage_Test, AFullDiskKeepsWhatFittedAndSaysSo)
{
    const auto disk = Small_Disk::mount(1 << 20);
    if (disk == nullptr)
        return;
    auto with_disk = options();
    with_disk.root = disk->path();
    with_disk.sync = true;
    open(with_disk);
    auto upload = begin("file", Kind::create);
    ASSERT_NE(upload, nullptr);
    EXPECT_EQ(upload->write(std::string(2 << 20, 'x')).failure, Failure::no_space);
    EXPECT_EQ(upload->write("more").failure, Failure::no_space);
    EXPECT_EQ(upload->finish().failure, Failure::no_space);
    upload.reset();
    const std::string stored = get("file");
    EXPECT_GT(stored.size(), 100000U);
    EXPECT_EQ(stored, std::string(stored.size(), 'x'));
    EXPECT_EQ(tree_->copy("file", "copy", true).failure, Failure::no_space);
    EXPECT_EQ(list(""), Names{"file"});
    EXPECT_TRUE(tree_->remove("file"));
    EXPECT_EQ(put("file", "fits again"), Failure::none);
    tree_.reset();
}

TEST_F(Storage_Test, AReadOnlyDiskIsReadAndNotWritten)
{
    const auto disk = Small_Disk::mount(1 << 20);
    if (disk == nullptr)
        return;
    write_local(*disk / "file", "readable");
    ASSERT_TRUE(disk->make_read_only());
    auto with_disk = options();
    with_disk.root = disk->path();
    open(with_disk);
    EXPECT_EQ(get("file"), "readable");
    EXPECT_EQ(put("new", "x"), Failure::denied);
    EXPECT_EQ(put("file", "x", Kind::replace), Failure::denied);
    EXPECT_EQ(put("file", "x", Kind::within), Failure::denied);
    EXPECT_EQ(tree_->make_collection("d", 0).failure, Failure::denied);
    EXPECT_EQ(tree_->remove("file").failure, Failure::denied);
    EXPECT_EQ(tree_->copy("file", "copy", true).failure, Failure::denied);
    EXPECT_EQ(tree_->move("file", "moved", true).failure, Failure::denied);
    tree_.reset();
}

} // namespace
