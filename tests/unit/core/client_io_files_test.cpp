#include "platform/runtime/os_error.h"
#include "platform/runtime/posix_error.h"
#include "tests/support/log_capture.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"
#include "tests/support/this_system.h"

#include <ace/OS_NS_errno.h>
#include <ace/os_include/os_fcntl.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

namespace
{

/// A facade over a directory of the local file system.
class File_Level : public testing::Test
{
protected:
    void SetUp() override
    {
        URI uri;
        uri.scheme("file");
        uri.path(remote_.str(), false);
        ASSERT_TRUE(io_.connect(uri, Client_IO::Options{})) << io_.error();
    }

    Client_IO::Progress count()
    {
        return [this](std::uint64_t bytes) { steps_.push_back(bytes); };
    }

    std::uint64_t counted() const
    {
        std::uint64_t total = 0;
        for (const std::uint64_t step : steps_)
            total += step;
        return total;
    }

    Temp_Directory remote_;
    Temp_Directory local_;
    Client_IO io_;
    std::vector<std::uint64_t> steps_;
};

constexpr int create = O_CREAT | O_TRUNC;

TEST_F(File_Level, GetFileBringsAWholeFileAndReportsIncrements)
{
    const std::string data = sample_bytes(300000);
    write_local(remote_ / "a", data);
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), create, 0, count())) << io_.error();
    EXPECT_TRUE(read_local(local_ / "b") == data);
    EXPECT_EQ(counted(), data.size());
    EXPECT_GT(steps_.size(), 1U);
    EXPECT_FALSE(io_.is_open());
    EXPECT_TRUE(io_.get_file("a", (local_ / "c").c_str(), create, 1 << 20, {})) << io_.error();
    EXPECT_TRUE(read_local(local_ / "c") == data);
}

TEST_F(File_Level, GetFileReplacesALongerLocalFile)
{
    write_local(remote_ / "a", "new");
    write_local(local_ / "b", "the old contents");
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), create, 0, {})) << io_.error();
    EXPECT_EQ(read_local(local_ / "b"), "new");
}

TEST_F(File_Level, GetFileOfAnEmptyFileMakesAnEmptyFile)
{
    write_local(remote_ / "a", "");
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), create, 0, count())) << io_.error();
    EXPECT_EQ(read_local(local_ / "b"), "");
    EXPECT_TRUE(steps_.empty());
}

TEST_F(File_Level, GetFileWithAppendGoesOnWhereTheLocalFileEnds)
{
    const std::string data = sample_bytes(150000);
    write_local(remote_ / "a", data);
    write_local(local_ / "b", data.substr(0, 1000));
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), O_APPEND, 0, count())) << io_.error();
    EXPECT_TRUE(read_local(local_ / "b") == data);
    EXPECT_EQ(counted(), data.size() - 1000);
}

TEST(File_Level_Calls, GetFileWithAppendOpensTheRemoteFileAtTheLocalFilesSize)
{
    const Temp_Directory local;
    write_local(local / "b", std::string(1000, 'x'));
    Recorded_Facade facade;
    facade.log->stream_size = 1004;
    facade.log->blocks = {"tail"};
    EXPECT_TRUE(facade.io.get_file("a", (local / "b").c_str(), O_APPEND, 0, {}));
    EXPECT_EQ(facade.log->count("open(a, 1, 1000, 0)"), 1U);
    EXPECT_EQ(read_local(local / "b"), std::string(1000, 'x') + "tail");
}

TEST_F(File_Level, GetFileWithAppendOfACompleteLocalFileChangesNothing)
{
    write_local(remote_ / "a", "contents");
    write_local(local_ / "b", "contents");
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), O_APPEND, 0, count())) << io_.error();
    EXPECT_EQ(read_local(local_ / "b"), "contents");
    EXPECT_TRUE(steps_.empty());
}

