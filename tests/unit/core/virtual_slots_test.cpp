#include "client_io/client_io.h"
#include "client_io/file_io.h"
#include "client_io/pipe_io.h"
#include "platform/json/json_value.h"
#include "platform/runtime/os_error.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_slots.h"

#include <ace/os_include/os_fcntl.h>

#include <filesystem>
#include <gtest/gtest.h>
#include <new>
#include <sstream>

// Programs built earlier call by slot number, so the numbers are checked by calling through them.

namespace
{

using Base = Client_IO_Base;
using Entries = std::vector<Base::Directory_Entry>;
using json_spirit::Value;

/// Calls slot @p number of @p object as a function of type @p Function.
template <class Function, class Object, class... Arguments>
decltype(auto) call_slot(Object& object, std::size_t number, Arguments&&... arguments)
{
    return (object.*in_slot<Function>(number))(std::forward<Arguments>(arguments)...);
}

using Read = std::int64_t (Base::*)(void*, std::uint64_t);
using Write = bool (Base::*)(const void*, std::uint64_t);
using Size = std::uint64_t (Base::*)() const;
using Connect = bool (Base::*)(const URI&, const Base::Options&);
using Ask = bool (Base::*)() const;
using Do = bool (Base::*)();
using Void = void (Base::*)();
using Open = bool (Base::*)(const char*, unsigned, std::uint64_t, std::uint64_t);
using Open_Extra = bool (Base::*)(const char*, unsigned, const Value&);
using Read_Block = bool (Base::*)(const void*&, std::uint64_t&);
using Seek = bool (Base::*)(std::uint64_t, std::uint64_t);
using Path_Size = std::uint64_t (Base::*)(const char*);
using Get_Dir = bool (Base::*)(const char*, Entries&);
using Make_Dir = bool (Base::*)(const char*, unsigned short);
using Truncate = bool (Base::*)(const char*, std::uint64_t);
using Remove = bool (Base::*)(const char*);
using Transfer = bool (Base::*)(const char*, const char*, bool);
using Errnum = int (Base::*)() const;
using Error = const std::string& (Base::*)() const;
using Get_Config = std::string (Base::*)(const char*) const;

char buffer[16];
const URI uri;
const Base::Options options;
const Value extra;
constexpr unsigned short mode = 0750;
constexpr unsigned short port = 1;
Entries entries;

/// One slot of the interface above a recording double.
struct Slot_Call
{
    std::size_t number;
    /// Calls through the slot; returns whether the result was the double's.
    std::function<bool(Base&)> call;
    std::string noted;  ///< what the double was asked
    unsigned open_mode; ///< a file must be open in this mode before, 0 = none
};

const void* const bytes = buffer;

const std::vector<Slot_Call> interface_slots = {
    {2, [](Base& io) { return call_slot<Read>(io, 2, buffer, 9U) == 6; },
     call_text("read", static_cast<void*>(buffer), 9), 1},
    {3, [](Base& io) { return call_slot<Write>(io, 3, bytes, 9U); }, call_text("write", bytes, 9),
     2},
    {4, [](Base& io) { return call_slot<Size>(io, 4) == 11; }, "size()", 1},
    {5, [](Base& io) { return call_slot<Connect>(io, 5, uri, options); },
     call_text("connect", &uri, &options), 0},
    {6, [](Base& io) { return call_slot<Do>(io, 6); }, "reconnect()", 0},
    {7, [](Base& io) { return call_slot<Ask>(io, 7); }, "is_connected()", 0},
    {8,
     [](Base& io) {
         call_slot<Void>(io, 8);
         return !io.is_connected();
     },
     "disconnect()", 0},
    {9, [](Base& io) { return call_slot<Open>(io, 9, "p", 2U, 33U, 44U); }, "open(p, 2, 33, 44)",
     0},
    {10, [](Base& io) { return call_slot<Open_Extra>(io, 10, "p", 2U, extra); },
     call_text("open", "p", 2, &extra), 0},
    {11, [](Base& io) { return call_slot<Ask>(io, 11); }, "is_open()", 1},
    {12, [](Base& io) { return call_slot<Do>(io, 12) && !io.is_open(); }, "close()", 1},
    {13,
     [](Base& io) {
         const void* data = nullptr;
         std::uint64_t size = 0;
         return call_slot<Read_Block>(io, 13, data, size) && size == 6;
     },
     "read_block()", 1},
    {14, [](Base& io) { return call_slot<Do>(io, 14); }, "flush()", 2},
    {15, [](Base& io) { return call_slot<Seek>(io, 15, 33U, 44U); }, "seek(33, 44)", 1},
    {16, [](Base& io) { return call_slot<Size>(io, 16) == 11; }, "size()", 1},
    {18, [](Base& io) { return call_slot<Path_Size>(io, 18, "p") == 12; }, "path_size(p)", 0},
    {19, [](Base& io) { return call_slot<Get_Dir>(io, 19, "p", entries); },
     call_text("get_dir", "p", &entries), 0},
    {20, [](Base& io) { return call_slot<Make_Dir>(io, 20, "p", mode); }, "make_dir(p, 488)", 0},
    {21, [](Base& io) { return call_slot<Truncate>(io, 21, "p", 33U); }, "truncate(p, 33)", 0},
    {22, [](Base& io) { return call_slot<Remove>(io, 22, "p"); }, "remove(p)", 0},
    {23, [](Base& io) { return call_slot<Transfer>(io, 23, "p", "q", true); }, "copy(p, q, true)",
     0},
    {24, [](Base& io) { return call_slot<Transfer>(io, 24, "p", "q", true); }, "rename(p, q, true)",
     0},
    {25, [](Base& io) { return call_slot<Errnum>(io, 25) == 77; }, "errnum()", 0},
    {26, [](Base& io) { return call_slot<Error>(io, 26) == "text"; }, "error()", 0},
    {27, [](Base& io) { return call_slot<Ask>(io, 27); }, "retriable()", 0},
    {28, [](Base& io) { return call_slot<Get_Config>(io, 28, "k") == "value"; }, "get_config(k)",
     0},
};

void fill(Recording& log)
{
    log.retriable = true;
    log.stream_size = 11;
    log.path_size = 12;
    log.storage = 14;
    log.errnum = 77;
    log.error = "text";
    log.config = "value";
    log.blocks = {"abcdef"};
}

bool noted(const Recording& log, const std::string& call)
{
    return std::find(log.calls.begin(), log.calls.end(), call) != log.calls.end();
}

TEST(Virtual_Slots, AreAsManyAsTheInterfaceFixes)
{
    EXPECT_EQ(slot_count<IO_Base>(), 5);
    EXPECT_EQ(slot_count<Client_IO_Base>(), 29);
    EXPECT_EQ(slot_count<File_IO>(), 29);
    EXPECT_EQ(slot_count<Pipe_IO>(), 32);
    EXPECT_EQ(slot_count<Client_IO>(), 41);
}

TEST(Virtual_Slots, OfAPipeIOReachTheSameOperationBelow)
{
    for (const Slot_Call& slot : interface_slots) {
        const auto log = std::make_shared<Recording>();
        fill(*log);
        log->connected = log->open = true;
        Pipe_IO io(std::make_unique<Recording_IO>(log));
        EXPECT_TRUE(slot.call(io)) << slot.number;
        EXPECT_TRUE(noted(*log, slot.noted)) << slot.number << ": " << slot.noted;
    }
    const auto log = std::make_shared<Recording>();
    fill(*log);
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(call_slot<Size>(static_cast<Base&>(io), 17), 11U);
    EXPECT_TRUE(noted(*log, "size()"));
}

TEST(Virtual_Slots, OfAPipeIOBehindTheInterfaceAreReleaseAndBothSkips)
{
    const auto log = std::make_shared<Recording>();
    log->blocks = {"abcdef", "gh"};
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ((call_slot<std::int64_t (Pipe_IO::*)(std::uint64_t)>(io, 30, 4U)), 2);
    EXPECT_TRUE((call_slot<bool (Pipe_IO::*)(std::uint64_t, void*, std::uint64_t)>(
        io, 31, 2U, static_cast<void*>(buffer), 16U)));
    EXPECT_EQ(std::string(buffer, 2), "gh");
    const auto released = call_slot<std::unique_ptr<Base> (Pipe_IO::*)()>(io, 29);
    EXPECT_NE(dynamic_cast<Recording_IO*>(released.get()), nullptr);
    EXPECT_EQ(io.release(), nullptr);
}

TEST(Virtual_Slots, OfAClientIOReachTheSameOperationOfTheStack)
{
    for (const Slot_Call& slot : interface_slots) {
        if (slot.number == 5)
            continue; // replaces the stack: see below
        Recorded_Facade facade;
        ASSERT_TRUE(facade.connected);
        if (slot.open_mode != 0) {
            ASSERT_TRUE(facade.io.open("file", slot.open_mode, 0, 0)) << slot.number;
        }
        fill(*facade.log);
        facade.log->calls.clear();
        EXPECT_TRUE(slot.call(facade.io)) << slot.number;
        EXPECT_TRUE(noted(*facade.log, slot.noted)) << slot.number << ": " << slot.noted;
    }
    Recorded_Facade facade;
    fill(*facade.log);
    EXPECT_EQ(call_slot<Size>(static_cast<Base&>(facade.io), 17), 14U);
    EXPECT_TRUE(noted(*facade.log, "storage_size()"));
}

/// The facade's own slots, 29 to 40, by what they do.
class Facade_Slots : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(facade_.connected);
        fill(*facade_.log);
    }

    template <class Function, class... Arguments>
    decltype(auto) call(std::size_t number, Arguments&&... arguments)
    {
        return call_slot<Function>(static_cast<Client_IO&>(io_), number,
                                   std::forward<Arguments>(arguments)...);
    }

    Temp_Directory directory_;
    Recorded_Facade facade_;
    Open_Facade& io_ = facade_.io;
};

