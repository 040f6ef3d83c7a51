#include "cli/limit.h"

#include "cli/failure.h"
#include "cli/put_worker.h"
#include "tests/cli/cli_test.h"
#include "tests/cli/test_pipe.h"
#include "tests/support/fake_clock.h"

using cio::Limit;
using cio::parse_limit;

namespace
{

constexpr std::int32_t hour = 3600;

std::string refusal(const std::string& text)
{
    try {
        (void)parse_limit(text);
    } catch (const cio::Usage_Error& error) {
        return error.what();
    }
    return "accepted";
}

} // namespace

TEST(Limit, ARateIsBytesPerSecondWithASuffix)
{
    const std::pair<const char*, std::uint64_t> rates[] = {
        {"0", 0},
        {"1", 1},
        {"512", 512},
        {"20M", 20U << 20U},
        {"1.5M", 3U << 19U},
        {"0.5K", 512},
        {"1.0K", 1024},
        {"0.001K", 1},
        {"0.0000019999T", 1099511},
        {"512K/s", 512U << 10U},
        {"7/s", 7},
        {" 3G ", 3ULL << 30U},
        {"2T", 2ULL << 40U},
        {"9223372036854775807", 9223372036854775807ULL},
        {"8388607.999999T", 9223372036853676296ULL},
    };
    for (const auto& [text, rate] : rates)
        EXPECT_EQ(parse_limit(text), (Limit{rate, {}})) << text;
}

TEST(Limit, WhatIsNoRateIsRefused)
{
    for (const char* text :
         {"",       " ",     "K",       "M5",  "-1",        "+1",  "20m", "20MB",
          "20Mb",   "1e6",   "0x10",    "5 M", "1.5",       "1.K", ".5M", "1..5M",
          "1.5.5M", "20M/m", "20M/s/s", "/s",  "unlimited", "5M;", "1\n"})
        EXPECT_NE(refusal(text).find("is no rate"), std::string::npos) << text << refusal(text);
    for (const char* text :
         {"9223372036854775808", "18446744073709551616", "8388608T", "99999999999999999999K"})
        EXPECT_NE(refusal(text).find("beyond what can be kept"), std::string::npos) << text;
    // 0 would mean the opposite.
    EXPECT_NE(refusal("0.0001K").find("less than one byte"), std::string::npos);
}

TEST(Limit, ATimetableHasPeriodsAndADefault)
{
    EXPECT_EQ(parse_limit("08:00-18:00=5M,else=0"), (Limit{0, {{8 * hour, 18 * hour, 5U << 20U}}}));
    EXPECT_EQ(parse_limit("08:00-18:00=5M"), (Limit{0, {{8 * hour, 18 * hour, 5U << 20U}}}));
    EXPECT_EQ(parse_limit("else=7K , 22:30-6:15 = 1.5K/s, 12:00-13:00=0"),
              (Limit{7168, {{22 * hour + 1800, 6 * hour + 900, 1536}, {12 * hour, 13 * hour, 0}}}));
    EXPECT_EQ(parse_limit("else=3"), (Limit{3, {}}));
    EXPECT_EQ(parse_limit("00:00-24:00=1,18:00-24:00=2,18:00-00:00=3"),
              (Limit{0, {{0, 24 * hour, 1}, {18 * hour, 24 * hour, 2}, {18 * hour, 0, 3}}}));
}

TEST(Limit, WhatIsNoTimetableIsRefusedWithItsReason)
{
    const std::pair<const char*, const char*> texts[] = {
        {",", "an entry of the timetable is empty"},
        {"else=1,", "an entry of the timetable is empty"},
        {"else=1,,08:00-09:00=2", "an entry of the timetable is empty"},
        {"08:00-18:00", "is no entry of a timetable"},
        {"08:00-18:00=5M,20M", "is no entry of a timetable"},
        {"else=1,else=1", "is a second 'else'"},
        {"Else=1", "is no period"},
        {"=5", "is no period"},
        {"08:00=5", "is no period"},
        {"08:00-18:00-19:00=5", "is no period"},
        {"8-18=5M", "is no period"},
        {"08:0-18:00=5", "is no period"},
        {"08:000-18:00=5", "is no period"},
        {"008:00-18:00=5", "is no period"},
        {"-1:00-18:00=5", "is no period"},
        {"08:00:00-18:00=5", "is no period"},
        {"08:60-18:00=5", "holds a time that does not exist"},
        {"08:00-24:01=5", "holds a time that does not exist"},
        {"99:00-18:00=5", "holds a time that does not exist"},
        {"24:00-08:00=5", "begins at 24:00"},
        {"08:00-08:00=5", "is a period of no time"},
        {"08:00-18:00=", "is no rate"},
        {"08:00-18:00=fast", "is no rate"},
        {"08:00-18:00=1=2", "is no rate"},
        {"08:00-18:00=99999999999999999999", "beyond what can be kept"},
    };
    for (const auto& [text, reason] : texts)
        EXPECT_NE(refusal(text).find(reason), std::string::npos) << text << ": " << refusal(text);
}

TEST(Limit, ConnectionsShareItAndNoneBecomesUnlimited)
{
    Client_IO_Base::Options options;
    EXPECT_FALSE(cio::has_limit(options));
    cio::divide_limit(options, 4);
    EXPECT_EQ(options.max_bytes_per_second, 0U) << "unlimited stays unlimited";

    options.max_bytes_per_second = 1001;
    options.rate_control = {{0, 10, 4000}, {10, 20, 0}, {20, 30, 3}};
    EXPECT_TRUE(cio::has_limit(options));
    cio::divide_limit(options, 4);
    EXPECT_EQ(options.max_bytes_per_second, 250U);
    EXPECT_EQ(options.rate_control,
              (std::vector<Rate_Control_Entry>{{0, 10, 1000}, {10, 20, 0}, {20, 30, 1}}));
    cio::divide_limit(options, 1);
    EXPECT_EQ(options.max_bytes_per_second, 250U);

    Client_IO_Base::Options scheduled;
    scheduled.rate_control = {{0, 10, 5}};
    EXPECT_TRUE(cio::has_limit(scheduled));
}

class Limited_Transfer : public Cli_Test
{};

TEST_F(Limited_Transfer, TakesTheTimeThatItsShareOfTheLimitAllows)
{
    write("source", pattern(4 << 20));
    const Environment_Variable state("XDG_STATE_HOME", path("state"));
    const Test_Pipe pipe;
    cio::Output out(pipe.write_end());
    Client_IO_Base::Options options;
    options.max_bytes_per_second = 1 << 20;
    for (const unsigned workers : {1U, 4U}) {
        Fake_Clock clock;
        const std::string name = "stored-" + std::to_string(workers);
        const cio::Target target = cio::make_target(uri(), options, true);
        cio::Reporter report({"put", true, false, true}, out, out);
        cio::Transfer transfer{target, report, false, false};
        cio::Put_Worker(transfer, workers).run({path("source"), name, false, std::nullopt});
        EXPECT_EQ(report.finish(false), 0);
        EXPECT_EQ(read("target/" + name), read("source"));
        const double seconds = std::chrono::duration<double>(clock.time).count();
        EXPECT_NEAR(seconds, 4.0 * workers, 0.05 * 4.0 * workers) << workers;
    }
}
