#include "tests/unit/storage/storage_fixture.h"

#include <filesystem>

// Symbolic links, which the machine's own users may put into the tree.

namespace fs = std::filesystem;

namespace
{

class Storage_Confinement : public Storage_Both_Ways
{
protected:
    ~Storage_Confinement() { EXPECT_TRUE(outside_is_untouched()); }
};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Confinement, testing::Bool(), resolution_name);

TEST_P(Storage_Confinement, NothingIsReachedOverALinkThatLeadsOutside)
{
    ASSERT_EQ(put("file", "mine"), Failure::none);
    fs::create_symlink("../outside", on_disk("relative"));
    fs::create_symlink(outside_, on_disk("absolute"));
    fs::create_symlink(root_, on_disk("back"));
    fs::create_symlink("/", on_disk("top"));
    fs::create_symlink("relative", on_disk("indirect"));
    fs::create_symlink("../root/../outside", on_disk("winding"));
    for (const std::string& link :
         Names{"relative", "absolute", "indirect", "winding", "top" + outside_})
    {
        const std::string path = link + "/secret";
        EXPECT_EQ(status(path), Failure::bad_path) << path;
        EXPECT_EQ(get(path), "<bad_path>") << path;
        EXPECT_EQ(list(link), Names{"<bad_path>"});
        for (const Kind kind : {Kind::create, Kind::replace, Kind::within, Kind::cut}) {
            EXPECT_EQ(put(path, "x", kind), Failure::bad_path) << path;
            EXPECT_EQ(put(link + "/d/new", "x", kind), Failure::bad_path) << path;
        }
        EXPECT_EQ(tree_->remove(path).failure, Failure::bad_path);
        EXPECT_EQ(tree_->make_collection(link + "/d", 0).failure, Failure::bad_path);
        EXPECT_EQ(tree_->copy(path, "copy", true).failure, Failure::bad_path);
        EXPECT_EQ(tree_->copy("file", path, true).failure, Failure::bad_path);
        EXPECT_EQ(tree_->move(path, "moved", true).failure, Failure::bad_path);
        EXPECT_EQ(tree_->move("file", path, true).failure, Failure::bad_path);
        std::unique_ptr<Storage_Tree> subtree;
        EXPECT_EQ(tree_->subtree(link, subtree).failure, Failure::bad_path);
    }
    EXPECT_EQ(get("back/file"), "<bad_path>");
    EXPECT_EQ(get("file"), "mine");
    EXPECT_EQ(list(""), Names{"file"});
}

TEST_P(Storage_Confinement, NoFileIsReachedThatALinkNamesOutside)
{
    for (const std::string target : {"../outside/secret", secret_.c_str(), "../outside/new"}) {
        fs::create_symlink(target, on_disk("link"));
        EXPECT_EQ(status("link"), Failure::bad_path);
        EXPECT_EQ(get("link"), "<bad_path>");
        EXPECT_EQ(put("link", "x", Kind::create), Failure::exists);
        EXPECT_EQ(put("link", "x", Kind::replace), Failure::bad_path);
        EXPECT_EQ(put("link", "x", Kind::within), Failure::bad_path);
        EXPECT_EQ(put("link", "x", Kind::cut), Failure::bad_path);
        EXPECT_EQ(tree_->copy("link", "copy", true).failure, Failure::bad_path);
        EXPECT_EQ(list(""), Names{});
        // The link itself is one of the tree's entries.
        EXPECT_TRUE(tree_->move("link", "moved", false));
        EXPECT_EQ(get("moved"), "<bad_path>");
        EXPECT_TRUE(tree_->remove("moved"));
        EXPECT_TRUE(outside_is_untouched());
    }
}

TEST_P(Storage_Confinement, LinksThatStayInsideAreFollowedByTheKernelOnly)
{
    ASSERT_EQ(put("d/e/file", "inside"), Failure::none);
    fs::create_symlink("d/e/file", on_disk("link"));
    fs::create_directory_symlink("../d/e", on_disk("d/way"));
    fs::create_symlink("../../d/e/file", on_disk("d/e/other"));
    if (!follows_links()) {
        for (const std::string path : {"link", "d/way/file", "d/e/other"}) {
            EXPECT_EQ(get(path), "<bad_path>");
            EXPECT_EQ(put(path, "x", Kind::within), Failure::bad_path);
        }
        EXPECT_EQ(list("d/e"), Names{"file"});
        return;
    }
    for (const std::string path : {"link", "d/way/file", "d/e/other", "d/way/other"}) {
        EXPECT_EQ(get(path), "inside") << path;
        EXPECT_EQ(put(path, "I", Kind::within), Failure::none) << path;
        EXPECT_EQ(get("d/e/file"), "Inside");
        EXPECT_EQ(put("d/e/file", "inside", Kind::replace), Failure::none);
    }
    EXPECT_EQ(put("d/way/a/b", "new"), Failure::none);
    EXPECT_EQ(get("d/e/a/b"), "new");
    EXPECT_EQ(list("d/e"), (Names{"a/", "file", "other"}));
    EXPECT_EQ(list("d/way"), (Names{"a/", "file", "other"}));
}

TEST_P(Storage_Confinement, LinksToDirectoriesAreNotListedSoThatAWalkEnds)
{
    ASSERT_EQ(put("d/file", "x"), Failure::none);
    fs::create_directory_symlink("../d", on_disk("d/again"));
    fs::create_directory_symlink(".", on_disk("d/self"));
    EXPECT_EQ(list("d"), Names{"file"});
    EXPECT_TRUE(tree_->copy("d", "copy", false));
    EXPECT_EQ(names_on_disk("copy"), (Names{"again", "file", "self"}));
    EXPECT_TRUE(fs::is_symlink(on_disk("copy/self")));
}

TEST_P(Storage_Confinement, ReplaceTakesThePlaceOfTheLinkAndNotOfWhatItNames)
{
    if (!follows_links())
        return; // a link is a bad path there
    ASSERT_EQ(put("file", "kept"), Failure::none);
    fs::create_symlink("file", on_disk("link"));
    EXPECT_EQ(put("link", "new", Kind::replace), Failure::none);
    EXPECT_EQ(get("link"), "new");
    EXPECT_EQ(get("file"), "kept");
    EXPECT_FALSE(fs::is_symlink(on_disk("link")));
    fs::create_symlink("file", on_disk("other"));
    ASSERT_TRUE(tree_->copy("link", "other", true));
    EXPECT_EQ(get("file"), "kept");
    fs::create_directory_symlink(".", on_disk("way"));
    EXPECT_EQ(put("way", "x", Kind::replace), Failure::is_collection);
}

TEST_P(Storage_Confinement, LinksThatNeverArriveAreRefused)
{
    fs::create_symlink("loop", on_disk("loop"));
    EXPECT_EQ(status("loop"), Failure::bad_path);
    EXPECT_EQ(put("loop/x", "x"), Failure::bad_path);
    EXPECT_EQ(put("loop", "x", Kind::within), Failure::bad_path);
    EXPECT_EQ(list(""), Names{});
    EXPECT_TRUE(tree_->remove("loop"));
}

TEST_P(Storage_Confinement, TheKernelsOwnLinksAreNotFollowed)
{
    auto proc = options();
    proc.root = "/proc/self";
    open(proc);
    EXPECT_EQ(list("fd/0"), Names{"<bad_path>"});
    EXPECT_EQ(get("cwd/x"), "<bad_path>");
    EXPECT_EQ(get("root/etc/passwd"), "<bad_path>");
}

} // namespace
