#include "tests/support/open_facade.h"

#include <gtest/gtest.h>

namespace
{

Client_IO_Base::Directory_Entry file(const char* name)
{
    return {name, false, 0, 1};
}

Client_IO_Base::Directory_Entry dir(const char* name)
{
    return {name, true, 0, 0};
}

class Walk : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(facade_.connected);
        facade_.log->directories = {
            {"", {dir("a"), file("top")}},
            {"a", {file("first"), dir("b"), file("last")}},
            {"a/b", {file("inner1"), dir("c"), file("inner2")}},
            {"a/b/c", {file("deep")}},
            {"a/", {file("slashed")}},
        };
    }

    /// Walks and notes "directory:file"; returns false from the callback at @p stop.
    bool walk(const char* path, const std::string& stop = "")
    {
        return facade_.io.walk_directory(
            path, [&](const char* directory, const Client_IO_Base::Directory_Entry& entry) {
                EXPECT_FALSE(entry.is_dir);
                const std::string seen =
                    (directory == nullptr ? "NULL" : std::string(directory)) + ':' + entry.name;
                seen_.push_back(seen);
                return seen != stop;
            });
    }

    Recorded_Facade facade_;
    std::vector<std::string> seen_;
};

TEST_F(Walk, CallsBackForTheFilesOfADirectoryAndOfThoseBelowItInListingOrder)
{
    EXPECT_TRUE(walk("a"));
    EXPECT_EQ(seen_, (std::vector<std::string>{"a:first", "a/b:inner1", "a/b/c:deep", "a/b:inner2",
                                               "a:last"}));
}

TEST_F(Walk, AFalseInsideASubdirectoryDoesNotStopTheFilesBehindIt)
{
    EXPECT_TRUE(walk("a", "a/b:inner1"));
    EXPECT_EQ(seen_, (std::vector<std::string>{"a:first", "a/b:inner1", "a:last"}));
}

TEST_F(Walk, AFalseForAFileOfTheDirectoryItselfStopsAndFails)
{
    EXPECT_FALSE(walk("a", "a:first"));
    EXPECT_EQ(seen_, std::vector<std::string>{"a:first"});
}

TEST_F(Walk, OfTheRootStartsWithAnEmptyPath)
{
    EXPECT_TRUE(walk(""));
    EXPECT_EQ(seen_, (std::vector<std::string>{"a:first", "a/b:inner1", "a/b/c:deep", "a/b:inner2",
                                               "a:last", ":top"}));
}

TEST_F(Walk, OfANullPathListsTheRootAndHandsThePathOnAsItCame)
{
    EXPECT_TRUE(walk(nullptr));
    EXPECT_EQ(seen_.back(), "NULL:top");
    EXPECT_EQ(facade_.log->actions().front().substr(0, 10), "get_dir(, ");
}

TEST_F(Walk, AddsNoSecondSlashBehindAPathThatEndsWithOne)
{
    facade_.log->directories["a/"] = {dir("b")};
    EXPECT_TRUE(walk("a/"));
    EXPECT_EQ(seen_.front(), "a/b:inner1");
}

TEST_F(Walk, FailsWhenTheDirectoryCannotBeListed)
{
    facade_.log->failing = {"get_dir a"};
    facade_.log->directories.erase("a");
    facade_.log->error = "gone";
    EXPECT_FALSE(walk("a"));
    EXPECT_EQ(facade_.io.error(), "gone");
    EXPECT_TRUE(seen_.empty());
}

TEST_F(Walk, PassesOverASubdirectoryThatCannotBeListed)
{
    facade_.log->failing = {"get_dir a/b"};
    facade_.log->directories.erase("a/b");
    EXPECT_TRUE(walk("a"));
    EXPECT_EQ(seen_, (std::vector<std::string>{"a:first", "a:last"}));
}

TEST_F(Walk, IsRefusedWhileAFileIsOpen)
{
    ASSERT_TRUE(facade_.io.open("file", 1, 0, 0));
    EXPECT_FALSE(walk("a"));
    EXPECT_EQ(facade_.io.error(), "A file is already open");
    EXPECT_TRUE(facade_.io.is_open());
}

TEST_F(Walk, OfAnEmptyDirectorySucceedsWithoutACall)
{
    facade_.log->directories["empty"] = {};
    EXPECT_TRUE(walk("empty"));
    EXPECT_TRUE(seen_.empty());
}

} // namespace