TEST_F(Facade_Slots, Number5ConnectsToAURI)
{
    URI file;
    file.scheme("file");
    file.path(directory_.str(), false);
    EXPECT_TRUE(call_slot<Connect>(static_cast<Base&>(io_), 5, file, options)) << io_.error();
    EXPECT_EQ(io_.protocol(), Client_IO::PROTOCOL_FILE);
    EXPECT_TRUE(facade_.log->destroyed);
}

TEST_F(Facade_Slots, Number29ConnectsToAText)
{
    using Function = bool (Client_IO::*)(const char*, const Base::Options&);
    const std::string text = file_uri(directory_.str());
    EXPECT_TRUE(call<Function>(29, text.c_str(), options)) << io_.error();
    EXPECT_TRUE(facade_.log->destroyed);
    EXPECT_FALSE(call<Function>(29, nullptr, options));
    EXPECT_EQ(io_.error(), "Invalid URI");
}

TEST_F(Facade_Slots, Number30ConnectsByParts)
{
    using Function = bool (Client_IO::*)(Client_IO::Protocol, const char*, unsigned short, bool,
                                         const char*, const Base::Options&);
    EXPECT_TRUE(call<Function>(30, Client_IO::PROTOCOL_FILE, nullptr, port, false,
                               directory_.str().c_str(), options))
        << io_.error();
    EXPECT_FALSE(call<Function>(30, Client_IO::PROTOCOL_FTP, "host", port, true, "/p", options));
    EXPECT_EQ(io_.protocol(), Client_IO::PROTOCOL_FTP);
}

