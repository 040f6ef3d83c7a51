#include "tests/faults/promises.h"

/// What is read and listed after a failure is what would have come without it.

namespace
{

using testing::ElementsAre;

class Seeks : public Promises
{
protected:
    Seeks() { target_.store("ABCDEFGHIJKLMNOPQRSTUVWXYZ"); }
};

TEST_F(Seeks, AReadIsResumedBehindTheLastSeek)
{
    start({{4, {Fault_Kind::connection_lost}}, {9, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 0, 0));
    EXPECT_EQ(read(3), "ABC");
    ASSERT_TRUE(io_->seek(20, 0));
    EXPECT_EQ(read(3), "UVW"); // operations 4 to 7
    ASSERT_TRUE(io_->seek(5, 0));
    EXPECT_EQ(read(3), "FGH"); // 9 to 12
    EXPECT_EQ(read(3), "IJK");
    EXPECT_EQ(stack_->faults->failures(), 2U);
}

TEST_F(Seeks, AFailedSeekLeavesThePlaceOfTheNextResumption)
{
    start({{3, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 0, 0));
    EXPECT_EQ(read(3), "ABC");
    EXPECT_FALSE(io_->seek(20, 0));
    EXPECT_EQ(io_->error(), "injected lost at seek 3");
    EXPECT_EQ(stack_->faults->operations(), 4U); // not retried
}

TEST_F(Seeks, InAWriteModeWhatWasWrittenSinceIsSentAgainAtItsOffset)
{
    start({{6, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, random_writing, 0, 0));
    EXPECT_TRUE(write("0123"));
    ASSERT_TRUE(io_->seek(10, 0));
    EXPECT_TRUE(write("456"));
    EXPECT_TRUE(io_->flush());
    EXPECT_TRUE(write("78"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "0123EFGHIJ45678PQRSTUVWXYZ");
}

class Limits : public Promises
{
protected:
    Limits() { target_.store("ABCDEFGHIJKLMNOPQRSTUVWXYZ"); }
};

TEST_F(Limits, OfAnOpenHoldAfterAResumption)
{
    start({{3, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 5, 8));
    EXPECT_EQ(read(3), "FGH");
    EXPECT_EQ(read(100), "IJKLM");
    EXPECT_EQ(read(100), "");
    EXPECT_EQ(stack_->faults->failures(), 1U);
}

TEST_F(Limits, HoldWithoutCopying)
{
    start({{2, {Fault_Kind::short_read, 3}}, {3, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 5, 8));
    std::string bytes;
    const void* data = nullptr;
    std::uint64_t size = 1;
    while (size != 0) {
        ASSERT_TRUE(io_->read(data, size)) << io_->error();
        bytes.append(static_cast<const char*>(data), size);
    }
    EXPECT_EQ(bytes, "FGHIJKLM");
    EXPECT_EQ(stack_->faults->failures(), 1U);
}

TEST_F(Limits, OfASeekHoldAfterAResumption)
{
    start({{4, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 0, 4));
    ASSERT_TRUE(io_->seek(10, 6));
    EXPECT_EQ(read(2), "KL");
    EXPECT_EQ(read(100), "MNOP");
    EXPECT_EQ(read(100), "");
}

TEST_F(Limits, OfAFileThatIsClosedDoNotLookLikeItsEnd)
{
    start({});
    ASSERT_TRUE(io_->open(file, reading, 0, 4));
    EXPECT_EQ(read(4), "ABCD");
    ASSERT_TRUE(io_->close());
    EXPECT_EQ(read(4), "(failed)");
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_FALSE(io_->read(data, size));
}

class Listings : public Promises
{
protected:
    Listings()
    {
        for (const char* name : {"d/a", "d/b", "d/c"}) {
            Memory_File_System::Node* node = nullptr;
            EXPECT_EQ(target_.files->create_file(name, node), 0);
        }
        entries_.push_back({"the caller's", false, 0, 0});
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const auto& entry : entries_)
            result.push_back(entry.name);
        return result;
    }

    std::vector<Client_IO_Base::Directory_Entry> entries_;
};

TEST_F(Listings, ThatFailHalfWayNameNothingTwice)
{
    start({{1, {Fault_Kind::part_done, 2}}, {3, {Fault_Kind::done}}});
    EXPECT_TRUE(io_->get_dir("d", entries_));
    EXPECT_THAT(names(), ElementsAre("the caller's", "a", "b", "c"));
    EXPECT_EQ(stack_->faults->failures(), 2U);
}

TEST_F(Listings, ThatFailForGoodLeaveTheCallersEntriesAlone)
{
    start({{1, {Fault_Kind::part_done, 2}}, {3, {Fault_Kind::part_done, 1, false}}});
    EXPECT_FALSE(io_->get_dir("d", entries_));
    EXPECT_THAT(names(), ElementsAre("the caller's"));
}

TEST_F(Listings, AndSizesThatComeLateAreTheSame)
{
    target_.store("12345");
    start({{1, {Fault_Kind::connection_lost}}, {4, {Fault_Kind::done}}});
    EXPECT_EQ(io_->size(file), 5U);
    EXPECT_EQ(io_->size(file), 5U);
    EXPECT_EQ(stack_->faults->failures(), 2U);
}

/// Answers for the version of the open file instead of the layer below.
class Version_IO : public Pipe_IO
{
public:
    Version_IO(std::unique_ptr<Client_IO_Base> io, const std::string& version)
        : Pipe_IO(std::move(io)), version_(version)
    {}

    std::string get_config(const char* key) const override
    {
        return std::string(key) == "file_version" ? version_ : std::string();
    }

private:
    const std::string& version_;
};

class Replaced_File : public Promises
{
protected:
    /// Reads three bytes; the next operation of the layer below fails.
    void read_first_bytes(std::map<std::uint64_t, Fault> faults = {
                              {3, {Fault_Kind::connection_lost}}})
    {
        target_.store("ABCDEFGH");
        start(std::move(faults));
        ASSERT_TRUE(io_->open(file, reading, 0, 0));
        ASSERT_EQ(read(3), "ABC");
    }

    void replace_in_the_pause(const std::string& contents)
    {
        clock_.on_sleep = [this, contents](auto) { target_.store(contents); };
    }

    /// The same with versions as told instead of the target's own.
    void read_with_version()
    {
        target_.store("ABCDEFGH");
        auto faults = std::make_unique<Fault_IO>(std::make_unique<Memory_IO>(target_.files),
                                                 faults_at({{3, {Fault_Kind::connection_lost}}}),
                                                 target_.files);
        versioned_ = std::make_unique<Resumption_IO>(
            std::make_unique<Version_IO>(std::move(faults), version_), 0);
        io_ = versioned_.get();
        Client_IO_Base::Options options;
        ASSERT_TRUE(io_->connect(URI(), options));
        ASSERT_TRUE(io_->open(file, reading, 0, 0));
        ASSERT_EQ(read(3), "ABC");
    }

    std::string version_;
    std::unique_ptr<Resumption_IO> versioned_;
};

TEST_F(Replaced_File, OfAnotherSizeIsNotJoinedToTheFirst)
{
    read_first_bytes();
    replace_in_the_pause("another one");
    EXPECT_EQ(read(3), "(failed)");
    const std::string text = "Failed to resume read, the file was replaced, size 8, now 11";
    EXPECT_EQ(io_->error(), text);
    EXPECT_THAT(logged(), ElementsAre("The retry of reading file failed since the error is not "
                                      "retriable: " +
                                      text + "\n"));
    EXPECT_EQ(clock_.time, std::chrono::seconds(10)); // repeating it would not help
    EXPECT_FALSE(io_->is_open());
}

TEST_F(Replaced_File, OfTheSameSizeIsKnownByItsVersion)
{
    read_first_bytes();
    replace_in_the_pause("abcdefgh");
    EXPECT_EQ(read(3), "(failed)");
    EXPECT_EQ(io_->error(), "Failed to resume read, the file was replaced");
    EXPECT_FALSE(io_->is_open());
}

TEST_F(Replaced_File, IsNotReadWithoutCopyingEither)
{
    target_.store("ABCDEFGH");
    start({{2, {Fault_Kind::connection_lost}}});
    ASSERT_TRUE(io_->open(file, reading, 0, 0));
    replace_in_the_pause("abcdefgh");
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_FALSE(io_->read(data, size));
    EXPECT_EQ(io_->error(), "Failed to resume read, the file was replaced");
}

TEST_F(Replaced_File, IsKnownAlsoInALaterPass)
{
    read_first_bytes({{3, {Fault_Kind::connection_lost}}, {4, {Fault_Kind::nothing_done}}});
    replace_in_the_pause("another one");
    EXPECT_EQ(read(3), "(failed)");
    EXPECT_EQ(clock_.time, std::chrono::seconds(30));
}

TEST_F(Replaced_File, CanBeOpenedAndReadFromItsBeginning)
{
    read_first_bytes();
    replace_in_the_pause("another one");
    EXPECT_EQ(read(3), "(failed)");
    clock_.on_sleep = nullptr;
    ASSERT_TRUE(io_->open(file, reading, 0, 0));
    EXPECT_EQ(read(100), "another one");
    EXPECT_TRUE(stack_->violations->empty());
}

TEST_F(Replaced_File, IsComparedWithWhatTheRetriedOpenFound)
{
    target_.store("ABCDEFGH");
    start({{1, {Fault_Kind::connection_lost}}, {4, {Fault_Kind::connection_lost}}});
    std::size_t pauses = 0;
    clock_.on_sleep = [&](auto) {
        if (++pauses == 1)
            target_.store("another one"); // before anything was read
    };
    ASSERT_TRUE(io_->open(file, reading, 0, 0));
    EXPECT_EQ(read(100), "another one");
    EXPECT_EQ(pauses, 2U);
}

TEST_F(Replaced_File, WithTheSameVersionIsTheSame)
{
    version_ = "1";
    read_with_version();
    EXPECT_EQ(read(100), "DEFGH");
}

TEST_F(Replaced_File, WithAnotherVersionIsAnother)
{
    version_ = "1";
    read_with_version();
    version_ = "2";
    EXPECT_EQ(read(100), "(failed)");
}

TEST_F(Replaced_File, IsNotAssumedWhereAVersionIsUnknown)
{
    for (const auto& [before, after] : {std::pair("1", ""), std::pair("", "1"), std::pair("", "")})
    {
        version_ = before;
        read_with_version();
        version_ = after;
        EXPECT_EQ(read(100), "DEFGH") << before << " and " << after;
    }
}

TEST_F(Replaced_File, IsNotAssumedWhereASizeIsUnknown)
{
    read_first_bytes({{3, {Fault_Kind::connection_lost}}, {5, {Fault_Kind::unknown_size}}});
    EXPECT_EQ(read(100), "DEFGH");
}

/// Refuses to open a file at its end, as servers of ranges do.
class Refuses_The_End_IO : public Pipe_IO
{
public:
    using Pipe_IO::open;
    using Pipe_IO::Pipe_IO;
    using Pipe_IO::read;

    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override
    {
        return (offset == 0 || offset < Pipe_IO::size(path)) &&
               Pipe_IO::open(path, mode, offset, size);
    }
    std::int64_t read(void* buf, std::uint64_t size) override
    {
        const std::int64_t n = lost ? -1 : Pipe_IO::read(buf, size);
        if (n == 0 && !was_lost) {
            lost = was_lost = true;
            Pipe_IO::disconnect();
            return -1;
        }
        return n;
    }
    bool reconnect() override
    {
        lost = false;
        return Pipe_IO::reconnect();
    }
    bool retriable() const override { return true; }

    bool lost = false;
    bool was_lost = false;
};

TEST(Read_Resumption_At_The_End, NeedsNoOpenThere)
{
    Fake_Clock clock;
    auto files = std::make_shared<Memory_File_System>();
    Memory_File_System::Node* node = nullptr;
    ASSERT_EQ(files->create_file("f", node), 0);
    node->bytes.write(0, "0123456789", 10);
    Resumption_IO io(std::make_unique<Refuses_The_End_IO>(std::make_unique<Memory_IO>(files)), 100);
    ASSERT_TRUE(io.connect(URI(), Client_IO_Base::Options()));
    ASSERT_TRUE(io.open("f", Client_IO_Base::mode_read, 0, 0));
    char bytes[20] = {};
    EXPECT_EQ(io.read(bytes, sizeof bytes), 10);
    EXPECT_EQ(io.read(bytes, sizeof bytes), 0) << io.error();
    EXPECT_EQ(io.read(bytes, sizeof bytes), 0);
    EXPECT_TRUE(io.is_open());
    EXPECT_TRUE(io.close());
}

} // namespace