TEST_F(File_Level, GetFileWithAppendOfALocalFileLongerThanTheRemoteOneFailsAndKeepsIt)
{
    write_local(remote_ / "a", "short");
    write_local(local_ / "b", "not its beginning");
    EXPECT_FALSE(io_.get_file("a", (local_ / "b").c_str(), O_APPEND, 0, count()));
    EXPECT_EQ(io_.error(), "Invalid offset");
    EXPECT_FALSE(io_.is_open());
    EXPECT_EQ(read_local(local_ / "b"), "not its beginning");
}

TEST(File_Level_Calls, GetFileWithAppendOfAMissingLocalFileStartsFromZero)
{
    const Temp_Directory local;
    Recorded_Facade facade;
    facade.log->blocks = {"all of it"};
    EXPECT_TRUE(facade.io.get_file("a", (local / "b").c_str(), O_CREAT | O_APPEND, 0, {}))
        << facade.io.error();
    EXPECT_EQ(facade.log->count("open(a, 1, 0, 0)"), 1U);
    EXPECT_EQ(read_local(local / "b"), "all of it");
}

TEST_F(File_Level, GetFileOfAMissingRemoteFileCreatesNothingLocally)
{
    EXPECT_FALSE(io_.get_file("a", (local_ / "b").c_str(), create, 0, count()));
    EXPECT_TRUE(io_.error().starts_with("Fail to open file ")) << io_.error();
    EXPECT_FALSE(std::filesystem::exists(local_ / "b"));
    EXPECT_TRUE(steps_.empty());
}

TEST_F(File_Level, GetFileKeepsTheTextOfALocalFileThatCannotBeOpened)
{
    write_local(remote_ / "a", "contents");
    const std::string local = local_ / "missing/b";
    EXPECT_FALSE(io_.get_file("a", local.c_str(), create, 0, count()));
    EXPECT_EQ(io_.error(), "Failed to open local file " + local + ": " +
                               POSIX_Error(os_error::no_such_directory, 1).str());
    EXPECT_FALSE(io_.is_open());
    EXPECT_TRUE(steps_.empty());
}

TEST(File_Level_Calls, GetFileClosesTheRemoteFileAfterALocalFailure)
{
    const Temp_Directory local;
    Recorded_Facade facade;
    facade.log->blocks = {"data"};
    EXPECT_FALSE(facade.io.get_file("a", local.str().c_str(), O_CREAT, 0, {}));
    EXPECT_TRUE(facade.io.error().starts_with("Failed to open local file ")) << facade.io.error();
    EXPECT_EQ(facade.log->count("close()"), 1U);
}

TEST(File_Level_Calls, GetFileFailsWithTheTextOfAFailedRemoteRead)
{
    const Temp_Directory local;
    Recorded_Facade facade;
    facade.log->failing = {"read_block"};
    facade.log->error = "the line is cut";
    EXPECT_FALSE(facade.io.get_file("a", (local / "b").c_str(), create, 0, {}));
    EXPECT_EQ(facade.io.error(), "the line is cut");
    EXPECT_EQ(facade.log->count("close()"), 1U);
}

TEST(File_Level_Calls, GetFileDoesNotReportTheResultOfTheRemoteClose)
{
    const Temp_Directory local;
    Recorded_Facade facade;
    facade.log->blocks = {"data"};
    facade.log->stream_size = 4;
    facade.log->failing = {"close"};
    EXPECT_TRUE(facade.io.get_file("a", (local / "b").c_str(), create, 0, {}));
    EXPECT_EQ(read_local(local / "b"), "data");
}

