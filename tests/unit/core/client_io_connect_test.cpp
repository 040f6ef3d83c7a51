#include "client_io/file_io.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"

#include <gtest/gtest.h>

namespace
{

struct Protocol_Schemes
{
    Client_IO::Protocol protocol;
    const char* plain;
    const char* secure;
};

/// What generate_uri() writes, by protocol number.
constexpr Protocol_Schemes written_schemes[] = {
    {Client_IO::PROTOCOL_HTTP, "http", "https"},
    {Client_IO::PROTOCOL_FTP, "ftp", "ftps"},
    {Client_IO::PROTOCOL_DEDUP, "dedup", "dedups"},
    {Client_IO::PROTOCOL_D2T, "d2t", "d2ts"},
    {Client_IO::PROTOCOL_MTF, "mtf", "mtfs"},
    {Client_IO::PROTOCOL_FILE, "file", "file"},
    {Client_IO::PROTOCOL_S3, "s3", "s3s"},
    {Client_IO::PROTOCOL_OSS, "oss", "osss"},
    {Client_IO::PROTOCOL_KSS, "kss", "ksss"},
    {Client_IO::PROTOCOL_UFILE, "ufile", "ufiles"},
    {Client_IO::PROTOCOL_COS, "cos", "coss"},
    {Client_IO::PROTOCOL_SCS, "scs", "scss"},
    {Client_IO::PROTOCOL_BTRFS, "btrfs", "btrfss"},
    {Client_IO::PROTOCOL_LANFREE, "lanfree", "lanfrees"},
    {Client_IO::PROTOCOL_SDFS, "sdfs", "sdfs"},
    {Client_IO::PROTOCOL_BLOB, "blob", "blobs"},
    {Client_IO::PROTOCOL_S3V4, "s3v4", "s3v4s"},
    {Client_IO::PROTOCOL_HBR, "hbr", "hbrs"},
    {Client_IO::PROTOCOL_OBS, "obs", "obss"},
    {Client_IO::PROTOCOL_BTRFS_HTTP, "http", "https"},
};

struct Scheme_Protocol
{
    const char* scheme;
    int protocol;
};

/// What connect() records for a scheme.
constexpr Scheme_Protocol read_schemes[] = {
    {"http", 0},  {"https", 0},  {"realtime", 0}, {"realtimes", 0}, {"sdfs", 0},   {"sdfss", 0},
    {"dedup", 2}, {"dedups", 2}, {"ws", 2},       {"wss", 2},       {"d2t", 3},    {"d2ts", 3},
    {"mtf", 4},   {"mtfs", 4},   {"s3", 6},       {"s3s", 6},       {"oss", 7},    {"osss", 7},
    {"kss", 8},   {"ksss", 8},   {"ufile", 9},    {"ufiles", 9},    {"cos", 10},   {"coss", 10},
    {"scs", 11},  {"scss", 11},  {"blob", 15},    {"blobs", 15},    {"s3v4", 16},  {"s3v4s", 16},
    {"hbr", 17},  {"hbrs", 17},  {"obs", 18},     {"obss", 18},     {"btrfs", 19}, {"btrfss", 19},
};

URI uri_of(const std::string& scheme, const std::string& path)
{
    URI uri;
    uri.scheme(scheme);
    uri.host("localhost", false);
    uri.port(1);
    uri.path(path, false);
    return uri;
}

/// Options without anything that puts a transform on the stack.
Client_IO::Options no_transforms()
{
    Client_IO::Options options;
    options.max_retry = 0;
    return options;
}

TEST(Connect, ToAFileURIReachesTheLocalFileBackend)
{
    const Temp_Directory directory;
    Open_Facade io;
    ASSERT_TRUE(io.connect(file_uri(directory.str()).c_str(), Client_IO::Options{})) << io.error();
    EXPECT_EQ(io.protocol(), Client_IO::PROTOCOL_FILE);
    EXPECT_NE(dynamic_cast<File_IO*>(io.io_.get()), nullptr);
    EXPECT_TRUE(io.is_connected());
}

TEST(Connect, ToAFileURIWithRetriesStacksNoResumption)
{
    const Temp_Directory directory;
    Client_IO::Options options;
    options.max_retry = 600;
    Open_Facade io;
    ASSERT_TRUE(io.connect(uri_of("file", directory.str()), options)) << io.error();
    EXPECT_NE(dynamic_cast<File_IO*>(io.io_.get()), nullptr);
    EXPECT_EQ(options.max_retry, 600U);
}

TEST(Connect, ByProtocolFileNeedsNeitherHostNorPort)
{
    const Temp_Directory directory;
    Client_IO io;
    EXPECT_TRUE(io.connect(Client_IO::PROTOCOL_FILE, nullptr, 0, false, directory.str().c_str(),
                           Client_IO::Options{}))
        << io.error();
    EXPECT_EQ(io.protocol(), Client_IO::PROTOCOL_FILE);
}

TEST(Connect, ThroughTheConstructorsReportsByIsConnected)
{
    const Temp_Directory directory;
    const std::string text = file_uri(directory.str());
    const Client_IO by_text(text.c_str(), Client_IO::Options{});
    EXPECT_TRUE(by_text.is_connected());
    const Client_IO by_parts(Client_IO::PROTOCOL_FILE, nullptr, 0, true, directory.str().c_str(),
                             Client_IO::Options{});
    EXPECT_TRUE(by_parts.is_connected());
    const Client_IO refused("not a URI", Client_IO::Options{});
    EXPECT_FALSE(refused.is_connected());
    EXPECT_EQ(refused.error(), "Invalid URI");
}

TEST(Connect, RecordsTheProtocolOfEachScheme)
{
    for (const auto& [scheme, protocol] : read_schemes) {
        Client_IO io;
        io.connect(uri_of(scheme, "/path"), no_transforms());
        EXPECT_EQ(static_cast<int>(io.protocol()), protocol) << scheme;
    }
}

TEST(Connect, ToASchemeWhoseBackendIsMissingFailsWithProtocolNotSupported)
{
    for (const auto& [scheme, protocol] : read_schemes) {
        if (protocol == Client_IO::PROTOCOL_HTTP || protocol == Client_IO::PROTOCOL_BTRFS_HTTP)
            continue;
        Client_IO io;
        EXPECT_FALSE(io.connect(uri_of(scheme, "/path"), Client_IO::Options{})) << scheme;
        EXPECT_EQ(io.error(), "Protocol not supported") << scheme;
        EXPECT_FALSE(io.is_connected()) << scheme;
    }
}

TEST(Connect, ToAnUnknownSchemeFailsAndKeepsTheProtocol)
{
    const Temp_Directory directory;
    for (const char* scheme : {"ftp", "ftps", "lanfree", "lanfrees", "HTTP", "Http", "FILE",
                               "files", "nfs", "s3v", "s3v4ss", "httpx"})
    {
        Client_IO io;
        ASSERT_TRUE(io.connect(uri_of("file", directory.str()), Client_IO::Options{}));
        EXPECT_FALSE(io.connect(uri_of(scheme, "/path"), Client_IO::Options{})) << scheme;
        EXPECT_EQ(io.error(), "Protocol not supported") << scheme;
        EXPECT_EQ(io.protocol(), Client_IO::PROTOCOL_FILE) << scheme;
    }
}

TEST(Connect, UpperCaseHTTPIsNotSupported)
{
    Client_IO io;
    EXPECT_FALSE(io.connect("HTTP://localhost:80/path", Client_IO::Options{}));
    EXPECT_EQ(io.error(), "Protocol not supported");
}

TEST(Connect, ByProtocolBtrfsEndsAs19)
{
    Client_IO io;
    EXPECT_FALSE(
        io.connect(Client_IO::PROTOCOL_BTRFS, "127.0.0.1", 1, true, "/path", no_transforms()));
    EXPECT_EQ(static_cast<int>(io.protocol()), 19);
    URI uri;
    ASSERT_TRUE(io.generate_uri(Client_IO::PROTOCOL_BTRFS, "host", 1, true, "/path", uri));
    EXPECT_EQ(uri.scheme(), "btrfss");
}

TEST(Connect, ByProtocolBtrfsOverHTTPAndBySDFSEndAs0)
{
    Client_IO io;
    EXPECT_FALSE(
        io.connect(Client_IO::PROTOCOL_BTRFS_HTTP, "127.0.0.1", 1, true, "/path", no_transforms()));
    EXPECT_EQ(static_cast<int>(io.protocol()), 0);
    Client_IO sdfs;
    EXPECT_FALSE(
        sdfs.connect(Client_IO::PROTOCOL_SDFS, "127.0.0.1", 1, true, "/path", no_transforms()));
    EXPECT_EQ(static_cast<int>(sdfs.protocol()), 0);
}

TEST(Connect, ByProtocolFTPAndLanfreeBuildAURIAndThenFail)
{
    for (const Client_IO::Protocol protocol :
         {Client_IO::PROTOCOL_FTP, Client_IO::PROTOCOL_LANFREE}) {
        Client_IO io;
        EXPECT_FALSE(io.connect(protocol, "host", 1, false, "/path", Client_IO::Options{}));
        EXPECT_EQ(io.error(), "Protocol not supported");
        EXPECT_EQ(io.protocol(), protocol);
    }
}

TEST(Connect, RefusesNoTextAndTextThatIsNoURI)
{
    for (const char* text : {static_cast<const char*>(nullptr), "", "no scheme", "://", "/path",
                             "http://host:99999/path", "file:///a%zz", "http://[::1/path"})
    {
        Client_IO io;
        EXPECT_FALSE(io.connect(text, Client_IO::Options{})) << (text != nullptr ? text : "NULL");
        EXPECT_EQ(io.error(), "Invalid URI") << (text != nullptr ? text : "NULL");
    }
}

TEST(Connect, RefusesURIsWithCredentialsQueryOrFragment)
{
    for (const char* text :
         {"file://user:secret@/tmp", "http://user@host/path", "file:///tmp#part", "file:///tmp?q"})
    {
        Client_IO io;
        EXPECT_FALSE(io.connect(text, Client_IO::Options{})) << text;
        EXPECT_EQ(io.error(), "Invalid URI") << text;
        EXPECT_EQ(io.error().find("secret"), std::string::npos);
    }
}

TEST(Connect, RefusesAnEmptySchemeOrPath)
{
    Client_IO io;
    EXPECT_FALSE(io.connect(uri_of("", "/path"), Client_IO::Options{}));
    EXPECT_EQ(io.error(), "Invalid URI");
    EXPECT_FALSE(io.connect(uri_of("file", ""), Client_IO::Options{}));
    EXPECT_EQ(io.error(), "Invalid URI");
    EXPECT_FALSE(io.connect(uri_of("", ""), Client_IO::Options{}));
    EXPECT_EQ(io.error(), "Invalid URI");
}

TEST(Connect, ByProtocolWithoutAPartFailsWithInvalidURI)
{
    Client_IO io;
    const auto attempt = [&](Client_IO::Protocol protocol, const char* host, unsigned short port,
                             const char* path) {
        EXPECT_FALSE(io.connect(protocol, host, port, false, path, Client_IO::Options{}));
        EXPECT_EQ(io.error(), "Invalid URI");
    };
    attempt(Client_IO::PROTOCOL_HTTP, nullptr, 80, "/path");
    attempt(Client_IO::PROTOCOL_HTTP, "", 80, "/path");
    attempt(Client_IO::PROTOCOL_HTTP, "host", 0, "/path");
    attempt(Client_IO::PROTOCOL_HTTP, "host", 80, nullptr);
    attempt(Client_IO::PROTOCOL_HTTP, "host", 80, "");
    attempt(Client_IO::PROTOCOL_FILE, nullptr, 0, nullptr);
    attempt(Client_IO::PROTOCOL_FILE, nullptr, 0, "");
}

TEST(Connect, DisconnectsTheFormerTargetAlsoWhenItFails)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    EXPECT_FALSE(facade.io.connect("no URI", Client_IO::Options{}));
    EXPECT_EQ(facade.log->actions(),
              (std::vector<std::string>{"open(a, 2, 0, 0)", "close()", "disconnect()"}));
    EXPECT_EQ(facade.io.error(), "Invalid URI");
}

