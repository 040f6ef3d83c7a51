#include "cli/interrupt.h"

#include "tests/cli/cli_test.h"

#include <csignal>
#include <unistd.h>

namespace fs = std::filesystem;

class Interrupt_Signals : public Cli_Test
{};

TEST_F(Interrupt_Signals, ASecondSignalEndsTheProcess)
{
    EXPECT_EXIT(
        {
            cio::interrupt::install();
            ::raise(SIGINT);
            if (cio::interrupt::requested())
                ::raise(SIGTERM);
            ::_exit(0);
        },
        testing::KilledBySignal(SIGTERM), "");
}

TEST_F(Interrupt_Signals, TheSameSignalAtOnceIsTheSameRequest)
{
    EXPECT_EXIT(
        {
            cio::interrupt::install();
            ::raise(SIGTERM);
            ::raise(SIGTERM);
            ::_exit(cio::interrupt::requested() ? 7 : 0);
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(Interrupt_Signals, OneRequestThatArrivesTwiceStillEndsCleanly)
{
    write("source", "");
    fs::resize_file(at("source"), 256ULL << 30U); // takes minutes to move, but no room
    Cio_Process process({"put", "--json", "source", uri()}, in_here());
    ASSERT_TRUE(process.wait_for_output("\"progress\""));
    ::kill(process.pid(), SIGTERM);
    ::kill(process.pid(), SIGTERM);
    const Cio_Result result = process.wait();
    EXPECT_EQ(result.code, 130);
    EXPECT_NE(result.out.find("\"partial\""), std::string::npos);
}
