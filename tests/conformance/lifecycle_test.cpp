#include "tests/conformance/member.h"

namespace
{

class Lifecycle : public Conformance
{};

INSTANTIATE_TEST_SUITE_P(Of, Lifecycle, testing::ValuesIn(members()), member_name);

TEST_P(Lifecycle, AConnectedObjectHasNoErrorAndNoOpenFile)
{
    EXPECT_EQ(io_->errnum(), 0);
    EXPECT_EQ(io_->error(), "");
    EXPECT_FALSE(io_->retriable());
    EXPECT_FALSE(io_->is_open());
}

TEST_P(Lifecycle, OpenAndCloseChangeWhatIsOpenTells)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    EXPECT_TRUE(io_->is_open());
    EXPECT_TRUE(io_->close());
    EXPECT_FALSE(io_->is_open());
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_TRUE(io_->is_open());
    EXPECT_TRUE(io_->close());
    EXPECT_FALSE(io_->is_open());
}

TEST_P(Lifecycle, OpeningASecondFileStoresTheFirst)
{
    misuses({"open while a file is open"});
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_->write("first", 5));
    ASSERT_TRUE(io_->open("b", Client_IO_Base::mode_write, 0, 0)) << io_->error();
    ASSERT_TRUE(io_->write("second", 6));
    ASSERT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "first");
    EXPECT_EQ(stored("b"), "second");
}

TEST_P(Lifecycle, AFailedOpenAfterAnOpenFileLeavesNoFileOpenAndStoresTheFirst)
{
    misuses({"open while a file is open"});
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_->write("first", 5));
    EXPECT_FALSE(io_->open("missing", Client_IO_Base::mode_read, 0, 0));
    EXPECT_FALSE(io_->is_open());
    EXPECT_EQ(stored("a"), "first");
}

TEST_P(Lifecycle, AFailureLeavesTheObjectUsable)
{
    EXPECT_FALSE(io_->open("missing", Client_IO_Base::mode_read, 0, 0));
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0)) << io_->error();
    EXPECT_TRUE(io_->write("x", 1));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(stored("a"), "x");
}

TEST_P(Lifecycle, ReadingAndWritingWithoutAnOpenFileAreRefused)
{
    misuses({"read without an open file", "write without an open file"});
    char byte = 'x';
    const void* block = nullptr;
    std::uint64_t size = 0;
    EXPECT_EQ(io_->read(&byte, 1), -1);
    EXPECT_FALSE(io_->error().empty());
    EXPECT_FALSE(io_->read(block, size));
    EXPECT_FALSE(io_->write("x", 1));
    EXPECT_FALSE(io_->error().empty());
    EXPECT_TRUE(names("").empty());
}

TEST_P(Lifecycle, ReadingAndWritingAfterCloseAreRefused)
{
    misuses({"read without an open file", "write without an open file"});
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_->write("kept", 4));
    ASSERT_TRUE(io_->close());
    EXPECT_FALSE(io_->write("lost", 4));
    EXPECT_EQ(stored("a"), "kept");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    ASSERT_TRUE(io_->close());
    char byte = 'x';
    EXPECT_EQ(io_->read(&byte, 1), -1);
    EXPECT_EQ(byte, 'x');
}

TEST_P(Lifecycle, ClosingWithoutAnOpenFileFails)
{
    misuses({"close without an open file"});
    EXPECT_EQ(io_->close(), deviates(Deviation::closing_nothing_succeeds));
}

TEST_P(Lifecycle, SizeIsUnknownWithoutAnOpenFile)
{
    const bool known = io_->size() != Client_IO_Base::size_unknown;
    EXPECT_EQ(known, deviates(Deviation::size_without_file_is_known));
}

