#include "client_io/util.h"

#include "platform/json/json_value.h"
#include "tests/support/allocation_count.h"
#include "tests/support/log_capture.h"
#include "tests/support/memory_io.h"
#include "tests/support/open_facade.h"

#include <ace/Log_Priority.h>
#include <ace/OS_NS_errno.h>

#include <cerrno>
#include <cinttypes>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

namespace
{

/// The lines logged since the capture began, as "PRIORITY TEXT".
std::vector<std::string> lines(const Log_Capture& log)
{
    std::vector<std::string> result;
    for (const auto& [priority, text] : log.messages()) {
        const char* const name = priority == LM_ERROR       ? "error "
                                 : priority == LM_WARNING   ? "warning "
                                 : priority == LM_EMERGENCY ? "emergency "
                                                            : "other ";
        result.push_back(name + text);
    }
    return result;
}

/// A facade over storage in memory.
struct Memory_Facade
{
    Memory_Facade()
    {
        EXPECT_TRUE(
            io.connect_plain(std::make_unique<Memory_IO>(std::make_shared<Memory_File_System>())));
    }

    std::string contents(const char* path)
    {
        std::string text;
        EXPECT_TRUE(io.get_contents(path, text)) << io.error();
        return text;
    }

    Open_Facade io;
};

/// A facade whose operation @p name fails with @p error.
struct Failing_Facade : Recorded_Facade
{
    explicit Failing_Facade(const char* name, std::string error = "no such thing")
    {
        log->failing = {name};
        log->error = std::move(error);
    }
};

/// A backend that is open or not and allocates nothing.
class Bare_IO : public Recording_IO
{
public:
    using Recording_IO::size;

    Bare_IO() : Recording_IO(std::make_shared<Recording>()) {}

    bool connect(const URI&, const Options&) override { return true; }
    bool is_connected() const override { return true; }
    bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override
    {
        is_open_ = true;
        return true;
    }
    bool is_open() const override { return is_open_; }
    bool write(const void*, std::uint64_t size) override
    {
        written += size;
        return true;
    }
    bool close() override
    {
        is_open_ = false;
        ++closed;
        return true;
    }

    std::uint64_t written = 0;
    int closed = 0;

private:
    bool is_open_ = false;
};

struct Bare_Facade
{
    Bare_Facade()
    {
        auto backend = std::make_unique<Bare_IO>();
        below = backend.get();
        EXPECT_TRUE(io.connect_plain(std::move(backend)));
    }

