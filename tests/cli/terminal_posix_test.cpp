#include "cli/reporter.h"

#include "tests/support/fake_clock.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <termios.h>
#include <unistd.h>

using namespace std::chrono_literals;
using cio::Output;
using cio::Reporter;

namespace
{

/// Reads whatever is there, without waiting.
std::string take(int end)
{
    std::string text(1 << 16, '\0');
    const ssize_t n = ::read(end, text.data(), text.size());
    text.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return text;
}

/// Standard output as a pipe and standard error as a terminal.
struct Streams
{
    Streams()
    {
        if (::pipe2(out, O_NONBLOCK) != 0)
            std::abort();
        terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (terminal < 0 || ::grantpt(terminal) != 0 || ::unlockpt(terminal) != 0)
            std::abort();
        slave = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
        struct termios settings = {};
        if (slave < 0 || ::tcgetattr(slave, &settings) != 0)
            std::abort();
        ::cfmakeraw(&settings);
        ::tcsetattr(slave, TCSANOW, &settings);
    }
    ~Streams()
    {
        for (const int end : {out[0], out[1], slave, terminal})
            ::close(end);
    }
    int out[2] = {-1, -1};
    int terminal = -1;
    int slave = -1;
};

} // namespace

TEST(Terminal, ProgressIsDrawnTenTimesASecondAtMost)
{
    Fake_Clock clock;
    const Streams streams;
    Output out(streams.out[1]);
    Output messages(streams.slave);
    Reporter report({"put", false, false, true}, out, messages);
    report.file_found(4 << 20);
    report.all_found();
    for (int i = 0; i < 99; ++i) {
        clock.time += 1ms;
        report.bytes_moved(1000);
    }
    EXPECT_EQ(take(streams.terminal), "");
    clock.time += 1ms;
    report.bytes_moved((1 << 20) - 99'000);
    EXPECT_EQ(take(streams.terminal),
              "\r1.0 MiB of 4.0 MiB  0 of 1 files  10.0 MiB/s  00:00 left\x1b[K");
    clock.time += 99ms;
    report.bytes_moved(1);
    EXPECT_EQ(take(streams.terminal), "");
    clock.time += 1ms;
    report.bytes_moved(1);
    EXPECT_NE(take(streams.terminal), "");
    EXPECT_EQ(report.finish(false), 0);
    EXPECT_EQ(take(streams.terminal), "\r\x1b[K");
    EXPECT_EQ(take(streams.out[0]), "put: 0 files, 1.0 MiB, 0.2 s, 5.0 MiB/s\n");
}

TEST(Terminal, TimeLeftWaitsUntilEverythingWasFound)
{
    Fake_Clock clock;
    const Streams streams;
    Output out(streams.out[1]);
    Output messages(streams.slave);
    Reporter report({"put", false, false, true}, out, messages);
    report.file_found(100 << 20);
    clock.time += 10s;
    report.bytes_moved(10 << 20);
    EXPECT_EQ(take(streams.terminal), "\r10.0 MiB  0 files  1.0 MiB/s\x1b[K");
    report.all_found();
    clock.time += 10s;
    report.bytes_moved(10 << 20);
    EXPECT_EQ(take(streams.terminal),
              "\r20.0 MiB of 100.0 MiB  0 of 1 files  1.0 MiB/s  01:20 left\x1b[K");
    (void)report.finish(false);
}

TEST(Terminal, WithoutTheSizesOfAllFilesNoTotalOfBytesIsMadeUp)
{
    Fake_Clock clock;
    const Streams streams;
    Output out(streams.out[1]);
    Output messages(streams.slave);
    Reporter report({"get", false, false, true}, out, messages);
    report.file_found(1 << 20);
    report.file_found(std::nullopt);
    report.all_found();
    clock.time += 1s;
    report.bytes_moved(1 << 20);
    EXPECT_EQ(take(streams.terminal), "\r1.0 MiB  0 of 2 files  1.0 MiB/s\x1b[K");
    Reporter json({"get", false, true, true}, out, messages);
    json.file_found(std::nullopt);
    json.all_found();
    clock.time += 1s;
    json.bytes_moved(5);
    const std::string line = take(streams.out[0]);
    EXPECT_NE(line.find("\"files_total\":1"), std::string::npos) << line;
    EXPECT_EQ(line.find("bytes_total"), std::string::npos) << line;
    EXPECT_EQ(line.find("seconds_left"), std::string::npos) << line;
    (void)report.finish(false);
    (void)json.finish(false);
}

TEST(Terminal, NoProgressWithoutATerminalAndNoneWhenQuiet)
{
    Fake_Clock clock;
    const Streams streams;
    {
        Output out(streams.out[1]);
        Reporter report({"put", false, false, true}, out, out);
        clock.time += 1s;
        report.bytes_moved(1);
        EXPECT_EQ(take(streams.out[0]), "");
    }
    Output out(streams.out[1]);
    Output messages(streams.slave);
    Reporter report({"put", true, false, true}, out, messages);
    clock.time += 1s;
    report.bytes_moved(1);
    report.error("a", {cio::exit_failed, "text"});
    EXPECT_EQ(report.finish(false), 1);
    EXPECT_EQ(take(streams.terminal), "");
    EXPECT_EQ(take(streams.out[0]), "");
}

TEST(Terminal, MessageTakesThePlaceOfTheProgressLineAndMasksControlCharacters)
{
    Fake_Clock clock;
    const Streams streams;
    Output out(streams.out[1]);
    Output messages(streams.slave);
    Reporter report({"get", false, false, true}, out, messages);
    clock.time += 1s;
    report.bytes_moved(1);
    (void)take(streams.terminal);
    report.error("a\x1b[2J", {cio::exit_failed, "failed"});
    EXPECT_EQ(take(streams.terminal), "\r\x1b[Kcio: get: a?[2J: failed\n");
    (void)report.finish(false);
}

TEST(Terminal, ControlCharactersAreShownRawToProgramsAndMaskedOnTerminals)
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