TEST_F(Facade_Slots, Number31IsGetFile)
{
    using Function =
        bool (Client_IO::*)(const char*, const char*, int, std::uint64_t, Client_IO::Progress);
    std::uint64_t progress = 0;
    EXPECT_TRUE(call<Function>(31, "remote", (directory_ / "local").c_str(), O_CREAT, 0U,
                               [&](std::uint64_t n) { progress += n; }))
        << io_.error();
    EXPECT_EQ(read_local(directory_ / "local"), "abcdef");
    EXPECT_EQ(progress, 6U);
}

TEST_F(Facade_Slots, Number32IsPutFile)
{
    using Function = bool (Client_IO::*)(const char*, const char*, bool, int, std::uint64_t,
                                         Client_IO::Progress);
    write_local(directory_ / "local", "local bytes");
    EXPECT_TRUE(call<Function>(32, "remote", (directory_ / "local").c_str(), true, 0, 0U,
                               Client_IO::Progress()))
        << io_.error();
    EXPECT_EQ(facade_.log->written, "local bytes");
    EXPECT_EQ(facade_.log->count("open(remote, 258, 0, "), 1U);
}

TEST_F(Facade_Slots, Number33IsPutStream)
{
    using Function = bool (Client_IO::*)(std::istream&, const char*, bool);
    std::istringstream in("stream bytes");
    EXPECT_TRUE(call<Function>(33, in, "remote", false)) << io_.error();
    EXPECT_EQ(facade_.log->written, "stream bytes");
}

