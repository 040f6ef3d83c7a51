#pragma once

#include <ace/Log_Msg_Callback.h>
#include <string>
#include <vector>

/// Collects what the calling thread logs, in place of standard error, while it exists.
class Log_Capture : private ACE_Log_Msg_Callback
{
public:
    struct Message
    {
        unsigned long priority = 0; ///< ACE_Log_Priority
        std::string text;
    };

    Log_Capture();
    ~Log_Capture() override;
    Log_Capture(const Log_Capture&) = delete;
    Log_Capture& operator=(const Log_Capture&) = delete;

    const std::vector<Message>& messages() const { return messages_; }
    void clear() { messages_.clear(); }

private:
    void log(ACE_Log_Record& record) override;

    unsigned long old_flags_ = 0;
    ACE_Log_Msg_Callback* old_callback_ = nullptr;
    std::vector<Message> messages_;
};
