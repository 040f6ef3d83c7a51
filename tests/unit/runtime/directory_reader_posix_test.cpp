#include "tests/unit/runtime/directory_reader_fixture.h"

#include <sys/stat.h>

// Links, permissions and names of any bytes.

namespace fs = std::filesystem;

namespace
{

TEST_F(Directory_Reader_Test, EntriesCarryTheirPermissions)
{
    write_local(root / "file", "12345");
    ASSERT_EQ(chmod((root / "file").c_str(), 0640), 0);
    EXPECT_EQ(list().at("file").mode, static_cast<std::uint32_t>(S_IFREG | 0640));
}

TEST_F(Directory_Reader_Test, NamesOfAnyBytesAreGivenAsTheyAre)
{
    const std::string names[] = {"a b", "%41",     "\"'\\",       "\xff\xfe",           "\xc3\xa9",
                                 "...", ".hidden", "line\nbreak", std::string(255, 'x')};
    for (const std::string& name : names)
        write_local(root / name, "");
    const auto found = list();
    EXPECT_EQ(found.size(), std::size(names));
    for (const std::string& name : names)
        EXPECT_EQ(found.count(name), 1U) << name;
}

TEST_F(Directory_Reader_Test, EntriesThatVanishedArePassedOver)
{
    for (int i = 0; i < 20; ++i)
        write_local(root / std::to_string(i), "");
    Directory_Reader::Entry entry;
    ASSERT_TRUE(reader.open(root.str().c_str(), false, 0));
    ASSERT_EQ(reader.read(entry), 1);
    for (int i = 0; i < 20; ++i)
        if (std::to_string(i) != entry.name)
            fs::remove(root / std::to_string(i));
    EXPECT_EQ(reader.read(entry), 0);
}

class Link_Test : public Directory_Reader_Test
{
protected:
    Link_Test()
    {
        write_local(root / "file", "12345");
        fs::create_directory(root / "directory");
        fs::create_symlink("file", root / "to file");
        fs::create_directory_symlink("directory", root / "to directory");
        fs::create_symlink("nowhere", root / "dangling");
        fs::create_symlink("circle", root / "circle");
        fs::create_symlink("file/x", root / "through file");
    }
};

TEST_F(Link_Test, LinksShowWhatTheyPointAtWhenFollowed)
{
    const auto found = list(true);
    EXPECT_EQ(found.size(), 7U);
    EXPECT_TRUE(S_ISREG(found.at("to file").mode));
    EXPECT_EQ(found.at("to file").size, 5U);
    EXPECT_TRUE(found.at("to directory").is_dir());
}

TEST_F(Link_Test, OnlyLinksToFilesShowTheirTargetOtherwise)
{
    const auto found = list(false);
    EXPECT_EQ(found.size(), 7U);
    EXPECT_TRUE(S_ISREG(found.at("to file").mode));
    EXPECT_EQ(found.at("to file").size, 5U);
    EXPECT_TRUE(S_ISLNK(found.at("to directory").mode));
    EXPECT_FALSE(found.at("to directory").is_dir());
}

TEST_F(Link_Test, LinksThatLeadNowhereStayLinks)
{
    for (const bool follow : {false, true}) {
        const auto found = list(follow);
        for (const char* name : {"dangling", "circle", "through file"})
            EXPECT_TRUE(S_ISLNK(found.at(name).mode)) << name;
    }
}

} // namespace
