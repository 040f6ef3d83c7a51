#include "tests/support/log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

Log_Capture::Log_Capture()
{
    ACE_Log_Msg* log = ACE_Log_Msg::instance();
    old_flags_ = log->flags();
    old_callback_ = log->msg_callback(this);
    log->clr_flags(ACE_Log_Msg::STDERR);
    log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Log_Capture::~Log_Capture()
{
    ACE_Log_Msg* log = ACE_Log_Msg::instance();
    log->msg_callback(old_callback_);
    log->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    log->set_flags(old_flags_);
}

void Log_Capture::log(ACE_Log_Record& record)
{
    messages_.push_back({record.type(), record.msg_data()});
}
