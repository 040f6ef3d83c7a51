#include "tests/support/small_disk.h"
#include "tests/unit/runtime/file_writer_fixture.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

TEST_F(File_Writer_Test, NewFilesHaveTheUsualMode)
{
    const mode_t old = umask(022);
    ASSERT_TRUE(open());
    umask(old);
    struct stat info;
    ASSERT_EQ(fstat(writer.handle(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0644U);
}

TEST_F(File_Writer_Test, AcceptedTellsWhereADiskBecameFull)
{
    const auto disk = Small_Disk::mount(4 * mib);
    if (disk == nullptr)
        return;
    path = *disk / "file";
    ASSERT_TRUE(open(fresh, {}, false));
    std::uint64_t accepted = 0;
    EXPECT_FALSE(write(sample_bytes(8 * mib), &accepted));
    EXPECT_EQ(writer.last_error(), ENOSPC);
    EXPECT_GT(accepted, 0U);
    EXPECT_EQ(accepted, std::filesystem::file_size(path));
    EXPECT_FALSE(writer.close());
}

TEST_F(File_Writer_Test, APipeIsWritten)
{
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    ASSERT_TRUE(open(O_APPEND, {.drop_behind = true, .write_behind = 1}));
    EXPECT_TRUE(write("abc"));
    EXPECT_TRUE(writer.close());
    char text[8] = "";
    EXPECT_EQ(::read(reader, text, sizeof text), 3);
    EXPECT_STREQ(text, "abc");
    ::close(reader);
}

} // namespace