TEST_P(Lifecycle, PathsCanBeWorkedOnWhileAFileIsOpenExceptBeneathTheFacade)
{
    for (const char* operation :
         {"size", "get_dir", "make_dir", "truncate", "copy", "rename", "remove"})
        misuses({operation + std::string(" while a file is open")});
    store("other", "12345");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    const bool refused = GetParam().is_facade;
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_EQ(io_->size("other"), size_shown("other", 5));
    const auto check = [&](const char* what, bool result) {
        EXPECT_EQ(result, !refused) << what;
        if (refused) {
            EXPECT_EQ(io_->error(), "A file is already open") << what;
        }
    };
    check("get_dir", get_dir("", entries));
    check("make_dir", io_->make_dir("d", 0750));
    check("truncate", truncate("other", 3));
    check("copy", io_->copy("other", "copy", false));
    check("rename", io_->rename("other", "renamed", false));
    check("remove", io_->remove(refused ? "other" : "renamed"));
    EXPECT_TRUE(io_->is_open());
    EXPECT_TRUE(io_->write("x", 1));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(names(""), refused ? (std::vector<std::string>{"a", "other"})
                                 : (std::vector<std::string>{"a", "copy", "d/"}));
}

TEST_P(Lifecycle, DisconnectEndsTheConnection)
{
    io_->disconnect();
    EXPECT_FALSE(io_->is_connected());
    io_->disconnect();
    EXPECT_FALSE(io_->is_connected());
}

TEST_P(Lifecycle, ReconnectComesBackToTheSameTarget)
{
    store("a", "contents");
    io_->disconnect();
    const bool forgets = deviates(Deviation::disconnect_forgets_target);
    EXPECT_EQ(io_->reconnect(), !forgets);
    EXPECT_EQ(io_->is_connected(), !forgets);
    if (forgets) {
        EXPECT_EQ(io_->error(), "URI is not set");
        return;
    }
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0)) << io_->error();
    EXPECT_EQ(read_rest(), "contents");
}

TEST_P(Lifecycle, ReconnectOfALiveConnectionKeepsIt)
{
    store("a", "contents");
    EXPECT_TRUE(io_->reconnect()) << io_->error();
    EXPECT_TRUE(io_->is_connected());
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0)) << io_->error();
    EXPECT_EQ(read_rest(), "contents");
}

TEST_P(Lifecycle, TheFacadeReconnectsADroppedConnectionByItself)
{
    store("a", "contents");
    io_->disconnect();
    if (!GetParam().is_facade) {
        EXPECT_FALSE(io_->is_connected());
        return;
    }
    if (deviates(Deviation::disconnect_forgets_target)) {
        EXPECT_FALSE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
        EXPECT_EQ(io_->error(), "Not connected");
        return;
    }
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0)) << io_->error();
    EXPECT_EQ(read_rest(), "contents");
}

TEST_P(Lifecycle, DisconnectWhileAFileIsOpenEndsItUnlessDeclared)
{
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_->write("written before", 14));
    io_->disconnect();
    EXPECT_FALSE(io_->is_connected());
    EXPECT_EQ(io_->is_open(), deviates(Deviation::disconnect_leaves_file_open));
    if (io_->is_open()) {
        EXPECT_TRUE(io_->close()) << io_->error();
    }
    if (deviates(Deviation::disconnect_leaves_bytes_on_their_way))
        return;
    if (!deviates(Deviation::disconnect_breaks_open_file)) {
        EXPECT_EQ(stored("a"), "written before");
        return;
    }
    EXPECT_EQ(names("", *target_->connect()), std::vector<std::string>{"a"});
    EXPECT_TRUE(std::string("written before").starts_with(read_damaged("a")));
}

TEST_P(Lifecycle, ManyConnectionsSeeTheSameTarget)
{
    store("a", "contents");
    const auto second = target_->connect();
    EXPECT_EQ(second->size("a"), size_shown("a", 8));
    EXPECT_TRUE(second->remove("a"));
    EXPECT_EQ(io_->size("a"), Client_IO_Base::size_unknown);
}

TEST_P(Lifecycle, AFileThatIsReadAgainAfterItChangedShowsTheChange)
{
    misuses({"open while a file is open"});
    store("a", "before");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(read_rest(), "before");
    store("a", "after the change");
    ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0));
    EXPECT_EQ(read_rest(), "after the change");
    EXPECT_EQ(io_->size(), size_shown("a", 16));
}

TEST_P(Lifecycle, FailuresOfTheInterfaceAreNotRetriableForStorageThatCannotRecover)
{
    EXPECT_FALSE(io_->open("missing", Client_IO_Base::mode_read, 0, 0));
    EXPECT_FALSE(io_->retriable());
}

} // namespace
