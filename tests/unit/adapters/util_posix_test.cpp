#include "client_io/util.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_io.h"
#include "tests/support/open_facade.h"

#include <cwchar>
#include <gtest/gtest.h>

namespace
{

TEST(Util_Posix, AnIPv6AddressIsTakenAsItIsWritten)
{
    Pool_Info pool;
    pool.preferred_source_address = "::1";
    Client_IO_Base::Options options;
    const Log_Capture log;
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_EQ(options.preferred_source_address, "::1");
    EXPECT_TRUE(log.messages().empty());
}

TEST(Util_Posix, WhatCannotBeFormattedIsAnEmptyFile)
{
    Open_Facade io;
    ASSERT_TRUE(
        io.connect_plain(std::make_unique<Memory_IO>(std::make_shared<Memory_File_System>())));
    const Log_Capture log;
    // No character has this number.
    EXPECT_TRUE(client_io_write_format(io, "a", "text %lc", static_cast<std::wint_t>(0x7FFFFFFF)));
    std::string text = "before";
    EXPECT_TRUE(io.get_contents("a", text));
    EXPECT_EQ(text, "");
    EXPECT_TRUE(log.messages().empty());
}

} // namespace