TEST(Connect, HandsTheCallersOwnOptionsToTheStack)
{
    const auto log = std::make_shared<Recording>();
    Client_IO::Options stack_options = no_transforms();
    const Client_IO::Options options;
    const URI uri = uri_of("http", "/path");
    Open_Facade io;
    ASSERT_TRUE(io.connect_stack(std::make_unique<Recording_IO>(log), Client_IO::PROTOCOL_HTTP, uri,
                                 stack_options, options));
    EXPECT_EQ(log->count(call_text("connect", &uri, &options)), 1U);
    EXPECT_EQ(io.protocol(), Client_IO::PROTOCOL_HTTP);
}

TEST(Connect, FailureOfTheBackendShowsItsText)
{
    const auto log = std::make_shared<Recording>();
    log->failing = {"connect"};
    log->error = "nobody listens";
    Open_Facade io;
    EXPECT_FALSE(io.connect_plain(std::make_unique<Recording_IO>(log)));
    EXPECT_EQ(io.error(), "nobody listens");
    EXPECT_FALSE(io.is_connected());
}

TEST(Connect, DisconnectClosesAnOpenFileAndKeepsTheStackForReconnect)
{
    Recorded_Facade facade;
    ASSERT_TRUE(facade.io.open("a", 2, 0, 0));
    facade.log->failing = {"close"};
    facade.io.disconnect();
    EXPECT_EQ(facade.log->actions(),
              (std::vector<std::string>{"open(a, 2, 0, 0)", "close()", "disconnect()"}));
    EXPECT_FALSE(facade.log->destroyed);
    EXPECT_TRUE(facade.io.reconnect());
    EXPECT_TRUE(facade.io.is_connected());
}

