#include "client_io/pipe_io.h"
#include "platform/json/json_value.h"
#include "tests/support/open_facade.h"
#include "tests/support/virtual_slots.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

namespace
{

using Entries = std::vector<Client_IO_Base::Directory_Entry>;
using json_spirit::Value;

// Arguments that must arrive below as they are.
char buffer[16];
const void* const bytes = buffer;
const URI uri;
const Client_IO_Base::Options options;
const Value extra;
Entries entries;

template <class... Parts>
std::string text(const Parts&... parts)
{
    std::ostringstream out;
    out << std::boolalpha;
    ((out << parts << ' '), ...);
    return out.str();
}

/// One operation of a Pipe_IO and what it must do.
struct Operation
{
    const char* name;
    std::ptrdiff_t slot;
    /// Calls it and returns its result, and what it put into its arguments, as text.
    std::function<std::string(Pipe_IO&)> call;
    std::string forwarded; ///< the one call that the lower layer gets
    std::string succeeded; ///< result above a lower layer that succeeds
    std::string failed;    ///< result above a lower layer that fails
    std::string alone;     ///< result without a lower layer
};

std::string size_text(std::uint64_t size)
{
    return text(size);
}

const std::string unknown = size_text(Client_IO_Base::size_unknown);
const std::string yes = text(true);
const std::string no = text(false);

/// Every operation. A new virtual function must be added here, or the check of the list fails.
const std::vector<Operation> operations = {
    {"read", slot_of<std::int64_t (Pipe_IO::*)(void*, std::uint64_t)>(&Pipe_IO::read),
     [](Pipe_IO& io) { return text(io.read(buffer, 9)); },
     call_text("read", static_cast<void*>(buffer), 9), text(6), text(-1), text(-1)},
    {"write", slot_of(&Pipe_IO::write), [](Pipe_IO& io) { return text(io.write(bytes, 9)); },
     call_text("write", bytes, 9), yes, no, no},
    {"size", slot_of<std::uint64_t (Pipe_IO::*)() const>(&Pipe_IO::size),
     [](Pipe_IO& io) { return text(io.size()); }, "size()", text(11), unknown, unknown},
    {"connect", slot_of(&Pipe_IO::connect),
     [](Pipe_IO& io) { return text(io.connect(uri, options)); },
     call_text("connect", &uri, &options), yes, no, no},
    {"reconnect", slot_of(&Pipe_IO::reconnect), [](Pipe_IO& io) { return text(io.reconnect()); },
     "reconnect()", yes, no, no},
    {"is_connected", slot_of(&Pipe_IO::is_connected),
     [](Pipe_IO& io) { return text(io.is_connected()); }, "is_connected()", yes, no, no},
    {"disconnect", slot_of(&Pipe_IO::disconnect),
     [](Pipe_IO& io) {
         io.disconnect();
         return text("done");
     },
     "disconnect()", text("done"), text("done"), text("done")},
    {"open",
     slot_of<bool (Pipe_IO::*)(const char*, unsigned, std::uint64_t, std::uint64_t)>(
         &Pipe_IO::open),
     [](Pipe_IO& io) { return text(io.open("p", 0x102, 33, 44)); }, "open(p, 258, 33, 44)", yes, no,
     no},
    {"open with extra settings",
     slot_of<bool (Pipe_IO::*)(const char*, unsigned, const Value&)>(&Pipe_IO::open),
     [](Pipe_IO& io) { return text(io.open("p", 4, extra)); }, call_text("open", "p", 4, &extra),
     yes, no, no},
    {"is_open", slot_of(&Pipe_IO::is_open), [](Pipe_IO& io) { return text(io.is_open()); },
     "is_open()", yes, no, no},
    {"close", slot_of(&Pipe_IO::close), [](Pipe_IO& io) { return text(io.close()); }, "close()",
     yes, no, no},
    {"zero-copy read", slot_of<bool (Pipe_IO::*)(const void*&, std::uint64_t&)>(&Pipe_IO::read),
     [](Pipe_IO& io) {
         const void* data = "before";
         std::uint64_t size = 6;
         const bool result = io.read(data, size);
         return text(result, std::string(static_cast<const char*>(data), size));
     },
     "read_block()", text(true, "abcdef"), text(false, "before"), text(false, "before")},
    {"flush", slot_of(&Pipe_IO::flush), [](Pipe_IO& io) { return text(io.flush()); }, "flush()",
     yes, no, no},
    {"seek", slot_of(&Pipe_IO::seek), [](Pipe_IO& io) { return text(io.seek(33, 44)); },
     "seek(33, 44)", yes, no, no},
    {"original_size", slot_of(&Pipe_IO::original_size),
     [](Pipe_IO& io) { return text(io.original_size()); }, "size()", text(11), unknown, unknown},
    {"storage_size", slot_of(&Pipe_IO::storage_size),
     [](Pipe_IO& io) { return text(io.storage_size()); }, "size()", text(11), unknown, unknown},
    {"size of a path", slot_of<std::uint64_t (Pipe_IO::*)(const char*)>(&Pipe_IO::size),
     [](Pipe_IO& io) { return text(io.size("p")); }, "path_size(p)", text(12), unknown, unknown},
    {"get_dir", slot_of(&Pipe_IO::get_dir),
     [](Pipe_IO& io) { return text(io.get_dir("p", entries)); },
     call_text("get_dir", "p", &entries), yes, no, no},
    {"make_dir", slot_of(&Pipe_IO::make_dir),
     [](Pipe_IO& io) { return text(io.make_dir("p", 33)); }, "make_dir(p, 33)", yes, no, no},
    {"truncate", slot_of(&Pipe_IO::truncate),
     [](Pipe_IO& io) { return text(io.truncate("p", 33)); }, "truncate(p, 33)", yes, no, no},
    {"remove", slot_of(&Pipe_IO::remove), [](Pipe_IO& io) { return text(io.remove("p")); },
     "remove(p)", yes, no, no},
    {"copy", slot_of(&Pipe_IO::copy), [](Pipe_IO& io) { return text(io.copy("p", "q", true)); },
     "copy(p, q, true)", yes, no, no},
    {"rename", slot_of(&Pipe_IO::rename),
     [](Pipe_IO& io) { return text(io.rename("p", "q", false)); }, "rename(p, q, false)", yes, no,
     no},
    {"errnum", slot_of(&Pipe_IO::errnum), [](Pipe_IO& io) { return text(io.errnum()); }, "errnum()",
     text(77), text(78), text(0)},
    {"error", slot_of(&Pipe_IO::error), [](Pipe_IO& io) { return text(io.error()); }, "error()",
     text("success"), text("failure"), text("")},
    {"retriable", slot_of(&Pipe_IO::retriable), [](Pipe_IO& io) { return text(io.retriable()); },
     "retriable()", yes, no, no},
    {"get_config", slot_of(&Pipe_IO::get_config),
     [](Pipe_IO& io) { return text(io.get_config("k")); }, "get_config(k)", text("value"), text(""),
     text("")},
    {"release", slot_of(&Pipe_IO::release),
     [](Pipe_IO& io) {
         const bool released = io.release() != nullptr;
         return text(released, io.release() == nullptr);
     },
     "", text(true, true), text(true, true), text(false, true)},
    {"skip", slot_of<std::int64_t (Pipe_IO::*)(std::uint64_t)>(&Pipe_IO::skip),
     [](Pipe_IO& io) { return text(io.skip(4)); }, "read_block()", text(2), text(-1), text(-1)},
    {"skip into a buffer",
     slot_of<bool (Pipe_IO::*)(std::uint64_t, void*, std::uint64_t)>(&Pipe_IO::skip),
     [](Pipe_IO& io) { return text(io.skip(4, buffer, 16)); },
     call_text("read", static_cast<void*>(buffer), 4), yes, no, no},
};

std::ostream& operator<<(std::ostream& out, const Operation& operation)
{
    return out << operation.name;
}

std::shared_ptr<Recording> succeeding()
{
    auto log = std::make_shared<Recording>();
    log->connected = log->open = log->retriable = true;
    log->stream_size = 11;
    log->path_size = 12;
    log->original = 13; // a Pipe_IO does not ask for these two
    log->storage = 14;
    log->errnum = 77;
    log->error = "success";
    log->config = "value";
    log->blocks = {"abcdef"};
    return log;
}

std::shared_ptr<Recording> failing()
{
    auto log = std::make_shared<Recording>();
    log->failing = {"read",     "write",      "connect", "reconnect", "open",
                    "close",    "read_block", "flush",   "seek",      "get_dir",
                    "make_dir", "truncate",   "remove",  "copy",      "rename"};
    log->stream_size = log->path_size = Client_IO_Base::size_unknown;
    log->errnum = 78;
    log->error = "failure";
    return log;
}

class Pipe_IO_Operations : public testing::TestWithParam<Operation>
{};

INSTANTIATE_TEST_SUITE_P(Each, Pipe_IO_Operations, testing::ValuesIn(operations),
                         [](const testing::TestParamInfo<Operation>& tested) {
                             std::string name = tested.param.name;
                             std::replace_if(
                                 name.begin(), name.end(),
                                 [](char c) { return c == ' ' || c == '-'; }, '_');
                             return name;
                         });

void expect_one_call(const Recording& log, const std::string& call)
{
    EXPECT_EQ(log.calls, call.empty() ? std::vector<std::string>{} : std::vector{call});
}

TEST_P(Pipe_IO_Operations, ForwardsItsArgumentsAndReturnsASuccess)
{
    const auto log = succeeding();
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(GetParam().call(io), GetParam().succeeded);
    expect_one_call(*log, GetParam().forwarded);
}

TEST_P(Pipe_IO_Operations, ForwardsItsArgumentsAndReturnsAFailure)
{
    const auto log = failing();
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(GetParam().call(io), GetParam().failed);
    expect_one_call(*log, GetParam().forwarded);
}

TEST_P(Pipe_IO_Operations, ReturnsItsFixedValueWithoutALowerLayer)
{
    Pipe_IO io(nullptr);
    EXPECT_EQ(GetParam().call(io), GetParam().alone);
}

TEST_P(Pipe_IO_Operations, ReturnsItsFixedValueAfterReleaseAndAsksTheReleasedLayerNothing)
{
    const auto log = succeeding();
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    const std::unique_ptr<Client_IO_Base> released = io.release();
    EXPECT_EQ(GetParam().call(io), GetParam().alone);
    expect_one_call(*log, "");
}

TEST(Pipe_IO_List, HoldsEverySlotOnce)
{
    std::vector<std::ptrdiff_t> listed;
    for (const Operation& operation : operations)
        listed.push_back(operation.slot);
    std::sort(listed.begin(), listed.end());
    std::vector<std::ptrdiff_t> expected(static_cast<std::size_t>(slot_count<Pipe_IO>() - 2));
    std::iota(expected.begin(), expected.end(), 2); // 0 and 1 are the destructors
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(listed.back(), 31);
}

TEST(Pipe_IO_Layer, WithoutALowerLayerAnswersReadAndSizeWithMinusOneErrnumWith0AndNoConfig)
{
    Pipe_IO io(nullptr);
    EXPECT_EQ(io.read(buffer, 1), -1);
    EXPECT_EQ(io.size(), Client_IO_Base::size_unknown);
    EXPECT_EQ(io.errnum(), 0);
    EXPECT_EQ(io.get_config("key"), "");
}

TEST(Pipe_IO_Layer, TheReleasedLayerStaysUsableAndOutlivesThePipe)
{
    const auto log = succeeding();
    std::unique_ptr<Client_IO_Base> released;
    {
        Pipe_IO io(std::make_unique<Recording_IO>(log));
        released = io.release();
    }
    ASSERT_NE(released, nullptr);
    EXPECT_FALSE(log->destroyed);
    EXPECT_TRUE(released->write("x", 1));
    released.reset();
    EXPECT_TRUE(log->destroyed);
}

TEST(Pipe_IO_Layer, DestroysTheLowerLayerWithItself)
{
    const auto log = succeeding();
    {
        const Pipe_IO io(std::make_unique<Recording_IO>(log));
        EXPECT_FALSE(log->destroyed);
    }
    EXPECT_TRUE(log->destroyed);
}

TEST(Pipe_IO_Layer, ItsOwnTextIsReportedEvenWhenTheLowerLayerHasOne)
{
    const auto log = failing();
    Doubling_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(io.error(), "failure");
    io.fail("the transform's own");
    EXPECT_EQ(io.error(), "the transform's own");
    EXPECT_EQ(io.errnum(), 78);
    EXPECT_FALSE(io.retriable());
    const auto released = io.release();
    EXPECT_EQ(io.error(), "the transform's own");
}

TEST(Pipe_IO_Layer, TheBackendsSizesOfItsOwnAreNotForwarded)
{
    const auto log = succeeding();
    Pipe_IO io(std::make_unique<Recording_IO>(log));
    EXPECT_EQ(io.original_size(), 11U);
    EXPECT_EQ(io.storage_size(), 11U);
    EXPECT_EQ(log->count("original_size"), 0U);
    EXPECT_EQ(log->count("storage_size"), 0U);
}

TEST(Pipe_IO_Layer, PipesCanBeStacked)
{
    const auto log = succeeding();
    Pipe_IO io(
        std::make_unique<Pipe_IO>(std::make_unique<Pipe_IO>(std::make_unique<Recording_IO>(log))));
    EXPECT_TRUE(io.write(bytes, 9));
    EXPECT_EQ(io.errnum(), 77);
    EXPECT_EQ(log->calls, (std::vector<std::string>{call_text("write", bytes, 9), "errnum()"}));
}

} // namespace