    Open_Facade io;
    Bare_IO* below = nullptr;
};

TEST(Client_IO_Write_Format, ATextOfAnyLengthIsWrittenWhole)
{
    Memory_Facade target;
    const Log_Capture log;
    for (const std::size_t length :
         {0U, 1U, 258U, 259U, 260U, 261U, 262U, 519U, 520U, 521U, 522U, 523U, 1U << 20U})
    {
        std::string expected(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            expected[i] = static_cast<char>('a' + i % 23);
        EXPECT_TRUE(client_io_write_format(target.io, "a", "%s", expected.c_str())) << length;
        EXPECT_EQ(target.contents("a"), expected) << length;
    }
    EXPECT_THAT(lines(log), ElementsAre());
}

TEST(Client_IO_Write_Format, EveryKindOfArgumentIsFormattedOnceMoreForALongText)
{
    Memory_Facade target;
    for (const int width : {1, 300}) {
        EXPECT_TRUE(client_io_write_format(target.io, "a", "%*d %s %.2f %c %" PRIu64 " %zx %lld",
                                           width, 7, "text", 0.5, 'c', UINT64_MAX, std::size_t{255},
                                           LLONG_MIN));
        EXPECT_EQ(target.contents("a"),
                  std::string(static_cast<std::size_t>(width) - 1, ' ') +
                      "7 text 0.50 c 18446744073709551615 ff -9223372036854775808");
    }
}

TEST(Client_IO_Write_Format, TwoPercentSignsAreOne)
{
    Memory_Facade target;
    EXPECT_TRUE(client_io_write_format(target.io, "a", "100%%"));
    EXPECT_EQ(target.contents("a"), "100%");
}

TEST(Client_IO_Write_Format, ArgumentsAreNotTakenForFormats)
{
    Memory_Facade target;
    EXPECT_TRUE(client_io_write_format(target.io, "a", "%s", "%n%s%d"));
    EXPECT_EQ(target.contents("a"), "%n%s%d");
}

TEST(Client_IO_Write_Format, AnExistingFileIsReplaced)
{
    Memory_Facade target;
    EXPECT_TRUE(client_io_write_format(target.io, "a", "a long text"));
    EXPECT_TRUE(client_io_write_format(target.io, "a", "short"));
    EXPECT_EQ(target.contents("a"), "short");
}

TEST(Client_IO_Write_Format, ALongTextWithoutMemoryIsAnEmptyFile)
{
    Bare_Facade target;
    const std::string text(1000, 'x');
    {
        const Allocation_Failure no_memory(0);
        EXPECT_TRUE(client_io_write_format(target.io, "a", "%s", text.c_str()));
    }
    EXPECT_EQ(target.below->written, 0U);
    EXPECT_EQ(target.below->closed, 1);
}

TEST(Client_IO_Write_Format, ATextOf259CharactersNeedsNoMemory)
{
    Bare_Facade target;
    const std::string text(259, 'x');
    const Allocation_Count count;
    EXPECT_TRUE(client_io_write_format(target.io, "a", "%s", text.c_str()));
    EXPECT_EQ(count.allocations(), 0U);
    EXPECT_EQ(target.below->written, 259U);
}

TEST(Client_IO_Write_Format, AFailureIsOneLineWithThePathAndTheReason)
{
    for (const char* const operation : {"open", "write", "close"}) {
        Failing_Facade target(operation);
        const Log_Capture log;
        EXPECT_FALSE(client_io_write_format(target.io, "dir/a", "text")) << operation;
        EXPECT_THAT(lines(log),
                    ElementsAre("error Failed to write to dir/a by client io, no such thing\n"));
        EXPECT_EQ(target.io.error(), "no such thing");
    }
}

TEST(Client_IO_Write_Format, TextsOfOthersAreNotFormatsInTheLog)
{
    Failing_Facade target("open", "50% %s%n%m full");
    const Log_Capture log;
    EXPECT_FALSE(client_io_write_format(target.io, "%s%n", "text"));
    EXPECT_THAT(lines(log),
                ElementsAre("error Failed to write to %s%n by client io, 50% %s%n%m full\n"));
}

TEST(Client_IO_Write_Format, AReasonLongerThanALineOfTheLogIsCut)
{
    Failing_Facade target("open", std::string(100000, 'x'));
    const Log_Capture log;
    EXPECT_FALSE(client_io_write_format(target.io, "a", "text"));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_THAT(log.messages()[0].text, StartsWith("Failed to write to a by client io, xxxxx"));
}

TEST(Client_IO_Write_Format, NoFormatIsABrokenPrecondition)
{
    Recorded_Facade target;
    const Log_Capture log;
    const char* const format = nullptr;
    EXPECT_FALSE(client_io_write_format(target.io, "a", format));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].priority, LM_EMERGENCY);
    EXPECT_THAT(log.messages()[0].text, HasSubstr("format is NULL"));
    EXPECT_THAT(target.log->actions(), ElementsAre());
}

TEST(Client_IO_Write_Format, NoPathFails)
{
    Recorded_Facade target;
    const Log_Capture log;
    EXPECT_FALSE(client_io_write_format(target.io, nullptr, "text"));
    EXPECT_FALSE(client_io_write_format(target.io, "", "text"));
    EXPECT_THAT(target.log->actions(), ElementsAre());
}

TEST(Client_IO_Write_JSON, AValueIsWrittenOnOneLine)
{
    Memory_Facade target;
    json_spirit::Value value;
    ASSERT_TRUE(loads_json(R"({ "b": [1, null, true], "a": "text" })", value));
    EXPECT_TRUE(client_io_write_json(target.io, "a", value));
    EXPECT_EQ(target.contents("a"), JSON_Dump(value, false));
    EXPECT_EQ(target.contents("a").find('\n'), std::string::npos);
    json_spirit::Value again;
    EXPECT_TRUE(client_io_read_json(target.io, "a", again));
    EXPECT_EQ(again, value);
}

TEST(Client_IO_Write_JSON, AnExistingFileIsReplaced)
{
    Memory_Facade target;
    EXPECT_TRUE(client_io_write_json(target.io, "a", "a long text"));
    EXPECT_TRUE(client_io_write_json(target.io, "a", 1));
    EXPECT_EQ(target.contents("a"), "1");
}

