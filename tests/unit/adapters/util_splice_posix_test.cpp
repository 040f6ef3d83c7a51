#include "client_io/util.h"
#include "platform/runtime/posix_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/util_pipe.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace
{

std::atomic<int> signals_seen{0};
static_assert(std::atomic<int>::is_always_lock_free);

void count_signal(int)
{
    ++signals_seen;
}

/// Counts a signal, without SA_RESTART, while it lives.
class Counted_Signal
{
public:
    explicit Counted_Signal(int number) : number_(number)
    {
        signals_seen = 0;
        struct sigaction action = {};
        action.sa_handler = count_signal;
        EXPECT_EQ(sigaction(number_, &action, &before_), 0);
    }
    ~Counted_Signal() { sigaction(number_, &before_, nullptr); }
    Counted_Signal(const Counted_Signal&) = delete;
    Counted_Signal& operator=(const Counted_Signal&) = delete;

private:
    int number_;
    struct sigaction before_ = {};
};

/// Runs a call on a thread of its own, which signals can reach while it waits.
class Signalled_Call
{
public:
    template <class Call>
    explicit Signalled_Call(Call call)
        : thread_([this, call] {
              id_ = static_cast<pid_t>(syscall(SYS_gettid));
              result_ = call();
              done_ = true;
          })
    {}

    /// Waits until the thread waits for the system, interrupts that, and does so again.
    /// @return false when the call ended instead
    bool interrupt(int signal, int times)
    {
        for (int seen = signals_seen, end = seen + times; seen < end; ++seen) {
            while (!done_ && !is_asleep())
                std::this_thread::yield();
            if (done_)
                return false;
            EXPECT_EQ(pthread_kill(thread_.native_handle(), signal), 0);
            while (signals_seen == seen)
                std::this_thread::yield();
        }
        return true;
    }

    bool wait()
    {
        thread_.join();
        return result_;
    }

private:
    bool is_asleep() const
    {
        if (id_ == 0)
            return false;
        std::ifstream status("/proc/self/task/" + std::to_string(id_) + "/stat");
        std::string text;
        std::getline(status, text);
        const std::size_t name_end = text.rfind(')');
        return name_end != std::string::npos && text.compare(name_end, 3, ") S") == 0;
    }

    std::atomic<pid_t> id_{0};
    std::atomic<bool> done_{false};
    std::atomic<bool> result_{false};
    std::thread thread_;
};

/// Fills a pipe until it takes no byte more.
/// @return how many it took
std::size_t fill(const Util_Handle& writer)
{
    const int flags = fcntl(writer.get(), F_GETFL);
    EXPECT_EQ(fcntl(writer.get(), F_SETFL, flags | O_NONBLOCK), 0);
    std::size_t size = 0;
    while (::write(writer.get(), "x", 1) == 1)
        ++size;
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(fcntl(writer.get(), F_SETFL, flags), 0);
    return size;
}

bool is_pending(int signal)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

bool is_blocked(int signal)
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

/// Splices to a pipe without a reader.
void splice_to_nobody()
{
    Util_Pipe pipe;
    pipe.reader.close();
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"data"};
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "Failed to write pipe, errno=" + std::to_string(EPIPE) +
                                          ", " + POSIX_Error(EPIPE, 1).str() + '\n');
}

TEST(Splice_Interrupted, AReadThatASignalInterruptsGoesOn)
{
    const Counted_Signal counted(SIGUSR1);
    Util_Pipe pipe;
    Recorded_File target(Client_IO::mode_write);
    Signalled_Call call([&] { return client_io_splice_from(target.io, pipe.reader.pointer()); });
    EXPECT_TRUE(call.interrupt(SIGUSR1, 3));
    EXPECT_TRUE(pipe.writer.write("after the signals"));
    EXPECT_TRUE(call.interrupt(SIGUSR1, 3));
    EXPECT_TRUE(pipe.writer.write(", and after more"));
    pipe.writer.close();
    EXPECT_TRUE(call.wait());
    EXPECT_EQ(target.log->written, "after the signals, and after more");
}

TEST(Splice_Interrupted, AWriteThatASignalInterruptsGoesOn)
{
    const Counted_Signal counted(SIGUSR1);
    Util_Pipe pipe;
    const std::size_t filling = fill(pipe.writer);
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"after the signals"};
    Signalled_Call call([&] { return client_io_splice_to(source.io, pipe.writer.pointer()); });
    EXPECT_TRUE(call.interrupt(SIGUSR1, 3));
    std::string arrived;
    std::thread reader([&] { arrived = pipe.reader.read_all(); });
    EXPECT_TRUE(call.wait());
    pipe.writer.close();
    reader.join();
    EXPECT_EQ(arrived, std::string(filling, 'x') + "after the signals");
}

