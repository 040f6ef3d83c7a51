#include "cli/output.h"

#include "platform/runtime/file_system.h"
#include "tests/cli/test_pipe.h"
#include "tests/support/temp_directory.h"

#include <ace/OS_NS_errno.h>
#include <ace/OS_NS_unistd.h>
#include <ace/os_include/os_fcntl.h>
#include <gtest/gtest.h>

TEST(Output, WellFormedUtf8IsTold)
{
    for (const char* text : {"", "plain", "\xC3\xA4", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_TRUE(cio::is_utf8(text)) << text;
    for (const char* text : {"\x80", "\xC3", "\xC0\xAF", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                             "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",
                             "a\xE2\x82", "\xE2\x28\xA1"})
        EXPECT_FALSE(cio::is_utf8(text)) << text;
}

TEST(Output, TimesAreIso8601InUtc)
{
    EXPECT_EQ(cio::format_time(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(cio::format_time(1709210096), "2024-02-29T12:34:56Z");
    EXPECT_EQ(cio::format_time(-1), "1969-12-31T23:59:59Z");
    EXPECT_EQ(cio::format_time(-62135596800), "0001-01-01T00:00:00Z");
    EXPECT_EQ(cio::format_time(253402300799), "9999-12-31T23:59:59Z");
    EXPECT_EQ(cio::format_time(253402300800), "-");
    EXPECT_EQ(cio::format_time(INT64_MIN), "-");
    EXPECT_EQ(cio::format_time(INT64_MAX), "-");
}

TEST(Output, AmountsOfBytesAreReadable)
{
    EXPECT_EQ(cio::format_bytes(0), "0 B");
    EXPECT_EQ(cio::format_bytes(1023), "1023 B");
    EXPECT_EQ(cio::format_bytes(1024), "1.0 KiB");
    EXPECT_EQ(cio::format_bytes(1536), "1.5 KiB");
    EXPECT_EQ(cio::format_bytes(1ULL << 20U), "1.0 MiB");
    EXPECT_EQ(cio::format_bytes(10ULL << 30U), "10.0 GiB");
    EXPECT_EQ(cio::format_bytes(UINT64_MAX), "15.9 EiB");
}

TEST(Output, ACharacterThatIsBegunAtTheEndIsNotWholeYet)
{
    for (const auto& [text, size] : {std::pair<const char*, std::size_t>{"", 0},
                                     {"ab", 2},
                                     {"a\xC3", 1},
                                     {"a\xC3\xA4", 3},
                                     {"\xE6\x97", 0},
                                     {"\xE6\x97\xA5", 3},
                                     {"b\xF0\x9F\x98", 1},
                                     {"b\xF0\x9F\x98\x80", 5},
                                     {"\xA4\xA4\xA4\xA4", 4},
                                     {"\xFF", 0},
                                     {"\xFF\xFF\xFFx", 4}})
        EXPECT_EQ(cio::whole_characters(text), size) << text;
}

TEST(Output, EverythingArrivesInOrderWhateverItsSize)
{
    Test_Pipe pipe;
    std::string expected;
    {
        cio::Output out(pipe.write_end());
        EXPECT_FALSE(out.is_terminal());
        for (const std::size_t size : {1U, 65535U, 2U, 65536U, 100'000U, 3U}) {
            const std::string text(size, static_cast<char>('a' + size % 26));
            out.write(text);
            expected += text;
        }
        out.write("no\nline\r\nis changed\n\x1A");
        expected += "no\nline\r\nis changed\n\x1A";
        out.flush();
        EXPECT_FALSE(out.failed());
    }
    EXPECT_EQ(pipe.take(), expected);
}

TEST(Output, FailureIsKept)
{
    const Temp_Directory directory;
    write_local(directory / "file", "");
    const ACE_HANDLE handle =
        file_system::open((directory / "file").c_str(), O_RDONLY, file_system::share_all);
    ASSERT_NE(handle, ACE_INVALID_HANDLE);
    ASSERT_EQ(ACE_OS::write(handle, "x", 1), -1);
    const int reason = ACE_OS::last_error();
    {
        cio::Output out(handle);
        out.write("x");
        EXPECT_FALSE(out.failed());
        out.flush();
        EXPECT_TRUE(out.failed());
        EXPECT_EQ(out.error_number(), reason);
    }
    ACE_OS::close(handle);
}