TEST_F(File_Level, GetFileAndPutFileWhileAFileIsOpenFailAndLeaveItOpen)
{
    write_local(remote_ / "a", "contents");
    write_local(local_ / "l", "local");
    ASSERT_TRUE(io_.open("a", 1, 3, 0));
    EXPECT_FALSE(io_.get_file("a", (local_ / "b").c_str(), create, 0, {}));
    EXPECT_EQ(io_.error(), "A file is already open");
    EXPECT_FALSE(io_.put_file("b", (local_ / "l").c_str(), true, 0, 0, {}));
    EXPECT_EQ(io_.error(), "A file is already open");
    std::istringstream stream("data");
    EXPECT_FALSE(io_.put_stream(stream, "b", true));
    EXPECT_EQ(io_.error(), "A file is already open");
    char rest[5];
    EXPECT_EQ(io_.read(rest, 5), 5);
    EXPECT_EQ(std::string(rest, 5), "tents");
    EXPECT_FALSE(std::filesystem::exists(local_ / "b"));
    EXPECT_FALSE(std::filesystem::exists(remote_ / "b"));
}

TEST_F(File_Level, PutFileSendsAWholeFileAndReportsIncrements)
{
    const std::string data = sample_bytes(300000);
    write_local(local_ / "a", data);
    EXPECT_TRUE(io_.put_file("b", (local_ / "a").c_str(), false, 0, 0, count())) << io_.error();
    EXPECT_TRUE(read_local(remote_ / "b") == data);
    EXPECT_EQ(counted(), data.size());
    EXPECT_GT(steps_.size(), 1U);
    EXPECT_FALSE(io_.is_open());
}

TEST_F(File_Level, PutFileOfAnEmptyFileMakesAnEmptyFile)
{
    write_local(local_ / "a", "");
    EXPECT_TRUE(io_.put_file("b", (local_ / "a").c_str(), false, 0, 0, count())) << io_.error();
    EXPECT_EQ(read_local(remote_ / "b"), "");
    EXPECT_TRUE(steps_.empty());
}

TEST_F(File_Level, PutFileOntoAnExistingFileNeedsOverwrite)
{
    write_local(local_ / "a", "new");
    write_local(remote_ / "b", "old");
    EXPECT_FALSE(io_.put_file("b", (local_ / "a").c_str(), false, 0, 0, {}));
    EXPECT_TRUE(io_.error().starts_with("Failed to open remote file b: ")) << io_.error();
    EXPECT_EQ(read_local(remote_ / "b"), "old");
    EXPECT_TRUE(io_.put_file("b", (local_ / "a").c_str(), true, 0, 0, {})) << io_.error();
    EXPECT_EQ(read_local(remote_ / "b"), "new");
}

TEST(File_Level_Calls, PutFileOpensWith2OrWith102)
{
    const Temp_Directory local;
    write_local(local / "a", "data");
    Recorded_Facade facade;
    EXPECT_TRUE(facade.io.put_file("b", (local / "a").c_str(), false, 0, 0, {}));
    EXPECT_EQ(facade.log->count("open(b, 2, 0, "), 1U);
    EXPECT_TRUE(facade.io.put_file("b", (local / "a").c_str(), true, 0, 0, {}));
    EXPECT_EQ(facade.log->count("open(b, 258, 0, "), 1U);
}

TEST_F(File_Level, PutFileOfAMissingLocalFileSendsNothing)
{
    const std::string local = local_ / "missing";
    EXPECT_FALSE(io_.put_file("b", local.c_str(), true, 0, 0, count()));
    EXPECT_EQ(io_.error(), "Failed to open local file " + local + ": " +
                               POSIX_Error(os_error::no_such_file, 1).str());
    EXPECT_FALSE(std::filesystem::exists(remote_ / "b"));
}

TEST_F(File_Level, PutFileOfADirectoryFailsWithItsReason)
{
    EXPECT_FALSE(io_.put_file("b", local_.str().c_str(), true, 0, 0, count()));
    EXPECT_TRUE(io_.error().starts_with("Failed to ")) << io_.error();
    EXPECT_TRUE(io_.error().ends_with("local file " + local_.str() + ": " +
                                      POSIX_Error(this_system::errors.open_directory, 1).str()))
        << io_.error();
    EXPECT_FALSE(io_.is_open());
    EXPECT_TRUE(steps_.empty());
}

