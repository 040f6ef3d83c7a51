#include "client_io/client_io_ostreambuf.h"

#include "tests/support/fault_io.h"
#include "tests/support/memory_io.h"
#include "tests/unit/adapters/broken_precondition.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/stored_file.h"
#include "tests/unit/adapters/stream_case.h"

#include <ace/OS_NS_errno.h>

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <sstream>

namespace
{

using testing::ElementsAre;

constexpr std::size_t sample_size = 200'003;
constexpr int end_of_file = Client_IO_ostreambuf::traits_type::eof();

/// Opens to tests what only the base class may call.
class Exposed_Ostreambuf : public Client_IO_ostreambuf
{
public:
    using Client_IO_ostreambuf::Client_IO_ostreambuf;
    using Client_IO_ostreambuf::epptr;
    using Client_IO_ostreambuf::overflow;
    using Client_IO_ostreambuf::pbase;
    using Client_IO_ostreambuf::pbump;
    using Client_IO_ostreambuf::pptr;
};

void expect_failed_write(const Log_Capture& log, const std::string& error)
{
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].priority, static_cast<unsigned long>(LM_ERROR));
    EXPECT_EQ(log.messages()[0].text, "Failed to write to client io, " + error + "\n");
}

class Client_IO_Ostreambuf_Files : public testing::TestWithParam<Stream_Case>
{
protected:
    Stored_File file_{std::get<0>(GetParam())};
    Client_IO_ostreambuf buffer_{file_.written(), std::get<1>(GetParam())};
    std::ostream out_{&buffer_};
};

TEST_P(Client_IO_Ostreambuf_Files, WritesOfAnyLengthStoreEveryByte)
{
    const std::string data = sample_bytes(sample_size);
    std::size_t at = 0;
    for (std::size_t length = 1; at < data.size(); length = length * 3 % 10007) {
        const std::size_t n = std::min(length, data.size() - at);
        ASSERT_TRUE(out_.write(data.data() + at, static_cast<std::streamsize>(n)));
        at += n;
    }
    ASSERT_TRUE(out_.flush());
    EXPECT_TRUE(file_.contents() == data);
}

TEST_P(Client_IO_Ostreambuf_Files, IteratorsStoreEveryByte)
{
    const std::string data = sample_bytes(sample_size);
    const auto end = std::copy(data.begin(), data.end(), std::ostreambuf_iterator<char>(out_));
    EXPECT_FALSE(end.failed());
    ASSERT_TRUE(out_.flush());
    EXPECT_TRUE(file_.contents() == data);
}

TEST_P(Client_IO_Ostreambuf_Files, FormattedTextIsStoredAsIntoAnyStream)
{
    std::ostringstream expected;
    const auto write = [](std::ostream& out) {
        for (int i = 0; i < 3000; ++i) {
            out << "line " << i << ' ' << i * 0.5 << (i % 2 == 0 ? " even" : "") << '\n';
            if (i % 700 == 0)
                out << std::flush;
        }
        out.put('\xff').put('\0');
    };
    write(out_);
    write(expected);
    ASSERT_TRUE(out_.flush());
    EXPECT_EQ(file_.contents(), expected.str());
}

TEST_P(Client_IO_Ostreambuf_Files, WithoutAByteTheFileIsEmpty)
{
    ASSERT_TRUE(out_.flush());
    EXPECT_EQ(file_.contents(), "");
}

INSTANTIATE_TEST_SUITE_P(Stored, Client_IO_Ostreambuf_Files, stream_cases(), stream_case_name);

TEST(Client_IO_Ostreambuf, WritesAWholeBufferAtATime)
{
    Recorded_File file(2);
    Client_IO_ostreambuf buffer(file.io, 4);
    EXPECT_EQ(buffer.sputn("abcd", 4), 4);
    EXPECT_TRUE(file.log->calls.empty()) << "it is full, but nothing asked for room yet";
    EXPECT_EQ(buffer.sputn("efghij", 6), 6);
    EXPECT_THAT(file.write_sizes(), ElementsAre(4U, 4U));
    EXPECT_EQ(file.log->written, "abcdefgh");
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_THAT(file.write_sizes(), ElementsAre(4U, 4U, 2U));
    EXPECT_EQ(file.log->written, "abcdefghij");
}

TEST(Client_IO_Ostreambuf, ASyncWithoutBytesWritesNothing)
{
    Recorded_File file(2);
    Client_IO_ostreambuf buffer(file.io, 4);
    EXPECT_EQ(buffer.pubsync(), 0);
    buffer.sputc('a');
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_THAT(file.write_sizes(), ElementsAre(1U));
}

TEST(Client_IO_Ostreambuf, DestroyingItWithoutAFlushLosesTheBufferedBytes)
{
    Recorded_File file(2);
    {
        Client_IO_ostreambuf buffer(file.io, 4);
        std::ostream out(&buffer);
        out << "abcdef";
    }
    EXPECT_EQ(file.log->written, "abcd");
    EXPECT_TRUE(file.io.is_open());
    EXPECT_EQ(file.log->count("close("), 0U);
    EXPECT_EQ(file.log->count("flush("), 0U);
}

TEST(Client_IO_Ostreambuf, OverflowWithEndOfFileMakesRoomAndAnswersEndOfFile)
{
    Recorded_File file(2);
    Exposed_Ostreambuf buffer(file.io, 2);
    EXPECT_EQ(buffer.overflow(end_of_file), end_of_file);
    EXPECT_EQ(buffer.overflow('a'), 'a');
    EXPECT_EQ(buffer.overflow(end_of_file), end_of_file);
    EXPECT_TRUE(file.log->calls.empty()) << "there is room";
    EXPECT_EQ(buffer.overflow(0xFF), 0xFF);
    EXPECT_EQ(buffer.overflow(end_of_file), end_of_file);
    EXPECT_EQ(file.log->written, "a\xff");
    EXPECT_EQ(buffer.pptr(), buffer.pbase());
    EXPECT_EQ(buffer.overflow('b'), 'b');
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(file.log->written, "a\xff"
                                 "b");
}

