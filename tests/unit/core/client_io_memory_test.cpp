#include "platform/json/json_value.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"

#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sstream>

namespace
{

/// A backend for which memory runs out in every operation that may fail.
class Starving_IO : public Recording_IO
{
public:
    using Recording_IO::Recording_IO;

    [[noreturn]] static void starve() { throw std::bad_alloc(); }

    std::int64_t read(void*, std::uint64_t) override { starve(); }
    bool write(const void*, std::uint64_t) override { starve(); }
    bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override { starve(); }
    bool open(const char*, unsigned, const json_spirit::Value&) override { starve(); }
    bool close() override { starve(); }
    bool read(const void*&, std::uint64_t&) override { starve(); }
    bool flush() override { starve(); }
    bool seek(std::uint64_t, std::uint64_t) override { starve(); }
    std::uint64_t size(const char*) override { starve(); }
    bool get_dir(const char*, std::vector<Directory_Entry>&) override { starve(); }
    bool make_dir(const char*, unsigned short) override { starve(); }
    bool truncate(const char*, std::uint64_t) override { starve(); }
    bool remove(const char*) override { starve(); }
    bool copy(const char*, const char*, bool) override { starve(); }
    bool rename(const char*, const char*, bool) override { starve(); }
    using Recording_IO::size;
};

struct Operation
{
    const char* name;
    bool needs_open_file;
    bool writes;
    std::function<bool(Client_IO&)> call; ///< true when it reports success
};

TEST(Facade_Without_Memory, EveryOperationFailsWithENOMEMAndNoExceptionAndNoText)
{
    char buffer[8];
    const void* data = nullptr;
    std::uint64_t size = 0;
    std::string text;
    std::vector<Client_IO::Directory_Entry> entries;
    std::istringstream stream("data");
    const Operation operations[] = {
        {"read", true, false, [&](Client_IO& io) { return io.read(buffer, 8) >= 0; }},
        {"zero-copy read", true, false, [&](Client_IO& io) { return io.read(data, size); }},
        {"write", true, true, [&](Client_IO& io) { return io.write("x", 1); }},
        {"flush", true, true, [&](Client_IO& io) { return io.flush(); }},
        {"seek", true, false, [&](Client_IO& io) { return io.seek(1, 0); }},
        {"close", true, true, [&](Client_IO& io) { return io.close(); }},
        {"open", false, false, [&](Client_IO& io) { return io.open("a", 1, 0, 0); }},
        {"open with settings", false, false,
         [&](Client_IO& io) { return io.open("a", 1, json_spirit::Value()); }},
        {"size", false, false,
         [&](Client_IO& io) { return io.size("a") != Client_IO::size_unknown; }},
        {"get_dir", false, false, [&](Client_IO& io) { return io.get_dir("", entries); }},
        {"make_dir", false, false, [&](Client_IO& io) { return io.make_dir("a", 0700); }},
        {"truncate", false, false, [&](Client_IO& io) { return io.truncate("a", 0); }},
        {"remove", false, false, [&](Client_IO& io) { return io.remove("a"); }},
        {"copy", false, false, [&](Client_IO& io) { return io.copy("a", "b", true); }},
        {"rename", false, false, [&](Client_IO& io) { return io.rename("a", "b", true); }},
        {"get_contents", false, false, [&](Client_IO& io) { return io.get_contents("a", text); }},
        {"put_contents", false, true,
         [&](Client_IO& io) { return io.put_contents("a", "x", true); }},
        {"put_stream", false, true,
         [&](Client_IO& io) { return io.put_stream(stream, "a", true); }},
    };
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.name);
        const auto log = std::make_shared<Recording>();
        Open_Facade io;
        ASSERT_TRUE(io.connect_plain(std::make_unique<Starving_IO>(log)));
        log->open = operation.needs_open_file;
        io.write_mode_ = operation.writes;
        ACE_OS::last_error(0);
        EXPECT_NO_THROW(EXPECT_FALSE(operation.call(io)));
        EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
        EXPECT_EQ(io.error(), "");
    }
}

TEST(Facade_Without_Memory, ATransferLeavesNoFileOpen)
{
    /// Memory runs out at the first byte that moves.
    class Starving_Transfer : public Recording_IO
    {
    public:
        using Recording_IO::read;
        using Recording_IO::Recording_IO;
        bool read(const void*&, std::uint64_t&) override { Starving_IO::starve(); }
        bool write(const void*, std::uint64_t) override { Starving_IO::starve(); }
    };
    Open_Facade io;
    ASSERT_TRUE(
        io.connect_plain(std::make_unique<Starving_Transfer>(std::make_shared<Recording>())));
    std::string text;
    std::istringstream stream("data");
    EXPECT_FALSE(io.get_contents("a", text));
    EXPECT_FALSE(io.is_open());
    EXPECT_FALSE(io.put_contents("a", "x", true));
    EXPECT_FALSE(io.is_open());
    EXPECT_FALSE(io.put_stream(stream, "a", true));
    EXPECT_FALSE(io.is_open());
    EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
}

TEST(Facade_Without_Memory, AHalfBuiltStackIsNotKept)
{
    class Starving_Facade : public Open_Facade
    {
    public:
        bool set_encryption(Encryption_Algorithm, const unsigned char*, int, const unsigned char*,
                            int) override
        {
            Starving_IO::starve();
        }
    };
    const Temp_Directory directory;
    Starving_Facade io;
    EXPECT_FALSE(io.connect(file_uri(directory.str()).c_str(), Client_IO::Options()));
    EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
    EXPECT_EQ(io.io_, nullptr);
}

TEST(Facade_Without_Memory, DestructionWithAnOpenFileDoesNotEndTheProcess)
{
    const auto log = std::make_shared<Recording>();
    {
        Open_Facade io;
        ASSERT_TRUE(io.connect_plain(std::make_unique<Starving_IO>(log)));
        log->open = true;
    }
    EXPECT_TRUE(log->destroyed);
}

} // namespace
