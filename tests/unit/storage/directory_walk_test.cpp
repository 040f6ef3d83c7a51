#include "servers/storage/directory_walk.h"

#include "tests/support/temp_directory.h"

#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>

namespace fs = std::filesystem;

namespace
{

class Directory_Walk_Test : public testing::Test
{
protected:
    File_Handle top() const
    {
        return File_Handle(open(directory_.str().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }

    Temp_Directory directory_;
};

TEST_F(Directory_Walk_Test, MeetsEveryEntryOnceAtAnyDepth)
{
    // Deeper than it keeps directories open, with entries before and behind the way down.
    std::set<std::string> expected;
    fs::path at = directory_.path();
    for (int depth = 0; depth < 80; ++depth) {
        for (int i = 0; i < 5; ++i) {
            const std::string name = std::to_string(depth) + "." + std::to_string(i);
            write_local(at / name, "");
            expected.insert(name);
        }
        at /= "d" + std::to_string(depth);
        expected.insert(at.filename());
        fs::create_directory(at);
    }
    std::multiset<std::string> met;
    std::vector<std::string> left;
    Directory_Walk walk(top());
    for (auto event = walk.next(); event != Directory_Walk::Event::end; event = walk.next()) {
        ASSERT_NE(event, Directory_Walk::Event::failed);
        if (event == Directory_Walk::Event::left) {
            left.push_back(walk.name());
            continue;
        }
        met.insert(walk.name());
        if (walk.type() == S_IFDIR) {
            ASSERT_TRUE(walk.enter());
        } else {
            EXPECT_EQ(walk.type(), mode_t{S_IFREG});
        }
    }
    EXPECT_EQ(met, std::multiset<std::string>(expected.begin(), expected.end()));
    ASSERT_EQ(left.size(), 80U);
    EXPECT_EQ(left.front(), "d79");
    EXPECT_EQ(left.back(), "d0");
}

TEST_F(Directory_Walk_Test, EntersNoLinkAndGoesOnBehindIt)
{
    fs::create_directory(directory_ / "d");
    fs::create_directory_symlink("d", directory_ / "link");
    Directory_Walk walk(top());
    int entries = 0;
    for (; walk.next() == Directory_Walk::Event::entry; ++entries)
        if (walk.name() == "link") {
            EXPECT_EQ(walk.type(), mode_t{S_IFLNK});
            EXPECT_FALSE(walk.enter());
        }
    EXPECT_EQ(entries, 2);
}

TEST_F(Directory_Walk_Test, ADirectoryThatIsMovedAwayMeanwhileEndsItInsteadOfLeadingItAstray)
{
    fs::path at = directory_.path();
    for (int depth = 0; depth < 40; ++depth) {
        at /= "d";
        fs::create_directory(at);
    }
    const Temp_Directory elsewhere;
    Directory_Walk walk(top());
    for (int depth = 0; depth < 40; ++depth) {
        ASSERT_EQ(walk.next(), Directory_Walk::Event::entry);
        ASSERT_TRUE(walk.enter());
    }
    // The parent of this one is closed by now.
    fs::rename(directory_ / "d/d/d", elsewhere / "d");
    auto event = Directory_Walk::Event::left;
    int left = 0;
    for (; event == Directory_Walk::Event::left && left < 100; ++left)
        event = walk.next();
    EXPECT_EQ(event, Directory_Walk::Event::failed);
    EXPECT_EQ(errno, ESTALE);
    EXPECT_EQ(walk.next(), Directory_Walk::Event::failed);
}

TEST_F(Directory_Walk_Test, AHandleThatIsNoneIsAFailure)
{
    for (const int reason : {0, ENOENT}) {
        errno = reason;
        Directory_Walk walk{File_Handle(-1)};
        EXPECT_EQ(walk.next(), Directory_Walk::Event::failed);
        EXPECT_EQ(errno, reason == 0 ? EBADF : reason);
    }
}

} // namespace
