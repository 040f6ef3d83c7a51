#include "platform/runtime/file_system.h"
#include "tests/unit/runtime/directory_reader_fixture.h"

#include <ace/OS_NS_unistd.h>
#include <ace/os_include/os_fcntl.h>

// Names that need care here. Wine, whose files have names of bytes, has none of half a surrogate
// pair; the tests of native_path.h do.

namespace
{

TEST_F(Directory_Reader_Test, NamesOfAnyBytesAreGivenAsTheyAre)
{
    const std::string names[] = {
        "a b",     "%41",           "'",           "\xc3\xa9", "\xF0\x9F\x92\xBE",    "...",
        ".hidden", "space behind ", "dot behind.", "CON",      std::string(255, 'x'),
    };
    for (const std::string& name : names) {
        const ACE_HANDLE handle = file_system::open((root.str() + '\\' + name).c_str(),
                                                    O_WRONLY | O_CREAT, file_system::share_all);
        ASSERT_NE(handle, ACE_INVALID_HANDLE) << name;
        EXPECT_EQ(ACE_OS::close(handle), 0);
    }
    const auto found = list();
    EXPECT_EQ(found.size(), std::size(names));
    for (const std::string& name : names) {
        EXPECT_EQ(found.count(name), 1U) << name;
        EXPECT_TRUE(file_system::remove((root.str() + '\\' + name).c_str())) << name;
    }
}

TEST_F(Directory_Reader_Test, TheDirectoryMayBeSpeltInEveryWay)
{
    write_local(root / "file", "");
    for (const std::string& path :
         {root.str() + '\\', root.path().generic_string(), root.path().generic_string() + "//",
          root / "missing/..", "\\\\?\\" + root.str()})
    {
        Directory_Reader::Entry entry;
        ASSERT_TRUE(reader.open(path.c_str(), false, 0)) << path;
        EXPECT_EQ(reader.read(entry), 1) << path;
        EXPECT_EQ(entry.name, "file");
        EXPECT_EQ(reader.read(entry), 0) << path;
    }
}

} // namespace