TEST(Client_IO_Ostreambuf, AFailedWriteIsLoggedAndKeepsTheBytes)
{
    Recorded_File file(2);
    file.log->error = "no space: 100%s %n";
    Exposed_Ostreambuf buffer(file.io, 4);
    EXPECT_EQ(buffer.sputn("abcd", 4), 4);
    file.log->failing.insert("write");
    for (int i = 0; i < 2; ++i) {
        Log_Capture log;
        EXPECT_EQ(buffer.pubsync(), -1);
        expect_failed_write(log, file.log->error);
        EXPECT_EQ(buffer.pptr() - buffer.pbase(), 4);
    }
    {
        Log_Capture log;
        EXPECT_EQ(buffer.sputc('e'), end_of_file);
        expect_failed_write(log, file.log->error);
        EXPECT_EQ(buffer.pptr() - buffer.pbase(), 4);
    }
    EXPECT_EQ(file.log->written, "");
    file.log->failing.clear();
    EXPECT_EQ(buffer.sputc('e'), 'e');
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(file.log->written, "abcde");
}

TEST(Client_IO_Ostreambuf, AStreamFailsWithItsWriteAndGoesOnWhenItIsCleared)
{
    const auto files = std::make_shared<Memory_File_System>();
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Fault_IO>(
        std::make_unique<Memory_IO>(files),
        [writes = 0](const Fault_Point& point) mutable -> std::optional<Fault> {
            if (point.operation == Fault_Operation::write && ++writes == 2)
                return Fault{};
            return {};
        })));
    ASSERT_TRUE(io.open("file", Client_IO::mode_write, 0, 0));
    Client_IO_ostreambuf buffer(io, 10);
    std::ostream out(&buffer);
    const std::string data = sample_bytes(27);
    out.write(data.data(), 10);
    out.flush();
    EXPECT_TRUE(out.good());
    out.write(data.data() + 10, 10);
    EXPECT_TRUE(out.good());
    Log_Capture log;
    out.flush();
    EXPECT_TRUE(out.bad());
    expect_failed_write(log, io.error());
    EXPECT_EQ(io.error().substr(0, 9), "injected ");
    out.clear();
    out.write(data.data() + 20, 7);
    EXPECT_TRUE(out.flush());
    ASSERT_TRUE(io.close());
    std::string stored;
    ASSERT_TRUE(io.get_contents("file", stored));
    EXPECT_EQ(stored, data);
    EXPECT_EQ(log.messages().size(), 1U);
}

TEST(Client_IO_Ostreambuf, AFileThatIsOpenForReadingRefuses)
{
    Recorded_File file(1);
    Client_IO_ostreambuf buffer(file.io, 4);
    std::ostream out(&buffer);
    Log_Capture log;
    out << "a" << std::flush;
    EXPECT_TRUE(out.bad());
    expect_failed_write(log, "Operation not permitted in read mode");
}

TEST(Client_IO_Ostreambuf, MoreThanTwoGibibytesAreWrittenInOneCall)
{
    Recorded_File file(2);
    file.log->failing.insert("write");            // and so does not look at the bytes
    constexpr std::uint64_t size = 0x1'0000'0003; // of which an int would hold 3
    Exposed_Ostreambuf buffer(file.io, size);
    ASSERT_EQ(buffer.epptr() - buffer.pbase(), static_cast<std::ptrdiff_t>(size));
    for (std::uint64_t left = size; left > 0;) {
        const int step = static_cast<int>(std::min<std::uint64_t>(left, INT_MAX));
        buffer.pbump(step);
        left -= static_cast<std::uint64_t>(step);
    }
    Log_Capture log;
    EXPECT_EQ(buffer.pubsync(), -1);
    EXPECT_THAT(file.write_sizes(), ElementsAre(size));
    EXPECT_EQ(buffer.pptr(), buffer.epptr());
}

TEST(Client_IO_Ostreambuf, ASizeOfZeroIsLoggedAndNothingCanBeWritten)
{
    Recorded_File file(2);
    Log_Capture log;
    Exposed_Ostreambuf buffer(file.io, 0);
    expect_broken_precondition(log, "client_io_ostreambuf.cpp", "size_=0 <= 0");
    EXPECT_EQ(buffer.sputc('a'), end_of_file);
    EXPECT_EQ(buffer.sputn("abc", 3), 0);
    EXPECT_EQ(buffer.overflow(end_of_file), end_of_file);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_TRUE(file.log->calls.empty());
    EXPECT_EQ(log.messages().size(), 1U);
}

TEST(Client_IO_Ostreambuf, MoreThanThereIsMemoryForIsLoggedAndNothingCanBeWritten)
{
    for (const std::uint64_t size : {too_large, std::numeric_limits<std::uint64_t>::max()}) {
        Recorded_File file(2);
        Log_Capture log;
        ACE_OS::last_error(0);
        Exposed_Ostreambuf buffer(file.io, size);
        EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
        expect_broken_precondition(log, "client_io_ostreambuf.cpp", "buf_ is NULL");
        EXPECT_EQ(buffer.sputc('a'), end_of_file);
        EXPECT_EQ(buffer.sputn("abc", 3), 0);
        EXPECT_EQ(buffer.pubsync(), 0);
        EXPECT_TRUE(file.log->calls.empty());
    }
}

} // namespace