TEST(File_Level_Calls, PutFileFailsWithTheTextOfAFailedWriteAndCloses)
{
    const Temp_Directory local;
    write_local(local / "a", "data");
    Recorded_Facade facade;
    facade.log->failing = {"write"};
    facade.log->error = "quota exceeded";
    EXPECT_FALSE(facade.io.put_file("b", (local / "a").c_str(), false, 0, 0, {}));
    EXPECT_EQ(facade.io.error(), "quota exceeded");
    EXPECT_EQ(facade.log->count("close()"), 1U);
}

TEST(File_Level_Calls, PutFilePutStreamAndPutContentsFailWhenTheCloseFails)
{
    const Temp_Directory local;
    write_local(local / "a", "data");
    Recorded_Facade facade;
    facade.log->failing = {"close"};
    facade.log->error = "not stored";
    EXPECT_FALSE(facade.io.put_file("b", (local / "a").c_str(), false, 0, 0, {}));
    EXPECT_EQ(facade.io.error(), "not stored");
    std::istringstream stream("data");
    EXPECT_FALSE(facade.io.put_stream(stream, "b", false));
    EXPECT_EQ(facade.io.error(), "not stored");
    EXPECT_FALSE(facade.io.put_contents("b", "data", false));
    EXPECT_EQ(facade.io.error(), "not stored");
}

TEST_F(File_Level, PutStreamSendsWhatTheStreamHoldsFromItsPosition)
{
    const std::string data = sample_bytes(200001);
    for (const std::size_t size : {0U, 1U, 65535U, 65536U, 65537U, 131072U, 200001U}) {
        std::istringstream stream("head" + data.substr(0, size));
        stream.seekg(4);
        EXPECT_TRUE(io_.put_stream(stream, "b", true)) << size << io_.error();
        EXPECT_TRUE(read_local(remote_ / "b") == data.substr(0, size)) << size;
        EXPECT_FALSE(io_.is_open());
    }
}

TEST(File_Level_Calls, PutStreamWritesPiecesOf65536Bytes)
{
    Recorded_Facade facade;
    std::istringstream stream(std::string(65536 + 10, 'x'));
    EXPECT_TRUE(facade.io.put_stream(stream, "b", true));
    EXPECT_EQ(facade.log->count("open(b, 258, 0, 0)"), 1U);
    EXPECT_EQ(facade.log->count("write("), 2U);
    EXPECT_EQ(facade.log->written.size(), 65546U);
}

/// A stream whose source breaks after some bytes.
class Breaking_Buffer : public std::streambuf
{
public:
    explicit Breaking_Buffer(std::string data) : data_(std::move(data))
    {
        setg(data_.data(), data_.data(), data_.data() + data_.size());
    }

protected:
    int_type underflow() override { throw std::runtime_error("the source is gone"); }

private:
    std::string data_;
};

TEST(File_Level_Calls, PutStreamOfAStreamThatFailsKeepsItsTextAndCloses)
{
    for (const std::ios_base::iostate exceptions : {std::ios_base::goodbit, std::ios_base::badbit})
    {
        Recorded_Facade facade;
        facade.log->error = "the backend's text";
        Breaking_Buffer buffer("some data");
        std::istream stream(&buffer);
        stream.exceptions(exceptions);
        EXPECT_FALSE(facade.io.put_stream(stream, "b", false));
        EXPECT_TRUE(facade.io.error().starts_with("Failed to read local file: "))
            << facade.io.error();
        EXPECT_EQ(facade.log->count("close()"), 1U);
    }
}