TEST(Client_IO_Write_JSON, AFailureIsOneLineWithThePathAndTheReason)
{
    for (const char* const operation : {"open", "write", "close"}) {
        Failing_Facade target(operation);
        const Log_Capture log;
        EXPECT_FALSE(client_io_write_json(target.io, "dir/a", 1)) << operation;
        EXPECT_THAT(lines(log),
                    ElementsAre("error Failed to write to dir/a by client io, no such thing\n"));
    }
}

TEST(Client_IO_Write_JSON, OutOfMemoryIsAFailureAndNoException)
{
    Bare_Facade target;
    const json_spirit::Value value = std::string(1000, 'x');
    bool done = true;
    ACE_OS::last_error(0);
    {
        const Allocation_Failure no_memory(0);
        EXPECT_NO_THROW(done = client_io_write_json(target.io, "a", value));
    }
    EXPECT_FALSE(done);
    EXPECT_EQ(ACE_OS::last_error(), ENOMEM);
    EXPECT_EQ(target.below->closed, 0);
}

TEST(Client_IO_Read_JSON, AValueIsRead)
{
    Memory_Facade target;
    ASSERT_TRUE(target.io.put_contents("a", " {\"name\": [1, 2]}\n", true));
    json_spirit::Value value;
    EXPECT_TRUE(client_io_read_json(target.io, "a", value));
    EXPECT_EQ(JSON_Dump(value["name"], false), "[1,2]");
}

TEST(Client_IO_Read_JSON, WhatIsNoJSONFailsInSilenceAndLeavesTheValue)
{
    Memory_Facade target;
    const Log_Capture log;
    for (const char* const text : {"", "{", "{\"a\": 1} x", "\xFF"}) {
        ASSERT_TRUE(target.io.put_contents("a", std::string(text), true));
        json_spirit::Value value = "before";
        EXPECT_FALSE(client_io_read_json(target.io, "a", value)) << text;
        EXPECT_EQ(value, "before") << text;
    }
    EXPECT_THAT(lines(log), ElementsAre());
}

TEST(Client_IO_Read_JSON, AFailureIsOneLineWithThePathAndTheReasonAndLeavesTheValue)
{
    for (const char* const operation : {"open", "read_block", "close"}) {
        Failing_Facade target(operation);
        target.log->blocks = {"1"};
        const Log_Capture log;
        json_spirit::Value value = "before";
        EXPECT_FALSE(client_io_read_json(target.io, "dir/a", value)) << operation;
        EXPECT_THAT(lines(log),
                    ElementsAre("error Failed to read from dir/a by client io, no such thing\n"));
        EXPECT_EQ(value, "before");
    }
}

TEST(Client_IO_Read_Int, TheNumberAtTheBeginningOfTheTextIsRead)
{
    struct Known
    {
        std::string text;
        int value;
    };
    const Known texts[] = {
        {"42", 42},
        {"42abc", 42},
        {"42\n", 42},
        {"", 0},
        {"-7", -7},
        {"+7", 7},
        {"  \t\r\n 12", 12},
        {"abc", 0},
        {"-", 0},
        {"- 7", 0},
        {"007", 7},
        {"0x10", 0},
        {"1.9", 1},
        {"2147483647", INT_MAX},
        {"-2147483648", INT_MIN},
        {std::string("1\0002", 3), 1},
    };
    Memory_Facade target;
    const Log_Capture log;
    for (const auto& [text, expected] : texts) {
        ASSERT_TRUE(target.io.put_contents("a", text, true));
        int value = 12345;
        EXPECT_TRUE(client_io_read_int(target.io, "a", value)) << text;
        EXPECT_EQ(value, expected) << text;
    }
    EXPECT_THAT(lines(log), ElementsAre());
}

TEST(Client_IO_Read_Int, ANumberBeyondTheTypeIsTheNearestOne)
{
    Memory_Facade target;
    for (const char* const digits :
         {"2147483648", "999999999999", "9223372036854775808", "99999999999999999999999999"})
    {
        int value = 0;
        ASSERT_TRUE(target.io.put_contents("a", std::string(digits), true));
        EXPECT_TRUE(client_io_read_int(target.io, "a", value));
        EXPECT_EQ(value, INT_MAX) << digits;
        ASSERT_TRUE(target.io.put_contents("a", std::string("-") + digits + '0', true));
        EXPECT_TRUE(client_io_read_int(target.io, "a", value));
        EXPECT_EQ(value, INT_MIN) << digits;
    }
}

