#include "client_io/file_io.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"
#include "tests/support/temp_directory.h"

#include <ace/OS_NS_unistd.h>

#include <gtest/gtest.h>

// What is particular to local files on Windows.

namespace
{

class File_IO_Windows : public testing::Test
{
protected:
    void SetUp() override
    {
        uri_.scheme("file");
        uri_.path(directory_ / "target", false);
        ASSERT_TRUE(io_.connect(uri_, Client_IO_Base::Options{})) << io_.error();
    }

    std::string local(const std::string& name) const { return directory_ / ("target/" + name); }

    bool write(const std::string& name, const std::string& data)
    {
        return io_.open(name.c_str(), Client_IO_Base::mode_write, 0, 0) &&
               io_.write(data.data(), data.size()) && io_.close();
    }

    Temp_Directory directory_;
    URI uri_;
    File_IO io_;
};

TEST_F(File_IO_Windows, RemovingBelowAFileIsRemovingWhatIsNotThere)
{
    write_local(local("file"), "kept");
    EXPECT_TRUE(io_.remove("file/below")) << io_.error();
    EXPECT_EQ(read_local(local("file")), "kept");
}

TEST_F(File_IO_Windows, AnErrorNamesThePathInUTF8)
{
    const std::string name = "\xE5\xA4\x87\xE4\xBB\xBD";
    EXPECT_FALSE(io_.open(name.c_str(), Client_IO_Base::mode_read, 0, 0));
    EXPECT_TRUE(io_.error().starts_with("Fail to open file " + local(name) + ", errno=2: "))
        << io_.error();
}

TEST_F(File_IO_Windows, APathThatIsNoUTF8IsRefusedAndNothingIsMade)
{
    EXPECT_FALSE(write("\xFF\xFE", "x"));
    EXPECT_EQ(io_.errnum(), 1113);
    EXPECT_FALSE(write("a:b", "x"));
    EXPECT_EQ(io_.errnum(), os_error::invalid_name);
    EXPECT_FALSE(write("what?", "x"));
    EXPECT_EQ(io_.errnum(), os_error::invalid_name);
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(io_.get_dir("", entries));
    EXPECT_TRUE(entries.empty());
}

TEST_F(File_IO_Windows, AFileThatTheUserHoldsExclusivelyIsAFailureWithItsNumber)
{
    write_local(local("a"), "data");
    constexpr int share_nothing = 0;
    const ACE_HANDLE handle = file_system::open(local("a").c_str(), 0, share_nothing);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(io_.errnum(), 32);
    EXPECT_EQ(io_.size("a"), 4U);
    EXPECT_FALSE(io_.remove("a"));
    EXPECT_EQ(io_.errnum(), 32);
    ACE_OS::close(handle);
    EXPECT_TRUE(io_.remove("a")) << io_.error();
}

TEST_F(File_IO_Windows, DeepTreesBeyond260CharactersAreReadAndWritten)
{
    std::string deep;
    for (int i = 0; i < 6; ++i)
        deep += std::string(100, static_cast<char>('a' + i)) + '/';
    EXPECT_TRUE(write(deep + "file", "data")) << io_.error();
    char buffer[8];
    ASSERT_TRUE(io_.open((deep + "file").c_str(), Client_IO_Base::mode_read, 0, 0)) << io_.error();
    EXPECT_EQ(io_.read(buffer, sizeof buffer), 4);
    EXPECT_TRUE(io_.close());
    EXPECT_TRUE(io_.copy((deep + "file").c_str(), (deep + "copy").c_str(), false)) << io_.error();
    EXPECT_TRUE(io_.remove((deep + "file").c_str())) << io_.error();
    EXPECT_TRUE(io_.remove((deep + "copy").c_str())) << io_.error();
    for (std::size_t end = deep.size() - 1; end != std::string::npos;
         end = deep.rfind('/', end - 1))
        EXPECT_TRUE(io_.remove(deep.substr(0, end).c_str())) << io_.error();
}

} // namespace
