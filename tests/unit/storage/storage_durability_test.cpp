#include "tests/unit/storage/storage_fixture.h"

#include <filesystem>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

// What has been handed to the disk when an operation reports success. Only the calls can be seen
// here: what they are worth, the system answers for.

namespace fs = std::filesystem;

namespace
{

/// What fsync() was called for, in order.
std::vector<ino_t> synced;
int failures = 0;

} // namespace

// In place of the C library's.
extern "C" int fsync(int handle)
{
    if (failures > 0) {
        --failures;
        errno = EIO;
        return -1;
    }
    struct stat info = {};
    fstat(handle, &info);
    synced.push_back(info.st_ino);
    return static_cast<int>(syscall(SYS_fsync, handle));
}

namespace
{

class Storage_Durability : public Storage_Test
{
protected:
    Storage_Durability()
    {
        auto durable = options();
        durable.sync = true;
        open(durable);
        fs::create_directory(on_disk("d"));
        write_local(on_disk("d/old"), "old");
        synced.clear();
    }
    ino_t inode(const std::string& path) const
    {
        struct stat info = {};
        EXPECT_EQ(stat(on_disk(path).c_str(), &info), 0) << path;
        return info.st_ino;
    }
    std::vector<ino_t> inodes(const Names& paths) const
    {
        std::vector<ino_t> result;
        for (const std::string& path : paths)
            result.push_back(inode(path));
        return result;
    }
};

TEST_F(Storage_Durability, ANewFileIsSyncedBeforeItsName)
{
    ASSERT_EQ(put("d/new", "x"), Failure::none);
    EXPECT_EQ(synced, inodes({"d/new", "d"}));
    synced.clear();
    ASSERT_EQ(put("d/newer", "x", Kind::within), Failure::none);
    EXPECT_EQ(synced, inodes({"d/newer", "d"}));
}

TEST_F(Storage_Durability, AReplacedFileIsSyncedBeforeItsName)
{
    ASSERT_EQ(put("d/old", "x", Kind::replace), Failure::none);
    EXPECT_EQ(synced, inodes({"d/old", "d"}));
}

TEST_F(Storage_Durability, AnUploadThatGoesOnSyncsTheNameThatTheBrokenOneMayHaveLeftUnsynced)
{
    ASSERT_EQ(put("d/old", "x", Kind::within), Failure::none);
    EXPECT_EQ(synced, inodes({"d/old", "d"}));
    synced.clear();
    ASSERT_EQ(put("d/old", "x", Kind::cut), Failure::none);
    EXPECT_EQ(synced, inodes({"d/old", "d"}));
}

TEST_F(Storage_Durability, NoUploadGoesOnInAFileThatTheDiskDidNotTake)
{
    // The system tells of the failure once, and then takes the file for one that is on the disk.
    failures = 1;
    EXPECT_EQ(put("d/new", "lost"), Failure::failed);
    EXPECT_EQ(put("d/new", "", Kind::within), Failure::failed);
    EXPECT_EQ(put("d/new", "", Kind::cut), Failure::failed);
    EXPECT_EQ(put("d/new", "again", Kind::replace), Failure::none);
    EXPECT_EQ(put("d/new", "", Kind::within), Failure::none);
}

TEST_F(Storage_Durability, DirectoriesOnTheWayAreSyncedInTheirParents)
{
    ASSERT_EQ(put("a/b/file", "x"), Failure::none);
    EXPECT_EQ(synced, inodes({"", "a", "a/b/file", "a/b"}));
    synced.clear();
    ASSERT_TRUE(tree_->make_collection("d/e/f", 022));
    EXPECT_EQ(synced, inodes({"d", "d/e"}));
}

TEST_F(Storage_Durability, RemovedMovedAndCopiedNamesAreSynced)
{
    ASSERT_TRUE(tree_->copy("d/old", "d/copy", false));
    EXPECT_EQ(synced, inodes({"d/copy", "d"}));
    synced.clear();
    ASSERT_TRUE(tree_->move("d/copy", "moved", false));
    EXPECT_EQ(synced, inodes({"", "d"}));
    synced.clear();
    ASSERT_TRUE(tree_->remove("moved"));
    EXPECT_EQ(synced, inodes({""}));
    synced.clear();
    ASSERT_TRUE(tree_->copy("d", "e", false));
    EXPECT_EQ(synced, inodes({"e/old", "e", ""}));
}

TEST_F(Storage_Durability, NothingIsSyncedWhenThatIsSwitchedOff)
{
    open(options());
    synced.clear();
    ASSERT_EQ(put("a/file", "x"), Failure::none);
    ASSERT_EQ(put("a/file", "x", Kind::replace), Failure::none);
    ASSERT_TRUE(tree_->copy("a", "b", false));
    ASSERT_TRUE(tree_->move("b", "c", false));
    ASSERT_TRUE(tree_->remove("a/file"));
    EXPECT_EQ(synced, std::vector<ino_t>{});
}

TEST_F(Storage_Durability, NoSuccessIsReportedThatTheDiskRefused)
{
    failures = 1;
    EXPECT_EQ(put("d/new", "x"), Failure::failed);
    failures = 1;
    EXPECT_EQ(tree_->make_collection("a", 022).failure, Failure::failed);
    failures = 1;
    EXPECT_EQ(tree_->copy("d/old", "d/copy", false).failure, Failure::failed);
    EXPECT_EQ(status("d/copy"), Failure::not_found);
    failures = 1;
    EXPECT_EQ(tree_->remove("d/old").failure, Failure::failed);
    failures = 0;
}

} // namespace
