#pragma once

#include "tests/support/log_capture.h"

#include <ace/Log_Priority.h>

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

/// Bytes for which no machine has the memory; linked with allocation_count.cpp, a sanitized program
/// survives asking for them.
constexpr std::uint64_t too_large = std::uint64_t(1) << 63U;

/// Expects that nothing was logged but that @p condition was broken in a source of client_io.
inline void expect_broken_precondition(const Log_Capture& log, const std::string& source,
                                       const std::string& condition)
{
    ASSERT_EQ(log.messages().size(), 1U);
    const Log_Capture::Message& message = log.messages()[0];
    EXPECT_EQ(message.priority, static_cast<unsigned long>(LM_EMERGENCY));
    EXPECT_TRUE(message.text.starts_with("Unexpected error in backup/client_io/" + source + ":"))
        << message.text;
    EXPECT_NE(message.text.find(", " + condition + ":\n"), std::string::npos) << message.text;
}
