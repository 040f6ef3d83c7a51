// A program that loads client_io.dll: writes a file to a target, reads it back, and shows that what
// the library has to say arrives in the program's own ACE log.
// usage: host URI

#include <client_io/client_io.h>

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <iostream>
#include <string>

namespace
{

// Where an agent would write to its log file or to the event log.
class Host_Log : public ACE_Log_Msg_Callback
{
public:
    void log(ACE_Log_Record& record) override
    {
        std::cout << "host log: " << ACE_TEXT_ALWAYS_CHAR(record.msg_data()) << std::flush;
    }
};

bool run(const char* uri)
{
    Client_IO target;
    std::string text;
    if (!target.connect(uri, Client_IO::Options{}) ||
        !target.put_contents("sample/hello.txt", "Hello, target", true) ||
        !target.get_contents("sample/hello.txt", text))
    {
        ACE_ERROR((LM_ERROR, "%C (error %d)\n", target.error().c_str(), target.errnum()));
        return false;
    }
    ACE_DEBUG((LM_INFO, "read back: %C\n", text.c_str()));
    // A mistake of the caller is no error of the target: the library refuses it and logs it.
    return !target.remove(nullptr);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: host URI\n";
        return 2;
    }
    Host_Log log;
    ACE_LOG_MSG->msg_callback(&log);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
    const bool done = run(argv[1]);
    ACE_LOG_MSG->msg_callback(nullptr);
    return done ? 0 : 1;
}
