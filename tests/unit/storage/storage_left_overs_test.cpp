#include "servers/storage/temporary_entry.h"
#include "tests/unit/storage/storage_fixture.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

// What a killed server leaves, and who may serve a directory.

namespace fs = std::filesystem;

namespace
{

class Storage_Left_Overs : public Storage_Test
{
protected:
    /// Lets another process serve the root and begin things there until it is killed.
    void be_killed()
    {
        tree_.reset();
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            std::string error;
            const auto tree = Storage_Tree::open(options(), error);
            const File_Handle parent(::open(on_disk("d").c_str(), O_PATH | O_DIRECTORY));
            Temporary_Entry file;
            Temporary_Entry directory;
            const bool made = tree != nullptr && file.create_file(parent.get()) &&
                              directory.create_directory(parent.get()) &&
                              mkdirat(directory.handle(), "in it", 0700) == 0;
            if (!made)
                _exit(1);
            kill(getpid(), SIGKILL);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status)) << "it could not begin";
    }
};

TEST_F(Storage_Left_Overs, OfAKilledServerAreRemovedByTheNext)
{
    ASSERT_EQ(put("d/file", "kept"), Failure::none);
    be_killed();
    ASSERT_EQ(names_on_disk("d").size(), 3U);
    open(options());
    EXPECT_EQ(names_on_disk("d"), Names{"file"});
    EXPECT_EQ(get("d/file"), "kept");
}

TEST_F(Storage_Left_Overs, AreNotInTheCountOfTheQuota)
{
    ASSERT_EQ(put("d/file", "12345"), Failure::none);
    be_killed();
    write_local(on_disk("d/.cio-new-0123456789abcdef"), "123");
    auto limited = options();
    limited.quota = 100;
    open(limited);
    EXPECT_EQ(tree_->used(), 5U);
    EXPECT_EQ(names_on_disk("d"), Names{"file"});
}

TEST_F(Storage_Left_Overs, OfAServerThatStillRunsStay)
{
    ASSERT_EQ(put("user/file", ""), Failure::none);
    const File_Handle parent(::open(on_disk("user").c_str(), O_PATH | O_DIRECTORY));
    Temporary_Entry in_use;
    ASSERT_TRUE(in_use.create_file(parent.get()));
    tree_.reset();
    write_local(on_disk(".cio-lock"), "");
    open(options());
    EXPECT_EQ(names_on_disk("user"), (Names{in_use.name(), "file"}));
}

TEST_F(Storage_Left_Overs, AreOnlyWhatTheTreeItselfNames)
{
    tree_.reset();
    const Names others = {".cio-new-", ".cio-new-0123456789abcde", ".cio-new-0123456789abcdeX",
                          ".cio-other"};
    for (const std::string& name : others)
        write_local(on_disk(name), "");
    fs::create_symlink("../outside/secret", on_disk(".cio-new-0123456789abcdef"));
    write_local(on_disk(".cio-lock"), "");
    open(options());
    EXPECT_EQ(names_on_disk("").size(), others.size() + 1);
    EXPECT_TRUE(outside_is_untouched());
}

TEST_F(Storage_Left_Overs, AreNotLookedForAfterAnOrderlyEnd)
{
    tree_.reset();
    EXPECT_FALSE(fs::exists(on_disk(".cio-lock")));
    write_local(on_disk(".cio-new-0123456789abcdef"), "");
    open(options());
    EXPECT_TRUE(fs::exists(on_disk(".cio-lock")));
    EXPECT_EQ(names_on_disk(""), Names{".cio-new-0123456789abcdef"});
}

TEST_F(Storage_Left_Overs, ADirectoryIsServedByOneTreeAtATime)
{
    std::string error;
    EXPECT_EQ(Storage_Tree::open(options(), error), nullptr);
    EXPECT_EQ(error, "the directory " + root_ + " is served by another process");
    ASSERT_EQ(put("file", "x"), Failure::none);
    {
        // As long as anything of it is left, such as an upload.
        const auto upload = begin("file", Kind::within);
        tree_.reset();
        EXPECT_EQ(Storage_Tree::open(options(), error), nullptr);
    }
    open(options());
    EXPECT_EQ(get("file"), "x");
}

TEST_F(Storage_Left_Overs, ATemporaryEntryRemovesItselfUnlessPlaced)
{
    const File_Handle parent(::open(root_.c_str(), O_PATH | O_DIRECTORY));
    {
        Temporary_Entry file;
        Temporary_Entry directory;
        ASSERT_TRUE(file.create_file(parent.get()));
        ASSERT_TRUE(directory.create_directory(parent.get()));
        ASSERT_EQ(mkdirat(directory.handle(), "a", 0700), 0);
        write_local(on_disk(directory.name() + "/a/file"), "");
        fs::create_symlink("../../../outside", on_disk(directory.name() + "/a/link"));
        EXPECT_EQ(names_on_disk("").size(), 2U);
    }
    EXPECT_EQ(names_on_disk(""), Names{});
    EXPECT_TRUE(outside_is_untouched());
    std::string name;
    {
        Temporary_Entry file;
        ASSERT_TRUE(file.create_file(parent.get()));
        name = file.name();
        EXPECT_TRUE(file.placed());
    }
    EXPECT_EQ(names_on_disk(""), Names{name});
}

} // namespace
