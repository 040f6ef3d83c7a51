#include "servers/common/access_log.h"

#include "tests/support/temp_directory.h"

#include <filesystem>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(Access_Log, ALineHasTheCommonFormat)
{
    const Access_Record record{"192.0.2.1", "alice", "PUT", "/a%20b", "HTTP/1.1",
                               200,         12,      345,   1500ms};
    EXPECT_EQ(access_line(record, 1709210096),
              "192.0.2.1 - alice [29/Feb/2024:12:34:56 +0000] \"PUT /a%20b HTTP/1.1\" 200 12 "
              "1.500000 345\n");
}

TEST(Access_Log, WhatPeersSendMakesNoLinesOfItsOwn)
{
    const Access_Record record{"192.0.2.1", "", "G\"T", "/a\n\x7F\\\xFF b", "HTTP/1.0", 400,
                               0,           0,  0s};
    EXPECT_EQ(access_line(record, 0), "192.0.2.1 - - [01/Jan/1970:00:00:00 +0000] "
                                      "\"G\\x22T /a\\x0A\\x7F\\x5C\\xFF\\x20b HTTP/1.0\" 400 0 "
                                      "0.000000 0\n");
    EXPECT_EQ(access_line({"192.0.2.1", "", "", "", "HTTP/1.1", 400, 0, 0, 0s}, 0),
              "192.0.2.1 - - [01/Jan/1970:00:00:00 +0000] \"- - HTTP/1.1\" 400 0 0.000000 0\n");
}

TEST(Access_Log, EveryLineIsWrittenAtTheEnd)
{
    const Temp_Directory directory;
    const std::string path = directory / "log";
    const Access_Record record{"192.0.2.1", "", "GET", "/", "HTTP/1.1", 200, 0, 0, 0s};
    {
        const auto log = Access_Log::open(path);
        ASSERT_NE(log, nullptr);
        for (int i = 0; i < 1000; ++i)
            log->write(record);
    }
    const std::string text = read_local(path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1000);
}

TEST(Access_Log, ReopenedItGoesOnInANewFile)
{
    const Temp_Directory directory;
    const std::string path = directory / "log";
    auto log = Access_Log::open(path);
    ASSERT_NE(log, nullptr);
    log->write({"192.0.2.1", "", "GET", "/first", "HTTP/1.1", 200, 0, 0, 0s});
    std::filesystem::rename(path, directory / "old");
    EXPECT_TRUE(log->reopen());
    while (!std::filesystem::exists(directory / "old") || read_local(directory / "old").empty())
        ; // until the thread has taken note
    log.reset();
    EXPECT_NE(read_local(directory / "old").find("/first"), std::string::npos);
    log = Access_Log::open("/nowhere/log");
    EXPECT_EQ(log, nullptr);
}