TEST(File_Level_Calls, PutStreamOfAStreamThatHasFailedAlreadySendsNothing)
{
    Recorded_Facade facade;
    std::istringstream stream("data");
    stream.setstate(std::ios_base::failbit);
    EXPECT_FALSE(facade.io.put_stream(stream, "b", false));
    EXPECT_TRUE(facade.io.error().starts_with("Failed to read local file: ")) << facade.io.error();
    EXPECT_EQ(facade.log->written, "");
}

TEST_F(File_Level, GetContentsReadsAWholeFileInPlaceOfWhatTheStringHeld)
{
    const std::string data = sample_bytes(200000);
    write_local(remote_ / "a", data);
    std::string out = "what was there";
    EXPECT_TRUE(io_.get_contents("a", out)) << io_.error();
    EXPECT_TRUE(out == data);
    EXPECT_FALSE(io_.is_open());
}

TEST_F(File_Level, GetContentsOfAnEmptyFileSucceedsWithAnEmptyString)
{
    write_local(remote_ / "a", "");
    std::string out = "what was there";
    EXPECT_TRUE(io_.get_contents("a", out)) << io_.error();
    EXPECT_EQ(out, "");
}

TEST_F(File_Level, GetContentsOfAMissingFileFailsAndLeavesTheString)
{
    std::string out = "kept";
    EXPECT_FALSE(io_.get_contents("missing", out));
    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(io_.error().starts_with("Fail to open file ")) << io_.error();
}

/// Fails from the second zero-copy read on.
class Failing_Late : public Recording_IO
{
public:
    explicit Failing_Late(std::shared_ptr<Recording> log) : Recording_IO(log), log_(std::move(log))
    {}
    using Recording_IO::read;
    bool read(const void*& data, std::uint64_t& size) override
    {
        if (log_->blocks.empty())
            log_->failing.insert("read_block");
        return Recording_IO::read(data, size);
    }

private:
    std::shared_ptr<Recording> log_;
};

TEST(File_Level_Calls, GetContentsHandsBackWhatWasReadBeforeAFailure)
{
    const auto log = std::make_shared<Recording>();
    log->blocks = {"first ", "second"};
    log->error = "the line is cut";
    Open_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Failing_Late>(log)));
    std::string out;
    EXPECT_FALSE(io.get_contents("a", out));
    EXPECT_EQ(out, "first second");
    EXPECT_EQ(io.error(), "the line is cut");
    EXPECT_EQ(log->count("close()"), 1U);
}

TEST(File_Level_Calls, GetContentsFailsWhenTheCloseFails)
{
    Recorded_Facade facade;
    facade.log->blocks = {"data"};
    facade.log->failing = {"close"};
    std::string out;
    EXPECT_FALSE(facade.io.get_contents("a", out));
    EXPECT_EQ(out, "data");
}

TEST(File_Level_Calls, PutContentsOpensWith102WhenOverwritingElseWith2)
{
    Recorded_Facade facade;
    EXPECT_TRUE(facade.io.put_contents("a", std::string("data"), true));
    EXPECT_TRUE(facade.io.put_contents("a", std::string("data"), false));
    EXPECT_TRUE(facade.io.put_contents("a", "databytes", 4, true));
    EXPECT_TRUE(facade.io.put_contents("a", "databytes", 4, false));
    EXPECT_EQ(facade.log->count("open(a, 258, 0, 0)"), 2U);
    EXPECT_EQ(facade.log->count("open(a, 2, 0, 0)"), 2U);
    EXPECT_EQ(facade.log->count("write("), 4U);
    EXPECT_EQ(facade.log->written, "datadatadatadata");
}

TEST(File_Level_Calls, PutContentsClosesAlsoAfterAFailedWrite)
{
    Recorded_Facade facade;
    facade.log->failing = {"write"};
    facade.log->error = "quota exceeded";
    EXPECT_FALSE(facade.io.put_contents("a", std::string("data"), true));
    EXPECT_EQ(facade.log->count("close()"), 1U);
    EXPECT_EQ(facade.io.error(), "quota exceeded");
}