TEST_F(Facade_Slots, Number34IsWritable)
{
    using Function = bool (Client_IO::*)() const;
    ASSERT_TRUE(io_.open("a", 2, 0, 0));
    EXPECT_TRUE(call<Function>(34));
    ASSERT_TRUE(io_.open("a", 1, 0, 0));
    EXPECT_FALSE(call<Function>(34));
}

TEST_F(Facade_Slots, Number35IsGetContents)
{
    using Function = bool (Client_IO::*)(const char*, std::string&);
    std::string out;
    EXPECT_TRUE(call<Function>(35, "remote", out));
    EXPECT_EQ(out, "abcdef");
}

TEST_F(Facade_Slots, Numbers36And37ArePutContentsOfAStringAndOfBytes)
{
    using Put_String = bool (Client_IO::*)(const char*, const std::string&, bool);
    using Put_Bytes = bool (Client_IO::*)(const char*, const void*, std::uint64_t, bool);
    EXPECT_TRUE(call<Put_String>(36, "remote", std::string("string"), false));
    EXPECT_EQ(facade_.log->written, "string");
    EXPECT_TRUE(call<Put_Bytes>(37, "remote", "bytes and more", 5U, false));
    EXPECT_EQ(facade_.log->written, "stringbytes");
}

TEST_F(Facade_Slots, Numbers38And39SetTheCompressionByMethodAndByName)
{
    using By_Method = void (Client_IO::*)(Compression_Method);
    using By_Name = void (Client_IO::*)(const std::string&);
    const auto stack = [&] {
        io_.io_ = std::make_unique<Doubling_IO>(std::move(io_.io_));
        io_.compression_ = COMPRESSION_ZSTD;
    };
    stack();
    call<By_Method>(38, COMPRESSION_ZSTD);
    EXPECT_EQ(io_.compression_, COMPRESSION_ZSTD);
    call<By_Method>(38, COMPRESSION_NONE);
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    EXPECT_NE(dynamic_cast<Recording_IO*>(io_.io_.get()), nullptr);
    stack();
    call<By_Name>(39, std::string("a.zst"));
    EXPECT_EQ(io_.compression_, COMPRESSION_ZSTD);
    call<By_Name>(39, std::string("backup"));
    EXPECT_EQ(io_.compression_, COMPRESSION_NONE);
    EXPECT_NE(dynamic_cast<Recording_IO*>(io_.io_.get()), nullptr);
}

TEST_F(Facade_Slots, Number40SetsTheEncryption)
{
    using Function = bool (Client_IO::*)(Encryption_Algorithm, const unsigned char*, int,
                                         const unsigned char*, int);
    EXPECT_TRUE(call<Function>(40, ENCRYPTION_NONE, nullptr, 0, nullptr, 0));
    EXPECT_FALSE(
        call<Function>(40, static_cast<Encryption_Algorithm>(4711), nullptr, 0, nullptr, 0));
    EXPECT_EQ(io_.error(), "Unknown encryption algorithm 4711");
}

