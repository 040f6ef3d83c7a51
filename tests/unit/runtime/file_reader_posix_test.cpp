#include "tests/unit/runtime/file_reader_fixture.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

TEST_F(File_Reader_Test, APipeIsReadToItsEnd)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    // Open for both, since a pipe opened for writing alone waits for its reader.
    const int writer = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    ASSERT_TRUE(open(pipe, {.read_ahead = 1U << 20U, .drop_behind = true}));
    ASSERT_EQ(::write(writer, "abc", 3), 3);
    ASSERT_EQ(::write(writer, "def", 3), 3);
    ::close(writer);
    EXPECT_EQ(rest(), "abcdef");
    EXPECT_EQ(reader.seek(0, SEEK_SET), -1);
    EXPECT_EQ(reader.last_error(), ESPIPE);
}

} // namespace
