#include "tests/unit/storage/storage_fixture.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace
{

class Storage_Move : public Storage_Both_Ways
{};
INSTANTIATE_TEST_SUITE_P(Resolved, Storage_Move, testing::Bool(), resolution_name);

TEST_P(Storage_Move, FilesAndDirectoriesMoveAndMissingDirectoriesAreMade)
{
    ASSERT_EQ(put("d/file", "x"), Failure::none);
    EXPECT_TRUE(tree_->move("d/file", "a/b/moved", false));
    EXPECT_EQ(get("a/b/moved"), "x");
    EXPECT_EQ(list("d"), Names{});
    EXPECT_TRUE(tree_->move("a", "d/e/f", false));
    EXPECT_EQ(get("d/e/f/b/moved"), "x");
    EXPECT_EQ(names_on_disk(""), Names{"d"});
}

TEST_P(Storage_Move, WhatExistsNeedsOverwrite)
{
    ASSERT_EQ(put("from", "new"), Failure::none);
    ASSERT_EQ(put("to", "old"), Failure::none);
    EXPECT_EQ(tree_->move("from", "to", false).failure, Failure::exists);
    EXPECT_EQ(get("from"), "new");
    EXPECT_EQ(get("to"), "old");
    EXPECT_TRUE(tree_->move("from", "to", true));
    EXPECT_EQ(get("to"), "new");
    EXPECT_EQ(names_on_disk(""), Names{"to"});
}

TEST_P(Storage_Move, AMissingSourceFailsAndLeavesEverything)
{
    ASSERT_EQ(put("to", "old"), Failure::none);
    EXPECT_EQ(tree_->move("missing", "to", true).failure, Failure::not_found);
    EXPECT_EQ(tree_->move("missing", "a/b", true).failure, Failure::not_found);
    EXPECT_EQ(tree_->move("missing/x", "a/b", true).failure, Failure::not_found);
    EXPECT_EQ(get("to"), "old");
    EXPECT_EQ(names_on_disk(""), Names{"to"});
}

TEST_P(Storage_Move, NothingMovesOntoOrIntoItselfAndTheRootStays)
{
    ASSERT_EQ(put("d/file", "kept"), Failure::none);
    EXPECT_EQ(tree_->move("d/file", "d/file", true).failure, Failure::denied);
    EXPECT_EQ(tree_->move("d", "d/a/b", true).failure, Failure::denied);
    EXPECT_EQ(tree_->move("", "d/a", true).failure, Failure::denied);
    EXPECT_EQ(tree_->move("d", "", true).failure, Failure::denied);
    fs::create_hard_link(on_disk("d/file"), on_disk("d/same"));
    EXPECT_EQ(tree_->move("d/file", "d/same", true).failure, Failure::denied);
    EXPECT_EQ(get("d/file"), "kept");
    EXPECT_EQ(names_on_disk("d"), (Names{"file", "same"}));
    if (follows_links()) {
        fs::create_directory_symlink("d", on_disk("way"));
        EXPECT_EQ(tree_->move("d", "way/moved", true).failure, Failure::denied);
    }
    EXPECT_EQ(names_on_disk("d"), (Names{"file", "same"}));
}

TEST_P(Storage_Move, AFileReplacesNoDirectoryAndADirectoryOnlyAnEmptyOne)
{
    ASSERT_EQ(put("file", "x"), Failure::none);
    ASSERT_EQ(put("d/file", "y"), Failure::none);
    ASSERT_EQ(put("full/file", "kept"), Failure::none);
    ASSERT_TRUE(tree_->make_collection("empty", 022));
    EXPECT_EQ(tree_->move("file", "empty", true).failure, Failure::is_collection);
    EXPECT_EQ(tree_->move("d", "file", true).failure, Failure::not_collection);
    EXPECT_EQ(tree_->move("d", "full", true).failure, Failure::not_empty);
    EXPECT_EQ(names_on_disk(""), (Names{"d", "empty", "file", "full"}));
    EXPECT_EQ(get("full/file"), "kept");
    EXPECT_TRUE(tree_->move("d", "empty", true));
    EXPECT_EQ(get("empty/file"), "y");
}

TEST_P(Storage_Move, AnUploadGoesOnUnderTheNewName)
{
    const auto upload = begin("d/file", Kind::create);
    ASSERT_NE(upload, nullptr);
    ASSERT_TRUE(upload->write("before "));
    ASSERT_TRUE(tree_->move("d", "e", false));
    ASSERT_TRUE(upload->write("and after"));
    ASSERT_TRUE(upload->finish());
    EXPECT_EQ(get("e/file"), "before and after");
}

} // namespace