TEST(Virtual_Slots, OfAFileIOWorkOnTheLocalFileSystem)
{
    const Temp_Directory directory;
    const auto exists = [&](const char* name) { return std::filesystem::exists(directory / name); };
    URI target;
    target.scheme("file");
    target.path(directory.str(), false);
    File_IO file;
    Base& io = file;

    EXPECT_FALSE(call_slot<Ask>(io, 7));
    EXPECT_FALSE(call_slot<Do>(io, 6));
    EXPECT_EQ(call_slot<Error>(io, 26), "URI is not set");
    ASSERT_TRUE(call_slot<Connect>(io, 5, target, options));
    EXPECT_TRUE(call_slot<Ask>(io, 7));
    EXPECT_TRUE(call_slot<Do>(io, 6));

    EXPECT_FALSE(call_slot<Ask>(io, 11));
    ASSERT_TRUE(call_slot<Open>(io, 9, "a", 2U, 0U, 0U));
    EXPECT_TRUE(call_slot<Ask>(io, 11));
    EXPECT_TRUE(call_slot<Write>(io, 3, "abcdef", 6U));
    EXPECT_EQ(call_slot<Size>(io, 4), 6U);
    EXPECT_EQ(call_slot<Size>(io, 16), 6U);
    EXPECT_EQ(call_slot<Size>(io, 17), 6U);
    EXPECT_TRUE(call_slot<Do>(io, 14));
    EXPECT_TRUE(call_slot<Do>(io, 12));
    EXPECT_FALSE(call_slot<Ask>(io, 11));
    EXPECT_EQ(read_local(directory / "a"), "abcdef");

    ASSERT_TRUE(call_slot<Open_Extra>(io, 10, "a", 1U, extra));
    EXPECT_EQ(call_slot<Read>(io, 2, buffer, 2U), 2);
    EXPECT_EQ(std::string(buffer, 2), "ab");
    EXPECT_TRUE(call_slot<Seek>(io, 15, 3U, 0U));
    const void* data = nullptr;
    std::uint64_t size = 0;
    EXPECT_TRUE(call_slot<Read_Block>(io, 13, data, size));
    EXPECT_EQ(std::string(static_cast<const char*>(data), size), "def");
    EXPECT_TRUE(call_slot<Do>(io, 12));

    EXPECT_EQ(call_slot<Path_Size>(io, 18, "a"), 6U);
    EXPECT_TRUE(call_slot<Make_Dir>(io, 20, "d", mode));
    EXPECT_TRUE(std::filesystem::is_directory(directory / "d"));
    Entries listed;
    EXPECT_TRUE(call_slot<Get_Dir>(io, 19, "", listed));
    EXPECT_EQ(listed.size(), 2U);
    EXPECT_TRUE(call_slot<Truncate>(io, 21, "a", 2U));
    EXPECT_EQ(read_local(directory / "a"), "ab");
    EXPECT_TRUE(call_slot<Transfer>(io, 23, "a", "copy", false));
    EXPECT_TRUE(exists("a") && exists("copy"));
    EXPECT_TRUE(call_slot<Transfer>(io, 24, "a", "renamed", false));
    EXPECT_TRUE(!exists("a") && exists("renamed"));
    EXPECT_TRUE(call_slot<Remove>(io, 22, "copy"));
    EXPECT_FALSE(exists("copy"));

    EXPECT_FALSE(call_slot<Open>(io, 9, "missing", 1U, 0U, 0U));
    EXPECT_EQ(call_slot<Errnum>(io, 25), os_error::no_such_file);
    EXPECT_TRUE(call_slot<Error>(io, 26).starts_with("Fail to open file "));
    EXPECT_FALSE(call_slot<Ask>(io, 27));
    EXPECT_EQ(call_slot<Get_Config>(io, 28, "k"), "");
    call_slot<Void>(io, 8);
    EXPECT_FALSE(call_slot<Ask>(io, 7));
}

/// Destroys objects by slots 0 (in place) and 1 (with their memory).
template <class Object>
void destroy_by_slots(const std::function<std::unique_ptr<Object>()>& make,
                      const std::function<void()>& after)
{
    using Destructor = void (*)(void*);
    const auto slot = [](Object* object, std::size_t number) {
        return reinterpret_cast<Destructor>((*reinterpret_cast<void***>(object))[number]);
    };
    Object* whole = make().release();
    slot(whole, 1)(whole);
    after();
    Object* in_place = make().release();
    slot(in_place, 0)(in_place);
    after();
    ::operator delete(static_cast<void*>(in_place));
}

TEST(Virtual_Slots, Numbers0And1AreTheDestructors)
{
    std::shared_ptr<Recording> log;
    const auto double_of_its_own = [&] {
        log = std::make_shared<Recording>();
        return std::make_unique<Recording_IO>(log);
    };
    const auto expect_destroyed = [&] { EXPECT_TRUE(log->destroyed); };
    destroy_by_slots<Pipe_IO>([&] { return std::make_unique<Pipe_IO>(double_of_its_own()); },
                              expect_destroyed);
    destroy_by_slots<Open_Facade>(
        [&] {
            auto facade = std::make_unique<Open_Facade>();
            EXPECT_TRUE(facade->connect_plain(double_of_its_own()));
            return facade;
        },
        [&] {
            EXPECT_TRUE(log->destroyed);
            EXPECT_EQ(log->count("disconnect()"), 1U);
        });
    // What a File_IO leaves behind would be found by the leak check.
    destroy_by_slots<File_IO>([] { return std::make_unique<File_IO>(); }, [] {});
}

} // namespace
