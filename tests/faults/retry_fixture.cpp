#include "tests/faults/retry_fixture.h"

#include <ace/Log_Priority.h>

void Noting_Clock::sleep(std::chrono::nanoseconds duration)
{
    pauses.push_back(std::chrono::duration_cast<std::chrono::seconds>(duration).count());
    if (on_pause)
        on_pause();
    Fake_Clock::sleep(duration);
}

Retry_Fixture::Retry_Fixture()
    : io_(std::make_unique<Resumption_IO>(std::make_unique<Recording_IO>(below_), buffer_size))
{
    below_->error = "down";
}

bool Retry_Fixture::connect_to(const char* uri, std::uint64_t max_retry)
{
    URI target;
    EXPECT_TRUE(URI_Parser::parse(uri, target));
    Client_IO_Base::Options options;
    options.max_retry = max_retry;
    return io_->connect(target, options);
}

void Retry_Fixture::set_failing(const std::string& operation, bool failing)
{
    if (operation == "path_size")
        below_->path_size = failing ? Client_IO_Base::size_unknown : 0;
    else if (failing)
        below_->failing.insert(operation);
    else
        below_->failing.erase(operation);
}

void Retry_Fixture::recover()
{
    below_->failing.clear();
    set_failing("path_size", false);
}

void Retry_Fixture::recover_after(std::size_t pauses)
{
    clock_.on_pause = [this, pauses] {
        if (pauses_.size() == pauses)
            recover();
    };
}

std::vector<std::string> Retry_Fixture::logged() const
{
    std::vector<std::string> result;
    for (const Log_Capture::Message& message : log_.messages()) {
        const char* const level = message.priority == LM_DEBUG       ? "DEBUG "
                                  : message.priority == LM_ERROR     ? "ERROR "
                                  : message.priority == LM_EMERGENCY ? "EMERGENCY "
                                                                     : "OTHER ";
        result.push_back(level + message.text);
    }
    return result;
}

std::vector<std::string> Retry_Fixture::actions() const
{
    std::vector<std::string> result;
    for (const std::string& call : below_->actions()) {
        if (call == "size()" || call.starts_with("get_config("))
            continue;
        const std::size_t address = std::min(call.find("0x"), call.find("(nil)"));
        result.push_back(address == std::string::npos ? call : call.substr(0, address) + "*)");
    }
    return result;
}

void Retry_Fixture::expect_missing_layer_logged() const
{
    const std::vector<std::string> messages = logged();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_TRUE(messages[0].starts_with(
        "EMERGENCY Unexpected error in backup/client_io/resumption_io.cpp:"))
        << messages[0];
    EXPECT_NE(messages[0].find(", _io is NULL:\n"), std::string::npos) << messages[0];
}