TEST(Splice_Interrupted, AWriteThatASignalCutsShortIsFinished)
{
    const Counted_Signal counted(SIGUSR1);
    const std::string data = sample_bytes(3U << 20U);
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {data};
    Signalled_Call call([&] { return client_io_splice_to(source.io, pipe.writer.pointer()); });
    // The pipe has taken a part of the block and waits for room: that part is what is written.
    EXPECT_TRUE(call.interrupt(SIGUSR1, 3));
    std::string arrived;
    std::thread reader([&] { arrived = pipe.reader.read_all(); });
    EXPECT_TRUE(call.wait());
    pipe.writer.close();
    reader.join();
    EXPECT_TRUE(arrived == data) << arrived.size();
}

TEST(Splice_And_SIGPIPE, AReaderThatIsGoneDoesNotEndTheProcess)
{
    const auto before = std::signal(SIGPIPE, SIG_DFL);
    splice_to_nobody();
    EXPECT_FALSE(is_pending(SIGPIPE));
    EXPECT_FALSE(is_blocked(SIGPIPE));
    EXPECT_EQ(std::signal(SIGPIPE, before), SIG_DFL) << "the process's setting was changed";
}

TEST(Splice_And_SIGPIPE, AHandlerOfTheProcessIsNotCalledAndStays)
{
    const Counted_Signal counted(SIGPIPE);
    splice_to_nobody();
    EXPECT_EQ(signals_seen, 0);
    EXPECT_FALSE(is_pending(SIGPIPE));
    raise(SIGPIPE);
    EXPECT_EQ(signals_seen, 1);
}

TEST(Splice_And_SIGPIPE, AReaderThatGoesInTheMidstOfAWriteRaisesNoneEither)
{
    const Counted_Signal counted(SIGPIPE);
    Util_Pipe pipe;
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {sample_bytes(3U << 20U)};
    std::thread reader([&] {
        char byte = 0;
        EXPECT_EQ(::read(pipe.reader.get(), &byte, 1), 1);
        pipe.reader.close();
    });
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, pipe.writer.pointer()));
    reader.join();
    EXPECT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(signals_seen, 0);
    EXPECT_FALSE(is_pending(SIGPIPE));
}

TEST(Splice_And_SIGPIPE, AProcessThatIgnoresItIsToldTheSame)
{
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    splice_to_nobody();
    EXPECT_FALSE(is_pending(SIGPIPE));
    EXPECT_EQ(std::signal(SIGPIPE, before), SIG_IGN);
}

TEST(Splice_And_SIGPIPE, AThreadThatHoldsItBackFindsItsOwnSignalAndNoOther)
{
    const Counted_Signal counted(SIGPIPE);
    sigset_t pipe_signal;
    sigset_t before;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);

    splice_to_nobody();
    EXPECT_FALSE(is_pending(SIGPIPE));
    EXPECT_TRUE(is_blocked(SIGPIPE));

    raise(SIGPIPE);
    splice_to_nobody();
    EXPECT_TRUE(is_pending(SIGPIPE));
    EXPECT_EQ(signals_seen, 0);

    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(signals_seen, 1);
}

TEST(Splice_Devices, AFullDiskIsAFailureWithItsNumberAndText)
{
    const Util_Handle full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    ASSERT_GE(full.get(), 0);
    Recorded_File source(Client_IO::mode_read);
    source.log->blocks = {"data"};
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_to(source.io, full.pointer()));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "Failed to write pipe, errno=" + std::to_string(ENOSPC) +
                                          ", " + POSIX_Error(ENOSPC, 1).str() + '\n');
}

TEST(Splice_Devices, ADirectoryIsAFailureWithItsNumberAndText)
{
    const Temp_Directory directory;
    const Util_Handle handle(::open(directory.str().c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_GE(handle.get(), 0);
    Recorded_File target(Client_IO::mode_write);
    const Log_Capture log;
    EXPECT_FALSE(client_io_splice_from(target.io, handle.pointer()));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].text, "Failed to read handle, errno=" + std::to_string(EISDIR) +
                                          ", " + POSIX_Error(EISDIR, 1).str() + '\n');
}

TEST(Splice_Devices, DescriptorZeroIsAHandleLikeAnyOther)
{
    const int kept = ::dup(STDIN_FILENO);
    Util_Pipe pipe;
    ASSERT_EQ(::dup2(pipe.reader.get(), STDIN_FILENO), STDIN_FILENO);
    ASSERT_TRUE(pipe.writer.write("standard input"));
    pipe.writer.close();
    Recorded_File target(Client_IO::mode_write);
    EXPECT_TRUE(client_io_splice_from(target.io, nullptr));
    EXPECT_EQ(target.log->written, "standard input");
    if (kept >= 0) {
        ::dup2(kept, STDIN_FILENO);
        ::close(kept);
    } else
        ::close(STDIN_FILENO);
}

} // namespace