TEST(Client_IO_Read_Int, AFailureIsTheReasonAloneAndLeavesTheValue)
{
    for (const char* const operation : {"open", "read_block", "close"}) {
        Failing_Facade target(operation);
        target.log->blocks = {"1"};
        const Log_Capture log;
        int value = 42;
        EXPECT_FALSE(client_io_read_int(target.io, "dir/a", value)) << operation;
        EXPECT_THAT(lines(log), ElementsAre("error no such thing\n"));
        EXPECT_EQ(value, 42);
    }
}

/// Options as a caller may have made them before.
Client_IO_Base::Options used_options()
{
    Client_IO_Base::Options options;
    EXPECT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_128_CTR, std::string(16, 'o'),
                                                   std::string(16, 'p')));
    options.access_key = "old access";
    options.secret_key = "old secret";
    options.preferred_source_address = "127.0.0.9";
    options.node_addrs = {{1, "old node"}, {9, "old node 9"}};
    options.extra_options = {{"old", "stays"}, {"region", "old region"}};
    options.socket_timeout = 7;
    return options;
}

Pool_Info sample_pool()
{
    Pool_Info pool;
    pool.crypt_algorithm = ENCRYPTION_AES_256_CBC;
    // Zeros are bytes like any other.
    pool.crypt_key = std::string(31, 'k') + '\0';
    pool.crypt_iv = '\0' + std::string(15, 'i');
    pool.preferred_source_address = "127.0.0.1";
    pool.options = {{"access_key", "id of a user"},
                    {"secret_key", "word of a user"},
                    {"region", "north"},
                    {"empty", ""}};
    pool.node_addrs = {{1, "10.0.0.1"}, {-2, "10.0.0.2"}};
    pool.dedup_backend_type = "disk";
    return pool;
}

std::string dump(const Client_IO_Base::Options& options)
{
    json_spirit::Object object;
    options >> object;
    return JSON_Dump(object, false);
}

/// The address of no host, in a form that is refused without asking anybody.
const std::string no_address = "no such host." + std::string(300, 'x');

TEST(Set_Options_By_Pool, EveryFieldIsTakenOver)
{
    const Pool_Info pool = sample_pool();
    Client_IO_Base::Options options;
    const Log_Capture log;
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_AES_256_CBC);
    EXPECT_EQ(
        std::string(options.encryption_key, options.encryption_key + options.encryption_key_len),
        pool.crypt_key);
    EXPECT_EQ(std::string(options.encryption_iv, options.encryption_iv + options.encryption_iv_len),
              pool.crypt_iv);
    EXPECT_EQ(options.access_key, "id of a user");
    EXPECT_EQ(options.secret_key, "word of a user");
    EXPECT_EQ(options.preferred_source_address, "127.0.0.1");
    EXPECT_EQ(options.node_addrs, pool.node_addrs);
    EXPECT_THAT(options.extra_options, ElementsAre(Pair("dedup_backend_type", "disk"),
                                                   Pair("empty", ""), Pair("region", "north")));
    EXPECT_THAT(lines(log), ElementsAre());
}

TEST(Set_Options_By_Pool, WhatThePoolDoesNotNameStays)
{
    Client_IO_Base::Options options = used_options();
    Pool_Info pool = sample_pool();
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_EQ(options.socket_timeout, 7);
    EXPECT_THAT(options.extra_options,
                ElementsAre(Pair("dedup_backend_type", "disk"), Pair("empty", ""),
                            Pair("old", "stays"), Pair("region", "north")));
    EXPECT_EQ(options.node_addrs, pool.node_addrs) << "replaced as a whole";
}

TEST(Set_Options_By_Pool, AnEmptyPoolTakesEncryptionAndNodesAway)
{
    Client_IO_Base::Options options = used_options();
    EXPECT_TRUE(set_options_by_pool(options, Pool_Info()));
    EXPECT_EQ(options.encryption_algorithm, ENCRYPTION_NONE);
    EXPECT_EQ(options.encryption_key_len, 0U);
    EXPECT_EQ(options.encryption_iv_len, 0U);
    EXPECT_TRUE(options.node_addrs.empty());
    EXPECT_EQ(options.access_key, "old access");
    EXPECT_EQ(options.secret_key, "old secret");
    EXPECT_EQ(options.preferred_source_address, "127.0.0.9");
    EXPECT_EQ(options.extra_options, used_options().extra_options);
}

