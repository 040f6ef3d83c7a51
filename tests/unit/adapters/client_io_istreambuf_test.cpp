#include "client_io/client_io_istreambuf.h"

#include "tests/support/fault_io.h"
#include "tests/support/memory_io.h"
#include "tests/unit/adapters/broken_precondition.h"
#include "tests/unit/adapters/recorded_file.h"
#include "tests/unit/adapters/stored_file.h"
#include "tests/unit/adapters/stream_case.h"

#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <gtest/gtest.h>
#include <istream>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <sstream>

namespace
{

using std::ios_base;

constexpr std::size_t sample_size = 200'003;

/// Lines of words and numbers, some of them empty.
std::string sample_text()
{
    std::ostringstream text;
    for (int line = 0; line < 5000; ++line) {
        for (int word = 0; word < line % 7; ++word)
            text << (word > 0 ? " " : "") << "word" << word << ' ' << line * word - 1000;
        text << '\n';
    }
    return text.str();
}

class Client_IO_Istreambuf_Files : public testing::TestWithParam<Stream_Case>
{
protected:
    /// A stream buffer over a stored file.
    Client_IO_istreambuf& holding(const std::string& data)
    {
        io_ = &file_.holding(data);
        buffer_ = std::make_unique<Client_IO_istreambuf>(*io_, std::get<1>(GetParam()));
        return *buffer_;
    }

