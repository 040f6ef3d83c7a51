#include "tests/support/memory_io.h"

#include <functional>
#include <gtest/gtest.h>

/// The in-memory storage's strict mode: it takes down what the interface does not provide for.

namespace
{

constexpr unsigned reading = Client_IO_Base::mode_read;
constexpr unsigned appending = Client_IO_Base::mode_append;

using Call = std::function<void(Client_IO_Base&)>;

struct Named_Call
{
    const char* name;
    Call call;
};

char byte;
std::vector<Client_IO_Base::Directory_Entry> entries;

const Named_Call read_call = {"read", [](Client_IO_Base& io) { io.read(&byte, 1); }};
const Named_Call read_block_call = {"read", [](Client_IO_Base& io) {
                                        const void* data = nullptr;
                                        std::uint64_t size = 0;
                                        static_cast<void>(io.read(data, size));
                                    }};
const Named_Call write_call = {"write", [](Client_IO_Base& io) { io.write("x", 1); }};
const Named_Call flush_call = {"flush", [](Client_IO_Base& io) { io.flush(); }};
const Named_Call seek_call = {"seek", [](Client_IO_Base& io) { io.seek(0, 0); }};
const Named_Call close_call = {"close", [](Client_IO_Base& io) { io.close(); }};
const Named_Call open_call = {"open", [](Client_IO_Base& io) { io.open("file", appending, 0, 0); }};

const std::vector<Named_Call> on_files = {read_call,  read_block_call, write_call,
                                          flush_call, seek_call,       close_call};
const std::vector<Named_Call> without_files = {
    open_call,
    {"size", [](Client_IO_Base& io) { io.size("file"); }},
    {"get_dir", [](Client_IO_Base& io) { io.get_dir("", entries); }},
    {"make_dir", [](Client_IO_Base& io) { io.make_dir("d", 0750); }},
    {"truncate", [](Client_IO_Base& io) { io.truncate("file", 0); }},
    {"remove", [](Client_IO_Base& io) { io.remove("none"); }},
    {"copy", [](Client_IO_Base& io) { io.copy("file", "copy", true); }},
    {"rename", [](Client_IO_Base& io) { io.rename("copy", "moved", true); }},
};

class Strict_Order : public testing::Test
{
protected:
    /// Calls it on an object in a certain state, and returns what that was noted as.
    Memory_IO::Violations violations(const Call& prepare, const Named_Call& named)
    {
        const auto noted = std::make_shared<Memory_IO::Violations>();
        Memory_IO io(std::make_shared<Memory_File_System>(), noted);
        prepare(io);
        EXPECT_TRUE(noted->empty()) << named.name << ": " << noted->front();
        named.call(io);
        return *noted;
    }

    static Memory_IO::Violations only(const Named_Call& named, const char* violation)
    {
        return {std::string(named.name) + ' ' + violation};
    }

    static void connect(Client_IO_Base& io) { ASSERT_TRUE(io.connect(URI(), {})); }
    static void write_and_keep_open(Client_IO_Base& io)
    {
        connect(io);
        ASSERT_TRUE(io.open("file", appending, 0, 0));
        ASSERT_TRUE(io.write("abc", 3));
    }
    static void open_for_reading(Client_IO_Base& io)
    {
        write_and_keep_open(io);
        ASSERT_TRUE(io.close());
        ASSERT_TRUE(io.open("file", reading, 0, 0));
    }
};

TEST_F(Strict_Order, NothingComesBeforeConnect)
{
    for (const auto& calls : {on_files, without_files}) {
        for (const Named_Call& named : calls)
            EXPECT_EQ(violations([](Client_IO_Base&) {}, named), only(named, "before connect"));
    }
    const Named_Call reconnect = {"reconnect", [](Client_IO_Base& io) { io.reconnect(); }};
    EXPECT_EQ(violations([](Client_IO_Base&) {}, reconnect), only(reconnect, "before connect"));
}

TEST_F(Strict_Order, NothingComesBetweenDisconnectAndReconnect)
{
    const auto prepare = [](Client_IO_Base& io) {
        write_and_keep_open(io);
        io.disconnect();
    };
    for (const auto& calls : {on_files, without_files}) {
        for (const Named_Call& named : calls)
            EXPECT_EQ(violations(prepare, named), only(named, "without a connection"));
    }
    const auto reconnected = [&](Client_IO_Base& io) {
        prepare(io);
        ASSERT_TRUE(io.reconnect());
    };
    for (const Named_Call& named : without_files)
        EXPECT_TRUE(violations(reconnected, named).empty()) << named.name;
}

TEST_F(Strict_Order, FileOperationsNeedAnOpenFile)
{
    const auto closed = [](Client_IO_Base& io) {
        write_and_keep_open(io);
        ASSERT_TRUE(io.close());
    };
    for (const Named_Call& named : on_files) {
        EXPECT_EQ(violations(connect, named), only(named, "without an open file"));
        EXPECT_EQ(violations(closed, named), only(named, "without an open file"));
    }
}

TEST_F(Strict_Order, NothingIsOpenedOrWorkedOnWhileAFileIsOpen)
{
    for (const Named_Call& named : without_files) {
        EXPECT_EQ(violations(write_and_keep_open, named), only(named, "while a file is open"));
        EXPECT_EQ(violations(open_for_reading, named), only(named, "while a file is open"));
        EXPECT_TRUE(violations(connect, named).empty()) << named.name;
    }
}

TEST_F(Strict_Order, FilesAreUsedAsTheyWereOpened)
{
    for (const Named_Call& named : {write_call, flush_call}) {
        EXPECT_EQ(violations(open_for_reading, named),
                  only(named, "of a file that is open for reading"));
        EXPECT_TRUE(violations(write_and_keep_open, named).empty()) << named.name;
    }
    for (const Named_Call& named : {read_call, read_block_call}) {
        EXPECT_EQ(violations(write_and_keep_open, named),
                  only(named, "of a file that is open for writing"));
        EXPECT_TRUE(violations(open_for_reading, named).empty()) << named.name;
    }
    for (const Named_Call& named : {seek_call, close_call}) {
        EXPECT_TRUE(violations(write_and_keep_open, named).empty()) << named.name;
        EXPECT_TRUE(violations(open_for_reading, named).empty()) << named.name;
    }
}

TEST_F(Strict_Order, AFileThatIsBegunAgainOrReplacedHasAnotherVersion)
{
    const auto files = std::make_shared<Memory_File_System>();
    Memory_IO io(files);
    connect(io);
    const auto version = [&](unsigned mode) {
        EXPECT_TRUE(io.open("file", mode, 0, 0));
        const std::string result = io.get_config("file_version");
        EXPECT_TRUE(io.close());
        EXPECT_EQ(io.get_config("file_version"), "");
        EXPECT_FALSE(result.empty());
        return result;
    };
    const std::string first = version(appending);
    EXPECT_EQ(version(reading), first);
    EXPECT_EQ(version(appending), first);
    const std::string second = version(Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite);
    EXPECT_NE(second, first);
    ASSERT_TRUE(io.copy("file", "copy", false));
    ASSERT_TRUE(io.rename("copy", "file", true));
    EXPECT_NE(version(reading), second);
    ASSERT_TRUE(io.remove("file"));
    EXPECT_NE(version(appending), second);
}

} // namespace
