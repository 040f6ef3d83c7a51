#pragma once

#include "client_io/resumption_io.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_io.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

/// A fake clock that notes how long was slept, in seconds.
class Noting_Clock : public Fake_Clock
{
public:
    void sleep(std::chrono::nanoseconds duration) override;

    std::vector<std::int64_t> pauses;
    std::function<void()> on_pause; ///< called before on_sleep
};

/// Retries over a layer that notes its calls and fails as told, with the error text "down".
class Retry_Fixture : public testing::Test
{
protected:
    Retry_Fixture();

    bool connect_to(const char* uri, std::uint64_t max_retry);
    /// @param operation  as the Recording names it, or "path_size"
    void set_failing(const std::string& operation, bool failing);
    /// Lets everything succeed again.
    void recover();
    /// Does so when the clock has slept so many times.
    void recover_after(std::size_t pauses);

    /// "DEBUG text", "ERROR text", ...
    std::vector<std::string> logged() const;
    /// Calls to the layer below that do something, from the first address on shown as `*`.
    std::vector<std::string> actions() const;
    void expect_missing_layer_logged() const;

    static constexpr std::uint64_t buffer_size = 4;

    Log_Capture log_;
    Noting_Clock clock_;
    std::vector<std::int64_t>& pauses_ = clock_.pauses;
    std::shared_ptr<Recording> below_ = std::make_shared<Recording>();
    std::unique_ptr<Resumption_IO> io_;
};