    Stored_File file_{std::get<0>(GetParam())};
    Client_IO* io_ = nullptr;
    std::unique_ptr<Client_IO_istreambuf> buffer_;
};

TEST_P(Client_IO_Istreambuf_Files, IteratorsYieldEveryByte)
{
    const std::string data = sample_bytes(sample_size);
    const std::string read(std::istreambuf_iterator<char>(&holding(data)), {});
    EXPECT_TRUE(read == data);
}

TEST_P(Client_IO_Istreambuf_Files, ReadsOfAnyLengthYieldEveryByte)
{
    const std::string data = sample_bytes(sample_size);
    std::istream in(&holding(data));
    std::string read;
    std::string piece;
    for (std::size_t length = 1; in.good(); length = length * 3 % 10007) {
        piece.resize(length);
        in.read(piece.data(), static_cast<std::streamsize>(length));
        read.append(piece, 0, static_cast<std::size_t>(in.gcount()));
    }
    EXPECT_TRUE(in.eof());
    EXPECT_TRUE(read == data);
    char byte = 0;
    EXPECT_EQ(io_->read(&byte, 1), 0) << "it was the end";
}

TEST_P(Client_IO_Istreambuf_Files, AWholeBufferGoesIntoAnotherStream)
{
    const std::string data = sample_bytes(sample_size);
    std::ostringstream out;
    out << &holding(data);
    EXPECT_TRUE(out.str() == data);
}

TEST_P(Client_IO_Istreambuf_Files, LinesAreThoseOfTheFile)
{
    const std::string text = sample_text();
    std::istream in(&holding(text));
    std::istringstream expected(text);
    std::string line;
    std::string expected_line;
    while (std::getline(expected, expected_line)) {
        ASSERT_TRUE(std::getline(in, line));
        ASSERT_EQ(line, expected_line);
    }
    EXPECT_FALSE(std::getline(in, line));
    EXPECT_TRUE(in.eof());
}

TEST_P(Client_IO_Istreambuf_Files, WordsAndNumbersAreThoseOfTheFile)
{
    const std::string text = sample_text();
    std::istream in(&holding(text));
    std::istringstream expected(text);
    std::string word;
    std::string expected_word;
    int number = 0;
    int expected_number = 0;
    while (expected >> expected_word >> expected_number) {
        ASSERT_TRUE(in >> word >> number);
        ASSERT_EQ(word, expected_word);
        ASSERT_EQ(number, expected_number);
    }
    EXPECT_FALSE(in >> word);
    EXPECT_TRUE(in.eof());
}

TEST_P(Client_IO_Istreambuf_Files, ReadingAndSkippingInAnyOrderStaysAtTheRightPlace)
{
    const std::string data = sample_bytes(sample_size);
    std::istream in(&holding(data));
    std::mt19937 random(41);
    std::size_t at = 0;
    for (;;) {
        const std::size_t n = random() % 9000;
        if (at + n >= data.size())
            break;
        switch (random() % 4) {
        case 0:
            in.ignore(static_cast<std::streamsize>(n));
            break;
        case 1:
            in.seekg(static_cast<std::streamoff>(n), std::ios::cur);
            break;
        default:
            std::string piece(n, '\0');
            in.read(piece.data(), static_cast<std::streamsize>(n));
            ASSERT_TRUE(piece == data.substr(at, n)) << at;
        }
        at += n;
        ASSERT_EQ(in.tellg(), std::streampos(static_cast<std::streamoff>(at)));
        ASSERT_EQ(in.peek(), static_cast<unsigned char>(data[at]));
    }
    EXPECT_TRUE(in.good());
}

TEST_P(Client_IO_Istreambuf_Files, AForwardSeekPastTheEndYieldsMinusOne)
{
    const std::string data = sample_bytes(10'000);
    Client_IO_istreambuf& buffer = holding(data);
    EXPECT_EQ(buffer.set_cur_position(10'001), -1);
    EXPECT_EQ(buffer.sgetc(), EOF);
}

TEST_P(Client_IO_Istreambuf_Files, AForwardSeekToTheEndSucceeds)
{
    Client_IO_istreambuf& buffer = holding(sample_bytes(10'000));
    EXPECT_EQ(buffer.pubseekoff(9'999, ios_base::cur, ios_base::in), 9'999);
    EXPECT_EQ(buffer.pubseekoff(1, ios_base::cur, ios_base::in), 10'000);
    EXPECT_EQ(buffer.sgetc(), EOF);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::cur, ios_base::in), 10'000);
}

TEST_P(Client_IO_Istreambuf_Files, AnEmptyFileEndsAtOnce)
{
    std::istream in(&holding(""));
    EXPECT_EQ(in.tellg(), std::streampos(0));
    EXPECT_EQ(in.get(), EOF);
    EXPECT_TRUE(in.eof());
}

INSTANTIATE_TEST_SUITE_P(Stored, Client_IO_Istreambuf_Files, stream_cases(), stream_case_name);

TEST(Client_IO_Istreambuf, ReadsABufferAtATimeAndOnlyWhenItIsEmpty)
{
    Recorded_File file(1);
    file.log->blocks = {"abc", "defg", "h"};
    Client_IO_istreambuf buffer(file.io, 4);
    EXPECT_EQ(file.log->count("read("), 0U);
    const std::string expected = "abcdefgh";
    const std::size_t reads[] = {1, 1, 1, 2, 2, 2, 2, 3};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(buffer.sgetc(), expected[i]);
        EXPECT_EQ(buffer.sbumpc(), expected[i]);
        EXPECT_EQ(file.log->count("read("), reads[i]) << i;
    }
    for (const std::string& call : file.log->actions())
        EXPECT_TRUE(call.ends_with(", 4)")) << call;
}

TEST(Client_IO_Istreambuf, BytesOfEveryValueAreNotTakenForTheEnd)
{
    Recorded_File file(1);
    file.log->blocks = {std::string(1, '\xff') + std::string(1, '\0')};
    Client_IO_istreambuf buffer(file.io, 16);
    EXPECT_EQ(buffer.sbumpc(), 0xFF);
    EXPECT_EQ(buffer.sbumpc(), 0);
    EXPECT_EQ(buffer.sbumpc(), EOF);
}

TEST(Client_IO_Istreambuf, SeeksFromTheBeginningOrTheEndOrOnTheOutputSideAreRefused)
{
    Recorded_File file(1);
    file.log->blocks = {"abcdef"};
    Client_IO_istreambuf buffer(file.io, 16);
    EXPECT_EQ(buffer.sbumpc(), 'a');
    file.log->calls.clear();
    EXPECT_EQ(buffer.pubseekoff(2, ios_base::beg, ios_base::in), -1);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::beg, ios_base::in), -1);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::end, ios_base::in), -1);
    EXPECT_EQ(buffer.pubseekoff(-1, ios_base::end, ios_base::in), -1);
    EXPECT_EQ(buffer.pubseekoff(1, ios_base::cur, ios_base::out), -1);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::cur, ios_base::openmode()), -1);
    EXPECT_EQ(buffer.pubseekpos(3, ios_base::in), -1);
    EXPECT_TRUE(file.log->calls.empty());
    EXPECT_EQ(buffer.sgetc(), 'b');
    EXPECT_EQ(buffer.pubseekoff(1, ios_base::cur, ios_base::in | ios_base::out), 2);
    EXPECT_EQ(buffer.sgetc(), 'c');
}

TEST(Client_IO_Istreambuf, ABackwardSeekIsRefusedEvenWithinTheBuffer)
{
    Recorded_File file(1);
    file.log->blocks = {"abcdef"};
    Client_IO_istreambuf buffer(file.io, 16);
    EXPECT_EQ(buffer.set_cur_position(3), 3);
    EXPECT_EQ(buffer.set_cur_position(-1), -1);
    EXPECT_EQ(buffer.set_cur_position(std::numeric_limits<std::int64_t>::min()), -1);
    EXPECT_EQ(buffer.pubseekoff(-3, ios_base::cur, ios_base::in), -1);
    EXPECT_EQ(buffer.sgetc(), 'd');
    EXPECT_EQ(buffer.set_cur_position(0), 3);
}

TEST(Client_IO_Istreambuf, TellingThePositionReadsNothing)
{
    Recorded_File file(1);
    file.log->blocks = {"abcdef"};
    Client_IO_istreambuf buffer(file.io, 6);
    EXPECT_EQ(buffer.pubseekoff(0, ios_base::cur, ios_base::in), 0);
    EXPECT_EQ(file.log->count("read("), 0U);
    // To the end of the buffer, but not beyond.
    EXPECT_EQ(buffer.set_cur_position(6), 6);
    EXPECT_EQ(buffer.set_cur_position(0), 6);
    EXPECT_EQ(file.log->count("read("), 1U);
}

