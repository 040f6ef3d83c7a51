#include "tests/faults/promises.h"

/// Bytes that were written are on the target, or the caller hears of it.

namespace
{

using testing::ElementsAre;

class Old_Contents : public Promises
{};

TEST_F(Old_Contents, InRandomWriteModeAreNotTakenForALostWrite)
{
    target_.store("01234567890123456789");
    start({{2, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, random_writing, 3, 0));
    EXPECT_TRUE(write("ABCDE"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "012ABCDE890123456789");
}

TEST_F(Old_Contents, InRandomWriteModeAreNotTakenForLostEarlierWrites)
{
    target_.store("01234567890123456789");
    start({{4, {Fault_Kind::connection_lost, 9}}});
    ASSERT_TRUE(io_->open(file, random_writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_TRUE(write("EFGH"));
    EXPECT_TRUE(write("I"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "ABCDEFGHI90123456789");
}

TEST_F(Old_Contents, InRandomWriteModeMakeAWriteFailThatCannotBeSentAgain)
{
    target_.store("01234567890123456789");
    start({{3, {Fault_Kind::connection_lost, 8}}}, 3);
    ASSERT_TRUE(io_->open(file, random_writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_FALSE(write("EFGH"));
    EXPECT_EQ(io_->error(), "Failed to resume write, breakpoint 0, buffer start 1, lost size 1, "
                            "last error: injected lost at write 3");
    EXPECT_THAT(logged(),
                ElementsAre("Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is 20, start position of buffer is 1\n"));
}

TEST_F(Old_Contents, InRandomWriteModeMakeACloseFailThatCannotBeProved)
{
    target_.store("01234567890123456789");
    start({{3, {Fault_Kind::connection_lost, 4}}}, 3);
    ASSERT_TRUE(io_->open(file, random_writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_FALSE(io_->close());
}

TEST_F(Old_Contents, CountedInTheSizeOfANewFileMakeAResumptionFail)
{
    target_.store("0123456789");
    start({{1, {Fault_Kind::old_size}}, {2, {Fault_Kind::connection_lost, 4}}});
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
    EXPECT_EQ(io_->size(), 10U);
    EXPECT_FALSE(write("ABCD"));
    EXPECT_EQ(io_->error(), "Failed to resume write, the size of the target does not tell what it "
                            "holds, last error: injected lost at write 2");
}

class Unknown_Size : public Promises
{};

TEST_F(Unknown_Size, OfANewFileIsNoOffset)
{
    start({{1, {Fault_Kind::unknown_size}}, {3, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_TRUE(write("EFG"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "ABCDEFG");
    EXPECT_THAT(logged(), ElementsAre("file is resumed successfully from 2\n"));
}

TEST_F(Unknown_Size, OfAFileThatIsOverwrittenFromAnOffsetIsNoOffset)
{
    target_.store("0123456789");
    start({{1, {Fault_Kind::unknown_size}}, {3, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, overwriting, 4, 0));
    EXPECT_TRUE(write("AB"));
    EXPECT_TRUE(write("CDE"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "0123ABCDE9");
}

TEST_F(Unknown_Size, OfAFileThatIsAppendedToMakesAResumptionFail)
{
    target_.store("0123456789");
    start({{1, {Fault_Kind::unknown_size}}, {2, {Fault_Kind::connection_lost, 2}}});
    ASSERT_TRUE(io_->open(file, appending, 0, 0));
    EXPECT_FALSE(write("ABCD"));
    EXPECT_THAT(logged(),
                ElementsAre("Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is 12, start position of buffer is 0\n"));
}

TEST_F(Unknown_Size, AfterTheReopeningMakesAResumptionFail)
{
    start({{2, {Fault_Kind::connection_lost, 2}}, {4, {Fault_Kind::unknown_size}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_FALSE(write("ABCD"));
    EXPECT_THAT(logged(),
                ElementsAre("Stop writing file due to not enough buffered data to resume: "
                            "breakpoint is -1, start position of buffer is 0\n"));
}

class Failed_Write : public Promises
{};

TEST_F(Failed_Write, IsNotTakenForTheBytesOfTheNextOne)
{
    // All of the first one arrived, nothing of the second.
    start({{2, {Fault_Kind::done, 0, false}}, {3, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_FALSE(write("ABCDE"));
    EXPECT_FALSE(write("FGHIJ"));
    EXPECT_THAT(logged(),
                ElementsAre("Not retry writing file since the error is not retriable: injected "
                            "done at write 2\n",
                            "Not retry writing file since an earlier write failed\n"));
    EXPECT_EQ(clock_.time.count(), 0);
}

TEST_F(Failed_Write, IsNotTakenForTheSameOneWhenItIsSentByTheCallerAgain)
{
    start({{2, {Fault_Kind::part_done, 2, false}}, {4, {Fault_Kind::connection_lost, 5}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_FALSE(write("ABCDE"));
    EXPECT_TRUE(write("ABCDE")); // nobody says where it begins
    EXPECT_FALSE(io_->close());
}

TEST_F(Failed_Write, IsForgottenWithTheNextOpen)
{
    start({{2, {Fault_Kind::part_done, 2, false}}, {5, {Fault_Kind::connection_lost, 3}}});
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
    EXPECT_FALSE(write("ABCDE"));
    EXPECT_TRUE(io_->close());                       // 3
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0)); // 4
    EXPECT_TRUE(write("ABCDE"));                     // 5
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "ABCDE");
}

/// A flush whose resumption broke off: the file is open, and its bytes are not all there.
class Broken_Resumption : public Promises
{
protected:
    Broken_Resumption()
    {
        start({{3, {Fault_Kind::connection_lost, 4}}, {6, {Fault_Kind::nothing_done}}});
        EXPECT_TRUE(io_->open(file, writing, 0, 0));
        EXPECT_TRUE(write("ABCD"));
        EXPECT_FALSE(io_->flush());
        EXPECT_TRUE(io_->is_open());
        EXPECT_EQ(target_.contents(), "");
    }

    static constexpr auto text = "Failed to resume write, the target lacks bytes that were written";
};

TEST_F(Broken_Resumption, IsNotHiddenByTheClose)
{
    EXPECT_FALSE(io_->close());
    EXPECT_EQ(io_->error(), text);
    EXPECT_FALSE(io_->is_open());
}

TEST_F(Broken_Resumption, IsNotWrittenBehind)
{
    EXPECT_FALSE(write("EFGH"));
    EXPECT_EQ(io_->error(), text);
    EXPECT_FALSE(io_->flush());
    EXPECT_EQ(target_.contents(), "");
}

TEST_F(Broken_Resumption, EndsWithTheNextFile)
{
    EXPECT_FALSE(io_->close());
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
    EXPECT_TRUE(write("EFGH"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "EFGH");
}

class Unclosed_File : public Promises
{};

TEST_F(Unclosed_File, IsFinishedBeforeTheNextOneIsOpened)
{
    start({{3, {Fault_Kind::connection_lost, 4}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_TRUE(io_->open("other", writing, 0, 0));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "ABCD");
    EXPECT_EQ(io_->size("other"), 0U);
    EXPECT_TRUE(stack_->violations->empty());
}

TEST_F(Unclosed_File, ThatCannotBeFinishedMakesTheOpenFail)
{
    start({{3, {Fault_Kind::connection_lost, 4, false}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_FALSE(io_->open("other", writing, 0, 0));
    EXPECT_EQ(io_->error(), "injected lost at close 3");
    EXPECT_EQ(io_->size("other"), Client_IO_Base::size_unknown);
}

class Foreign_Bytes : public Promises
{
protected:
    void add_in_the_pause(const std::string& bytes)
    {
        clock_.on_sleep = [this, bytes](auto) { target_.store(target_.contents() + bytes); };
    }
};

TEST_F(Foreign_Bytes, BehindAWriteThatArrivedMakeTheNextOperationFail)
{
    for (const bool flush : {false, true}) {
        target_.store("");
        start({{2, {Fault_Kind::reopened_long, 3}}});
        ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
        EXPECT_TRUE(write("ABCD")); // it did arrive
        EXPECT_FALSE(flush ? io_->flush() : io_->close());
        EXPECT_EQ(io_->error(),
                  "Failed to resume write, the target holds 3 bytes more than were written");
    }
}

TEST_F(Foreign_Bytes, MakeAFlushOrACloseFail)
{
    for (const bool flush : {false, true}) {
        target_.store("");
        start({{3, {Fault_Kind::reopened_long, 3}}});
        ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
        EXPECT_TRUE(write("ABCD"));
        EXPECT_FALSE(flush ? io_->flush() : io_->close());
        EXPECT_EQ(io_->error(),
                  "Failed to resume write, the target holds 3 bytes more than were written");
    }
}

TEST_F(Foreign_Bytes, AreForgottenWithTheNextOpen)
{
    start({{2, {Fault_Kind::reopened_long, 3}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_FALSE(io_->close());
    ASSERT_TRUE(io_->open(file, overwriting, 0, 0));
    EXPECT_TRUE(write("EFGH"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "EFGH");
}

TEST_F(Foreign_Bytes, MakeAWriteFailAlsoBehindASeek)
{
    start({{4, {Fault_Kind::reopened_long, 3}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    EXPECT_TRUE(write("ABCDEF"));
    ASSERT_TRUE(io_->seek(2, 0));
    EXPECT_FALSE(write("xy"));
    EXPECT_EQ(io_->error(),
              "Failed to resume write, the target holds 3 bytes more than were written");
    EXPECT_FALSE(io_->close());
}

TEST_F(Foreign_Bytes, InRandomWriteModeAreContentsOutsideTheWrites)
{
    start({{2, {Fault_Kind::connection_lost, 4}}});
    ASSERT_TRUE(io_->open(file, random_writing, 0, 0));
    add_in_the_pause("0123456789"); // as another writer of the same file may do
    EXPECT_TRUE(write("ABCD"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "ABCD456789");
}

/// The limit of what sizes can tell: it is known, and here for all to see.
TEST_F(Foreign_Bytes, ThatFitIntoTheInterruptedWriteAreTakenForItsBeginning)
{
    start({{2, {Fault_Kind::connection_lost, 4}}});
    ASSERT_TRUE(io_->open(file, writing, 0, 0));
    add_in_the_pause("##");
    EXPECT_TRUE(write("ABCD"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "##CD");
}

} // namespace