TEST_F(File_Level, PutContentsOfNoBytesMakesAnEmptyFile)
{
    EXPECT_TRUE(io_.put_contents("a", std::string(), false)) << io_.error();
    EXPECT_EQ(read_local(remote_ / "a"), "");
}

TEST(File_Level_Calls, AnEmptyPathIsForwardedByGetDirOnly)
{
    Recorded_Facade facade;
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(facade.io.get_dir("", entries));
    EXPECT_EQ(facade.log->count("get_dir(, "), 1U);
    const Log_Capture capture;
    EXPECT_FALSE(facade.io.remove(""));
    EXPECT_EQ(facade.log->count("remove("), 0U);
    EXPECT_EQ(capture.messages().size(), 1U);
}

TEST(File_Level_Calls, PathOperationsHandTheirArgumentsDownAndTheResultBack)
{
    Recorded_Facade facade;
    facade.log->path_size = 99;
    for (const bool result : {true, false}) {
        if (!result)
            facade.log->failing = {"make_dir", "truncate", "remove", "copy", "rename", "get_dir"};
        facade.log->error = "the backend's text";
        facade.io.error_ = "an old text";
        std::vector<Client_IO_Base::Directory_Entry> entries;
        EXPECT_EQ(facade.io.size("p"), 99U);
        EXPECT_EQ(facade.io.get_dir("p", entries), result);
        EXPECT_EQ(facade.io.make_dir("p", 0755), result);
        EXPECT_EQ(facade.io.truncate("p", 123), result);
        EXPECT_EQ(facade.io.remove("p"), result);
        EXPECT_EQ(facade.io.copy("p", "q", true), result);
        EXPECT_EQ(facade.io.rename("p", "q", false), result);
        EXPECT_EQ(facade.log->actions(),
                  (std::vector<std::string>{"path_size(p)", call_text("get_dir", "p", &entries),
                                            "make_dir(p, 493)", "truncate(p, 123)", "remove(p)",
                                            "copy(p, q, true)", "rename(p, q, false)"}));
        EXPECT_EQ(facade.io.error(), "the backend's text");
        facade.log->calls.clear();
    }
}

TEST(File_Level_Calls, SizeOfAPathIsAnsweredWhileAFileIsOpen)
{
    Recorded_Facade facade;
    facade.log->path_size = 99;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    EXPECT_EQ(facade.io.size("b"), 99U);
    EXPECT_TRUE(facade.io.is_open());
}

TEST_F(File_Level, SizeOfNoPathOrAnEmptyOneDoesNotCrash)
{
    EXPECT_EQ(io_.size(static_cast<const char*>(nullptr)), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_.size(""), Client_IO_Base::size_of_directory);
}

TEST(File_Level_Calls, OperationsGoThroughTheVirtualSlotsOfASubclass)
{
    class Refusing_Facade : public Open_Facade
    {
    public:
        using Client_IO::open;
        using Client_IO::read;
        using Client_IO::write;
        bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override
        {
            ++opens;
            return false;
        }
        int opens = 0;
    };
    const Temp_Directory local;
    write_local(local / "a", "data");
    const auto log = std::make_shared<Recording>();
    Refusing_Facade io;
    ASSERT_TRUE(io.connect_plain(std::make_unique<Recording_IO>(log)));
    std::string out;
    std::istringstream stream("data");
    EXPECT_FALSE(io.get_contents("a", out));
    EXPECT_FALSE(io.put_contents("a", "data", true));
    EXPECT_FALSE(io.get_file("a", (local / "b").c_str(), create, 0, {}));
    EXPECT_FALSE(io.put_file("a", (local / "a").c_str(), true, 0, 0, {}));
    EXPECT_FALSE(io.put_stream(stream, "a", true));
    EXPECT_EQ(io.opens, 5);
    EXPECT_EQ(log->count("open("), 0U);
}