TEST(Set_Options_By_Pool, RefusedEncryptionLeavesEverythingAsItWas)
{
    struct Refused
    {
        const char* what;
        std::string key;
        std::string iv;
    };
    const Refused cases[] = {
        {"no key", "", std::string(16, 'i')},
        {"a key of 65 bytes", std::string(65, 'k'), std::string(16, 'i')},
        {"an IV of 17 bytes", std::string(32, 'k'), std::string(17, 'i')},
    };
    for (const auto& [what, key, iv] : cases) {
        for (const bool used : {false, true}) {
            Pool_Info pool = sample_pool();
            pool.crypt_key = key;
            pool.crypt_iv = iv;
            Client_IO_Base::Options options = used ? used_options() : Client_IO_Base::Options();
            const std::string before = dump(options);
            const Log_Capture log;
            EXPECT_FALSE(set_options_by_pool(options, pool)) << what;
            EXPECT_EQ(dump(options), before) << what;
            EXPECT_THAT(lines(log), ElementsAre()) << what;
        }
    }
}

TEST(Set_Options_By_Pool, APoolOptionGoesBeforeTheBackendTypeOfTheSameName)
{
    Pool_Info pool;
    pool.dedup_backend_type = "disk";
    pool.options = {{"dedup_backend_type", "of the options"}};
    Client_IO_Base::Options options;
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_THAT(options.extra_options, ElementsAre(Pair("dedup_backend_type", "of the options")));
}

TEST(Set_Options_By_Pool, AnEmptyBackendTypeIsNoOption)
{
    Client_IO_Base::Options options;
    EXPECT_TRUE(set_options_by_pool(options, Pool_Info()));
    EXPECT_THAT(options.extra_options, ElementsAre());
}

TEST(Set_Options_By_Pool, AnOptionWithoutANameIsLoggedAndLeftOut)
{
    Pool_Info pool;
    pool.options = {{"", "a value"}, {"region", "north"}};
    Client_IO_Base::Options options;
    const Log_Capture log;
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_THAT(options.extra_options, ElementsAre(Pair("region", "north")));
    ASSERT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(log.messages()[0].priority, LM_EMERGENCY);
    EXPECT_EQ(log.messages()[0].text.find("a value"), std::string::npos);
}

TEST(Set_Options_By_Pool, AddressesAndNamesAreTakenAsTheyAreWritten)
{
    for (const char* const address : {"127.0.0.1", "localhost"}) {
        Pool_Info pool;
        pool.preferred_source_address = address;
        Client_IO_Base::Options options;
        const Log_Capture log;
        EXPECT_TRUE(set_options_by_pool(options, pool));
        EXPECT_EQ(options.preferred_source_address, address);
        EXPECT_THAT(lines(log), ElementsAre());
    }
}

TEST(Set_Options_By_Pool, AnAddressThatCannotBeFoundIsWarnedAboutAndTheOtherOneStays)
{
    Pool_Info pool = sample_pool();
    pool.preferred_source_address = no_address;
    Client_IO_Base::Options options = used_options();
    const Log_Capture log;
    EXPECT_TRUE(set_options_by_pool(options, pool));
    EXPECT_EQ(options.preferred_source_address, "127.0.0.9");
    EXPECT_EQ(options.node_addrs, pool.node_addrs);
    EXPECT_EQ(options.secret_key, "word of a user");
    EXPECT_THAT(lines(log), ElementsAre("warning Failed to resolve preferred_source_address: '" +
                                        no_address + "', use default address.\n"));
}

TEST(Set_Options_By_Pool, OutOfMemoryIsAFailureAndNoException)
{
    Pool_Info pool = sample_pool();
    pool.preferred_source_address.clear(); // the system's look-up has memory of its own
    std::size_t allowed = 0;
    for (bool done = false; !done; ++allowed) {
        ASSERT_LT(allowed, 1000U);
        Client_IO_Base::Options options;
        ACE_OS::last_error(0);
        {
            const Allocation_Failure no_memory(allowed);
            EXPECT_NO_THROW(done = set_options_by_pool(options, pool));
        }
        EXPECT_EQ(ACE_OS::last_error(), done ? 0 : ENOMEM);
    }
    EXPECT_GT(allowed, 5U) << "the options of the sample take more";
}

} // namespace
