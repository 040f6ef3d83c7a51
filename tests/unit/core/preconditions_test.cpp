#include "client_io/client_io.h"
#include "platform/json/json_value.h"
#include "tests/support/log_capture.h"
#include "tests/support/open_facade.h"

#include <ace/Log_Priority.h>

#include <functional>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

namespace
{

/// A call that breaks a precondition, and the condition that the log must name.
struct Broken_Call
{
    const char* name;
    const char* condition;
    std::function<bool(Client_IO&)> call; ///< returns whether the operation failed as it must
};

std::ostream& operator<<(std::ostream& out, const Broken_Call& broken)
{
    return out << broken.name;
}

constexpr const char* null = nullptr;
constexpr const char* buff_null = "buff is NULL";
constexpr const char* path_empty = "path is NULL or \"\"";
constexpr const char* remote_empty = "remote is NULL or \"\"";
constexpr const char* local_empty = "local is NULL or \"\"";
constexpr const char* src_empty = "src is NULL or \"\"";
constexpr const char* dest_empty = "dest is NULL or \"\"";

bool get_dir(Client_IO& io, const char* path)
{
    std::vector<Client_IO_Base::Directory_Entry> entries;
    return !io.get_dir(path, entries) && entries.empty();
}

bool get_contents(Client_IO& io, const char* path)
{
    std::string out = "kept";
    return !io.get_contents(path, out) && out == "kept";
}

bool put_stream(Client_IO& io, const char* path)
{
    std::istringstream in("data");
    return !io.put_stream(in, path, true) && in.tellg() == std::streampos(0);
}

const std::vector<Broken_Call> broken_calls = {
    {"ReadIntoNull", buff_null, [](auto& io) { return io.read(nullptr, 5) == -1; }},
    {"ReadOfNoBytesIntoNull", buff_null, [](auto& io) { return io.read(nullptr, 0) == -1; }},
    {"ReadOfNoBytes", "size=0 <= 0",
     [](auto& io) {
         char byte = 'x';
         return io.read(&byte, 0) == -1 && byte == 'x';
     }},
    {"WriteOfNull", buff_null, [](auto& io) { return !io.write(nullptr, 5); }},
    {"WriteOfNoBytesOfNull", buff_null, [](auto& io) { return !io.write(nullptr, 0); }},
    {"OpenOfNull", path_empty, [](auto& io) { return !io.open(null, 1, 0, 0); }},
    {"OpenOfEmpty", path_empty, [](auto& io) { return !io.open("", 1, 0, 0); }},
    {"GetContentsOfNull", path_empty, [](auto& io) { return get_contents(io, nullptr); }},
    {"GetContentsOfEmpty", path_empty, [](auto& io) { return get_contents(io, ""); }},
    {"PutContentsToNull", path_empty,
     [](auto& io) { return !io.put_contents(null, std::string("x"), true); }},
    {"PutContentsToEmpty", path_empty,
     [](auto& io) { return !io.put_contents("", std::string("x"), true); }},
    {"GetFileOfNull", remote_empty,
     [](auto& io) { return !io.get_file(nullptr, "local", 0, 0, {}); }},
    {"GetFileOfEmpty", remote_empty, [](auto& io) { return !io.get_file("", "local", 0, 0, {}); }},
    {"GetFileToNull", local_empty, [](auto& io) { return !io.get_file("a", nullptr, 0, 0, {}); }},
    {"GetFileToEmpty", local_empty, [](auto& io) { return !io.get_file("a", "", 0, 0, {}); }},
    {"GetFileOfNullToNull", remote_empty,
     [](auto& io) { return !io.get_file(nullptr, nullptr, 0, 0, {}); }},
    {"PutFileToNull", remote_empty,
     [](auto& io) { return !io.put_file(nullptr, "local", true, 0, 0, {}); }},
    {"PutFileToEmpty", remote_empty,
     [](auto& io) { return !io.put_file("", "local", true, 0, 0, {}); }},
    {"PutFileOfNull", local_empty,
     [](auto& io) { return !io.put_file("a", nullptr, true, 0, 0, {}); }},
    {"PutFileOfEmpty", local_empty, [](auto& io) { return !io.put_file("a", "", true, 0, 0, {}); }},
    {"PutStreamToNull", remote_empty, [](auto& io) { return put_stream(io, nullptr); }},
    {"PutStreamToEmpty", remote_empty, [](auto& io) { return put_stream(io, ""); }},
    {"GetDirOfNull", "path is NULL", [](auto& io) { return get_dir(io, nullptr); }},
    {"MakeDirOfNull", path_empty, [](auto& io) { return !io.make_dir(nullptr, 0750); }},
    {"MakeDirOfEmpty", path_empty, [](auto& io) { return !io.make_dir("", 0750); }},
    {"TruncateOfNull", path_empty, [](auto& io) { return !io.truncate(nullptr, 0); }},
    {"TruncateOfEmpty", path_empty, [](auto& io) { return !io.truncate("", 0); }},
    {"RemoveOfNull", path_empty, [](auto& io) { return !io.remove(nullptr); }},
    {"RemoveOfEmpty", path_empty, [](auto& io) { return !io.remove(""); }},
    {"CopyOfNull", src_empty, [](auto& io) { return !io.copy(nullptr, "b", true); }},
    {"CopyOfEmpty", src_empty, [](auto& io) { return !io.copy("", "b", true); }},
    {"CopyToNull", dest_empty, [](auto& io) { return !io.copy("a", nullptr, true); }},
    {"CopyToEmpty", dest_empty, [](auto& io) { return !io.copy("a", "", true); }},
    {"CopyOfNullToNull", src_empty, [](auto& io) { return !io.copy(nullptr, nullptr, true); }},
    {"RenameOfNull", src_empty, [](auto& io) { return !io.rename(nullptr, "b", true); }},
    {"RenameOfEmpty", src_empty, [](auto& io) { return !io.rename("", "b", true); }},
    {"RenameToNull", dest_empty, [](auto& io) { return !io.rename("a", nullptr, true); }},
    {"RenameToEmpty", dest_empty, [](auto& io) { return !io.rename("a", "", true); }},
};

/// One message of emergency priority that names the condition and a place in @p source.
void expect_logged(const Log_Capture& capture, const std::string& source,
                   const std::string& condition)
{
    ASSERT_EQ(capture.messages().size(), 1U);
    const Log_Capture::Message& message = capture.messages()[0];
    EXPECT_EQ(message.priority, static_cast<unsigned long>(LM_EMERGENCY));
    const std::string start = "Unexpected error in backup/client_io/";
    ASSERT_TRUE(message.text.starts_with(start)) << message.text;
    // Behind the source file stand the line, the condition and, on lines of its own, the stack.
    const std::string rest = message.text.substr(start.size());
    const std::size_t colon = rest.find(':');
    ASSERT_NE(colon, std::string::npos) << message.text;
    EXPECT_TRUE(std::regex_match(rest.substr(0, colon), std::regex(source))) << message.text;
    const std::size_t comma = rest.find(", ");
    ASSERT_NE(comma, std::string::npos) << message.text;
    EXPECT_GT(std::stoi(rest.substr(colon + 1, comma - colon - 1)), 0);
    EXPECT_EQ(rest.substr(comma + 2, rest.find('\n') - comma - 1), condition + ":\n");
    EXPECT_EQ(message.text.back(), '\n');
}

class Preconditions : public testing::TestWithParam<Broken_Call>
{};

INSTANTIATE_TEST_SUITE_P(Of, Preconditions, testing::ValuesIn(broken_calls),
                         [](const testing::TestParamInfo<Broken_Call>& tested) {
                             return tested.param.name;
                         });

TEST_P(Preconditions, AreLoggedWithTheirPlaceAndLeaveTheErrorAlone)
{
    Recorded_Facade facade;
    facade.io.error_ = "what was there before";
    const Log_Capture capture;
    EXPECT_TRUE(GetParam().call(facade.io));
    expect_logged(capture, "client_io(_[a-z]+)?\\.cpp", GetParam().condition);
    EXPECT_EQ(facade.io.error(), "what was there before");
    EXPECT_TRUE(facade.log->actions().empty());
}

TEST_P(Preconditions, AreCheckedBeforeTheConnection)
{
    Client_IO io;
    const Log_Capture capture;
    EXPECT_TRUE(GetParam().call(io));
    expect_logged(capture, "client_io(_[a-z]+)?\\.cpp", GetParam().condition);
    EXPECT_EQ(io.error(), "");
}

TEST(Preconditions_Of_Open, WithExtraSettingsNeedAPathToo)
{
    Recorded_Facade facade;
    for (const char* path : {null, ""}) {
        const Log_Capture capture;
        EXPECT_FALSE(facade.io.open(path, 1, json_spirit::Value()));
        expect_logged(capture, "client_io\\.cpp", path_empty);
    }
    EXPECT_TRUE(facade.log->actions().empty());
}

TEST(Preconditions_Of_Open, AreNoReasonToCloseTheOpenFile)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("a", 2, 10, 0));
    const Log_Capture capture;
    EXPECT_FALSE(facade.io.open("", 1, 0, 0));
    EXPECT_TRUE(facade.io.is_open());
    EXPECT_EQ(facade.io.tell(), 10);
    EXPECT_TRUE(facade.io.writable());
}