TEST_F(File_Level, SetErrorWordsTheLastFailureOfTheSystem)
{
    Open_Facade io;
    ACE_OS::last_error(os_error::no_such_file);
    io.set_error("Failed to do", "this");
    EXPECT_EQ(io.error(), "Failed to do this: " + POSIX_Error(os_error::no_such_file, 1).str());
}

TEST_F(File_Level, TheTargetsOwnFileIsNeitherUploadedNorDownloadedOntoItself)
{
    write_local(remote_ / "a", "precious");
    std::filesystem::create_hard_link(remote_ / "a", local_ / "link");
    for (const std::string& local : {remote_ / "a", local_ / "link"}) {
        EXPECT_FALSE(io_.put_file("a", local.c_str(), true, O_RDONLY, 0, {}));
        EXPECT_EQ(io_.error(), "a and " + local + " are the same file");
        EXPECT_FALSE(io_.get_file("a", local.c_str(), create, 0, {}));
        EXPECT_EQ(io_.error(), "a and " + local + " are the same file");
    }
    EXPECT_EQ(read_local(remote_ / "a"), "precious");
}

TEST_F(File_Level, GetFileWithAppendKeepsTheBeginningEvenWithATruncateFlag)
{
    write_local(remote_ / "a", "0123456789ABCDEF");
    write_local(local_ / "b", "0123456789");
    EXPECT_TRUE(io_.get_file("a", (local_ / "b").c_str(), O_APPEND | O_TRUNC, 0, {}));
    EXPECT_EQ(read_local(local_ / "b"), "0123456789ABCDEF");
}

TEST_F(File_Level, PutFileNeverMakesOrChangesItsSource)
{
    write_local(local_ / "a", "source");
    EXPECT_TRUE(io_.put_file("a", (local_ / "a").c_str(), false, O_TRUNC | O_CREAT, 0, {}));
    EXPECT_EQ(read_local(local_ / "a"), "source");
    EXPECT_EQ(read_local(remote_ / "a"), "source");
    EXPECT_FALSE(io_.put_file("b", (local_ / "b").c_str(), false, O_CREAT, 0, {}));
    EXPECT_FALSE(std::filesystem::exists(local_ / "b"));
    EXPECT_FALSE(std::filesystem::exists(remote_ / "b"));
}

TEST_F(File_Level, PutStreamOfAStreamThatFailedBeforeKeepsTheFileThatIsThere)
{
    write_local(remote_ / "a", "precious");
    std::ifstream missing(local_ / "missing");
    EXPECT_FALSE(io_.put_stream(missing, "a", true));
    EXPECT_EQ(io_.error().rfind("Failed to read local file: ", 0), 0U) << io_.error();
    EXPECT_EQ(read_local(remote_ / "a"), "precious");
}

TEST_F(File_Level, AProgressCallbackThatThrowsEndsTheTransferAndTheFile)
{
    write_local(remote_ / "a", "remote");
    write_local(local_ / "b", "local");
    const Client_IO::Progress throwing = [](std::uint64_t) { throw std::runtime_error("no"); };
    EXPECT_FALSE(io_.get_file("a", (local_ / "got").c_str(), create, 0, throwing));
    EXPECT_EQ(io_.error(), "The progress callback failed");
    EXPECT_FALSE(io_.is_open());
    EXPECT_FALSE(io_.put_file("b", (local_ / "b").c_str(), false, O_RDONLY, 0, throwing));
    EXPECT_EQ(io_.error(), "The progress callback failed");
    EXPECT_FALSE(io_.is_open());
}

TEST_F(File_Level, AWalkCallbackThatThrowsStopsLikeOneThatReturnsFalse)
{
    write_local(remote_ / "a", "");
    EXPECT_FALSE(io_.walk_directory("", [](const char*, const Client_IO::Directory_Entry&) -> bool {
        throw std::runtime_error("no");
    }));
}

} // namespace