TEST(Client_IO_Istreambuf, ASeekReadsAsManyBuffersAsItCrosses)
{
    Recorded_File file(1);
    file.log->blocks = {"abc", "def", "ghi", "jkl"};
    Client_IO_istreambuf buffer(file.io, 3);
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.set_cur_position(6), 7);
    EXPECT_EQ(file.log->count("read("), 3U);
    EXPECT_EQ(buffer.sgetc(), 'h');
}

TEST(Client_IO_Istreambuf, ASeekOfTheLargestDistanceComesToTheEnd)
{
    Recorded_File file(1);
    file.log->blocks = {"abc", "def"};
    Client_IO_istreambuf buffer(file.io, 3);
    EXPECT_EQ(buffer.set_cur_position(std::numeric_limits<std::int64_t>::max()), -1);
    EXPECT_EQ(buffer.in_avail(), 0);
    EXPECT_EQ(buffer.sgetc(), EOF);
    EXPECT_EQ(buffer.set_cur_position(0), 6);
}

TEST(Client_IO_Istreambuf, AFailedReadIsSeenAsTheEndAndTheClientIOTellsIt)
{
    const auto files = std::make_shared<Memory_File_System>();
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Fault_IO>(
        std::make_unique<Memory_IO>(files),
        [reads = 0](const Fault_Point& point) mutable -> std::optional<Fault> {
            if (point.operation == Fault_Operation::read && ++reads == 2)
                return Fault{};
            return {};
        })));
    const std::string data = sample_bytes(100);
    ASSERT_TRUE(io.put_contents("file", data, true)) << io.error();
    ASSERT_TRUE(io.open("file", Client_IO::mode_read, 0, 0));
    Client_IO_istreambuf buffer(io, 40);
    std::istream in(&buffer);
    std::string read(100, '\0');
    in.read(read.data(), 100);
    EXPECT_EQ(in.gcount(), 40);
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(io.error().substr(0, 9), "injected ");
    // The failed read has not been counted, and a later one goes on where it stopped.
    in.clear();
    EXPECT_EQ(in.tellg(), std::streampos(40));
    in.read(read.data() + 40, 60);
    EXPECT_EQ(in.gcount(), 60);
    EXPECT_EQ(read, data);
}

TEST(Client_IO_Istreambuf, AFileThatNeverCanBeReadHasNoByte)
{
    Recorded_File file(1);
    file.log->failing.insert("read");
    Client_IO_istreambuf buffer(file.io, 8);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(buffer.sgetc(), EOF);
        EXPECT_EQ(buffer.sbumpc(), EOF);
        EXPECT_EQ(buffer.in_avail(), 0);
        EXPECT_EQ(buffer.set_cur_position(1), -1);
        EXPECT_EQ(buffer.set_cur_position(0), 0);
    }
    char byte = 0;
    EXPECT_EQ(file.io.read(&byte, 1), -1) << "it is not the end";
}

TEST(Client_IO_Istreambuf, ASizeOfZeroIsLoggedAndNothingCanBeRead)
{
    Recorded_File file(1);
    file.log->blocks = {"abc"};
    Log_Capture log;
    Client_IO_istreambuf buffer(file.io, 0);
    expect_broken_precondition(log, "client_io_istreambuf.cpp", "size_=0 <= 0");
    EXPECT_EQ(buffer.sgetc(), EOF);
    EXPECT_EQ(buffer.set_cur_position(1), -1);
    EXPECT_EQ(buffer.set_cur_position(0), 0);
    EXPECT_TRUE(file.log->calls.empty());
    EXPECT_EQ(log.messages().size(), 1U);
}

TEST(Client_IO_Istreambuf, MoreThanThereIsMemoryForIsLoggedAndNothingCanBeRead)
{
    for (const std::uint64_t size : {too_large, std::numeric_limits<std::uint64_t>::max()}) {
        Recorded_File file(1);
        file.log->blocks = {"abc"};
        Log_Capture log;
        ACE_OS::last_error(0);
        Client_IO_istreambuf buffer(file.io, size);
        EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
        expect_broken_precondition(log, "client_io_istreambuf.cpp", "buf_ is NULL");
        EXPECT_EQ(buffer.sgetc(), EOF);
        EXPECT_EQ(buffer.set_cur_position(1), -1);
        EXPECT_EQ(buffer.set_cur_position(0), 0);
        EXPECT_TRUE(file.log->calls.empty());
    }
}

TEST(Client_IO_Istreambuf, LeavesTheFileOpen)
{
    Recorded_File file(1);
    {
        Client_IO_istreambuf buffer(file.io, 8);
        EXPECT_EQ(buffer.sgetc(), EOF);
    }
    EXPECT_TRUE(file.io.is_open());
    EXPECT_EQ(file.log->count("close("), 0U);
}

} // namespace