TEST(Preconditions_Of_Reads, AreNotLoggedForCallsThatKeepThem)
{
    Recorded_Facade facade;
    const Log_Capture capture;
    char byte = 0;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    EXPECT_TRUE(facade.io.write(&byte, 0));
    EXPECT_TRUE(facade.io.write(&byte, 1));
    ASSERT_TRUE(facade.io.open("a", 1, 0, 0));
    EXPECT_EQ(facade.io.read(&byte, 1), 0);
    ASSERT_TRUE(facade.io.close());
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(facade.io.get_dir("", entries));
    EXPECT_TRUE(capture.messages().empty());
}

TEST(Preconditions_Of_Options, NameTheKeyOrTheValue)
{
    constexpr const char* key_empty = "key is NULL or \"\"";
    const auto check = [](const char* condition,
                          const std::function<void(Client_IO_Base::Options&)>& call) {
        Client_IO_Base::Options options;
        options.set_extra_option("there", "before");
        const Log_Capture capture;
        call(options);
        expect_logged(capture, "client_io(_[a-z]+)?\\.cpp", condition);
        EXPECT_EQ(options.extra_options, (std::map<std::string, std::string>{{"there", "before"}}));
    };
    check(key_empty, [](auto& o) { o.set_extra_option(nullptr, "value"); });
    check(key_empty, [](auto& o) { o.set_extra_option("", "value"); });
    check(key_empty, [](auto& o) { o.set_extra_option(nullptr, std::string("value")); });
    check(key_empty, [](auto& o) { o.set_extra_option("", std::string("value")); });
    check(key_empty, [](auto& o) { o.set_extra_option(nullptr, null); });
    check("value is NULL", [](auto& o) { o.set_extra_option("key", null); });
    check("val is NULL", [](auto& o) { o.set_d2t_rpc_host(nullptr); });
    std::string value = "untouched";
    check(key_empty, [&](auto& o) { EXPECT_FALSE(o.get_extra_option(nullptr, value)); });
    check(key_empty, [&](auto& o) { EXPECT_FALSE(o.get_extra_option("", value)); });
    EXPECT_EQ(value, "untouched");
}

TEST(Preconditions_Of_Options, AnAbsentOptionIsNotLogged)
{
    const Client_IO_Base::Options options;
    const Log_Capture capture;
    std::string value;
    EXPECT_FALSE(options.get_extra_option("absent", value));
    EXPECT_EQ(options.get_d2t_rpc_port(), 50309);
    EXPECT_TRUE(capture.messages().empty());
}

} // namespace