TEST(Connect, DisconnectOfADroppedConnectionAsksNothingOfTheStack)
{
    Recorded_Facade facade;
    facade.log->connected = false;
    facade.io.disconnect();
    EXPECT_TRUE(facade.log->actions().empty());
}

TEST(Connect, DisconnectClearsTheFacadesText)
{
    Recorded_Facade facade;
    EXPECT_FALSE(facade.io.close());
    ASSERT_EQ(facade.io.error(), "Not open");
    facade.io.disconnect();
    EXPECT_EQ(facade.io.error(), "");
}

TEST(Connect, TheDestructorDisconnectsAndDestroysTheStack)
{
    const auto log = std::make_shared<Recording>();
    {
        Open_Facade io;
        ASSERT_TRUE(io.connect_plain(std::make_unique<Recording_IO>(log)));
        ASSERT_TRUE(io.open("a", 2, 0, 0));
    }
    EXPECT_EQ(log->count("close()"), 1U);
    EXPECT_EQ(log->count("disconnect()"), 1U);
    EXPECT_TRUE(log->destroyed);
}

TEST(Connect, ReconnectWithoutAStackFailsAndSoDoesEveryOperation)
{
    Client_IO io;
    EXPECT_FALSE(io.reconnect());
    EXPECT_FALSE(io.open("a", 1, 0, 0));
    EXPECT_EQ(io.error(), "Not connected");
    EXPECT_EQ(io.size("a"), Client_IO_Base::size_unknown);
    EXPECT_EQ(io.error(), "Not connected");
    EXPECT_FALSE(io.remove("a"));
    EXPECT_EQ(io.error(), "Not connected");
    EXPECT_FALSE(io.seek(0, 0));
    EXPECT_EQ(io.error(), "Not open");
    io.disconnect();
    EXPECT_EQ(io.error(), "");
}

