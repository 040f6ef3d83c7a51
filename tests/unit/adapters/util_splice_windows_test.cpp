#include "client_io/util.h"
#include "platform/runtime/os_error.h"
#include "tests/support/log_capture.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/util_pipe.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

using testing::StartsWith;

namespace
{

TEST(Splice_Windows, AWriterThatIsGoneIsErrorBrokenPipeToTheSystemAndTheEndToUs)
{
    Util_Pipe pipe;
    pipe.writer.close();
    char byte = 0;
    DWORD size = 0;
    ASSERT_FALSE(ReadFile(pipe.reader.get(), &byte, 1, &size, nullptr));
    ASSERT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    Recorded_File target(Client_IO::mode_write);
    const Log_Capture log;
    EXPECT_TRUE(client_io_splice_from(target.io, pipe.reader.pointer()));
    EXPECT_TRUE(log.messages().empty());
}

TEST(Splice_Windows, AWriteThatTakesNothingIsAFailure)
{
    Util_Pipe pipe;
    DWORD mode = PIPE_READMODE_BYTE | PIPE_NOWAIT;
    ASSERT_TRUE(SetNamedPipeHandleState(pipe.writer.get(), &mode, nullptr, nullptr));
    // A full pipe of this kind takes nothing and calls it success.
    DWORD size = 1;
    while (size == 1)
        ASSERT_TRUE(WriteFile(pipe.writer.get(), "x", 1, &size, nullptr)) << GetLastError();
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"data"};
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_THAT(log.messages()[0].text, StartsWith("Failed to write pipe, errno=" +
                                                   std::to_string(os_error::write_fault) + ", "));
}

} // namespace
