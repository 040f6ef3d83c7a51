#include "cli/output.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

TEST(Output, ControlCharactersAreShownRawToProgramsAndMaskedOnTerminals)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    {
        const cio::Output piped(ends[1]);
        const cio::Output shown(terminal);
        EXPECT_FALSE(piped.is_terminal());
        ASSERT_TRUE(shown.is_terminal());
        const std::string name = "a\x1b[2J\n\x7f\xC2\x9Bz\xC3\xA4";
        EXPECT_EQ(piped.printable(name), name);
        EXPECT_EQ(shown.printable(name), "a?[2J????z\xC3\xA4");
    }
    ::close(ends[0]);
    ::close(ends[1]);
    ::close(terminal);
}

TEST(Output, EverythingArrivesInOrderWhateverItsSize)
{
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_NONBLOCK), 0);
    ASSERT_GE(::fcntl(ends[1], F_SETPIPE_SZ, 1 << 20), 1 << 20);
    std::string expected;
    {
        cio::Output out(ends[1]);
        for (const std::size_t size : {1U, 65535U, 2U, 65536U, 100'000U, 3U}) {
            const std::string text(size, static_cast<char>('a' + size % 26));
            out.write(text);
            expected += text;
        }
        out.flush();
        EXPECT_FALSE(out.failed());
    }
    std::string got(expected.size() + 1, '\0');
    std::size_t size = 0;
    for (ssize_t n = 0; (n = ::read(ends[0], got.data() + size, got.size() - size)) > 0;)
        size += static_cast<std::size_t>(n);
    got.resize(size);
    EXPECT_EQ(got, expected);
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(Output, FailureIsKept)
{
    const int full = ::open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    {
        cio::Output out(full);
        out.write("x");
        EXPECT_FALSE(out.failed());
        out.flush();
        EXPECT_TRUE(out.failed());
        EXPECT_EQ(out.error_number(), ENOSPC);
    }
    ::close(full);
}