TEST(Generate_URI, WritesTheSchemeOfEachProtocol)
{
    Client_IO io;
    for (const auto& [protocol, plain, secure] : written_schemes) {
        URI uri;
        ASSERT_TRUE(io.generate_uri(protocol, "host", 80, false, "/a b%", uri)) << plain;
        EXPECT_EQ(uri.scheme(), plain);
        EXPECT_EQ(uri.host(false), "host");
        EXPECT_EQ(uri.port(), 80);
        EXPECT_EQ(uri.path(true), "/a%20b%25");
        ASSERT_TRUE(io.generate_uri(protocol, "host", 80, true, "/path", uri)) << secure;
        EXPECT_EQ(uri.scheme(), secure);
    }
}

TEST(Generate_URI, OfProtocolFileWithoutHostSucceedsAndSetsNone)
{
    Client_IO io;
    URI uri;
    ASSERT_TRUE(io.generate_uri(Client_IO::PROTOCOL_FILE, nullptr, 0, true, "/path", uri));
    EXPECT_EQ(uri.scheme(), "file");
    EXPECT_EQ(uri.host(false), "");
    EXPECT_EQ(uri.port(), 0);
    EXPECT_EQ(uri.path(false), "/path");
}

TEST(Generate_URI, OfHTTPWithPort0FailsWithInvalidURI)
{
    Client_IO io;
    URI uri;
    EXPECT_FALSE(io.generate_uri(Client_IO::PROTOCOL_HTTP, "host", 0, false, "/path", uri));
    EXPECT_EQ(io.error(), "Invalid URI");
}

TEST(Generate_URI, OfProtocol25SucceedsAndLeavesTheSchemeUnset)
{
    Client_IO io;
    URI uri;
    EXPECT_TRUE(
        io.generate_uri(static_cast<Client_IO::Protocol>(25), "host", 80, true, "/path", uri));
    EXPECT_EQ(uri.scheme(), "");
    EXPECT_EQ(uri.host(false), "host");
}

TEST(Generate_URI, ConnectingByProtocol25FailsWithInvalidURI)
{
    Client_IO io;
    EXPECT_FALSE(io.connect(static_cast<Client_IO::Protocol>(25), "host", 80, true, "/path",
                            Client_IO::Options{}));
    EXPECT_EQ(io.error(), "Invalid URI");
}

} // namespace
