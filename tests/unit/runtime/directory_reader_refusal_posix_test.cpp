#include "platform/runtime/directory_reader.h"
#include "tests/support/temp_directory.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::string_view refused_name;
int refusal = 0;

} // namespace

// Stands before the system's function, so that tests meet an entry that cannot be examined, as the
// mount of another user's file system is.
extern "C" int fstatat(int directory, const char* name, struct stat* info, int flags) noexcept
{
    if (refusal != 0 && name == refused_name) {
        errno = refusal;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_newfstatat, directory, name, info, flags));
}

namespace
{

class Directory_Reader_Refusal : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* name : {"a", "mount", "z"})
            write_local(directory_ / name, "data");
        refused_name = "mount";
    }
    void TearDown() override { refusal = 0; }

    std::map<std::string, Directory_Reader::Entry> list()
    {
        std::map<std::string, Directory_Reader::Entry> entries;
        Directory_Reader reader;
        Directory_Reader::Entry entry;
        EXPECT_TRUE(reader.open(directory_.str().c_str(), false, 0));
        int result = 0;
        while ((result = reader.read(entry)) > 0)
            entries[entry.name] = entry;
        EXPECT_EQ(result, 0);
        return entries;
    }

    Temp_Directory directory_;
};

TEST_F(Directory_Reader_Refusal, AnEntryThatCannotBeExaminedComesWithTheReasonAndHidesNoOther)
{
    refusal = EACCES;
    const auto entries = list();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries.at("mount").error, EACCES);
    EXPECT_EQ(entries.at("mount").mode, 0U);
    EXPECT_EQ(entries.at("mount").size, 0U);
    EXPECT_FALSE(entries.at("mount").is_dir());
    for (const char* name : {"a", "z"}) {
        EXPECT_EQ(entries.at(name).error, 0);
        EXPECT_EQ(entries.at(name).size, 4U);
    }
}

TEST_F(Directory_Reader_Refusal, AnEntryThatVanishedIsPassedOver)
{
    refusal = ENOENT;
    EXPECT_EQ(list().size(), 2U);
}

} // namespace
