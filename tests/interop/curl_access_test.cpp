#include "tests/interop/curl.h"
#include "tests/interop/raw_peer.h"
#include "tests/interop/wait_until.h"
#include "tests/support/run_program.h"
#include "tests/support/storage_server_process.h"
#include "tests/support/temp_directory.h"
#include "tests/support/test_certificate.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

constexpr const char* token = "tUVxyz0123456789-abcdefghijk";

/// A line of the users file, as the program makes it.
std::string user_line(const std::string& name, const std::string& secret,
                      const std::vector<std::string>& arguments = {})
{
    std::vector<std::string> command = {CIO_PROGRAM, "serve", "user", name};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Program_Result run = run_program(command, secret + "\n");
    EXPECT_EQ(run.code, 0) << run.err;
    return run.out;
}

/// A file that nobody else may read.
std::string private_file(const Temp_Directory& directory, const std::string& name,
                         const std::string& contents)
{
    write_local(directory / name, contents);
    ::chmod((directory / name).c_str(), 0600);
    return directory / name;
}

/// Runs the server where it is expected to refuse its options.
Program_Result refused(const std::vector<std::string>& arguments,
                       const std::string& listen = "127.0.0.1:0")
{
    const Temp_Directory root;
    std::vector<std::string> command = {CIO_PROGRAM, "serve",    "http", "--root",
                                        root.str(),  "--listen", listen};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_program(command);
}

} // namespace

/// A server with users: alice may do everything, bob sees a directory of his own, carol may only
/// read, and the robot has a token.
class Curl_Access : public testing::Test
{
protected:
    int status(const std::vector<std::string>& arguments, const std::string& path,
               const std::string& input = {}) const
    {
        std::vector<std::string> all = arguments;
        all.push_back(server_.uri(path));
        return curl(all, input).status;
    }
    static std::vector<std::string> put_as(const std::string& credentials)
    {
        return {"-u", credentials, "-X", "PUT", "--data-binary", "@-"};
    }

    const Temp_Directory directory_;
    const std::string users_ =
        private_file(directory_, "users",
                     "# who may do what\n" + user_line("alice", "correct horse") +
                         user_line("bob", "secret", {"--root", "homes/bob"}) +
                         user_line("carol", "pass:word", {"--read-only"}) +
                         user_line("robot", token, {"--token"}));
    const std::string log_ = directory_ / "access.log";
    Storage_Server_Process server_{{"--users", users_, "--access-log", log_}};
};

TEST_F(Curl_Access, NobodyComesInWithoutCredentials)
{
    const Curl_Result none = curl({server_.uri("/")});
    EXPECT_EQ(none.status, 401);
    EXPECT_TRUE(none.field("WWW-Authenticate").starts_with("Basic ")) << none.head;
    for (const char* wrong : {"alice:wrong", "alice:", "nobody:correct horse", ":", "robot:x"})
        EXPECT_EQ(status({"-u", wrong}, "/"), 401) << wrong;
    EXPECT_EQ(status({"-H", "Authorization: Basic ???"}, "/"), 401);
    EXPECT_EQ(status({"-H", "Authorization: Bearer " + std::string(token) + "x"}, "/"), 401);
    EXPECT_EQ(status({"-H", "Authorization: Digest x"}, "/"), 401);
    EXPECT_EQ(status({"-X", "PUT", "--data-binary", "@-"}, "/file", "x"), 401);
    EXPECT_EQ(status({}, "/.cio/metrics"), 401);
    EXPECT_EQ(status({}, "/.cio/health"), 200);
    EXPECT_FALSE(fs::exists(server_.file("file")));
}

TEST_F(Curl_Access, PasswordsAndTokensLetIn)
{
    EXPECT_EQ(status(put_as("alice:correct horse"), "/file", "x"), 200);
    EXPECT_EQ(status({"-u", "alice:correct horse"}, "/file"), 200);
    EXPECT_EQ(status({"-u", "carol:pass:word"}, "/file"), 200);
    EXPECT_EQ(status({"-H", "Authorization: Bearer " + std::string(token)}, "/file"), 200);
    EXPECT_EQ(status({"-u", "alice:correct horse"}, "/.cio/metrics"), 200);
    // Whoever was verified does not open the door for others.
    EXPECT_EQ(status({"-u", "alice:correct horse "}, "/file"), 401);
    EXPECT_EQ(status({"-u", "carol:correct horse"}, "/file"), 401);
}

TEST_F(Curl_Access, AUserSeesTheirDirectoryOnly)
{
    ASSERT_EQ(status(put_as("alice:correct horse"), "/outside", "x"), 200);
    EXPECT_EQ(status(put_as("bob:secret"), "/file", "bob's"), 200);
    EXPECT_EQ(read_local(server_.file("homes/bob/file")), "bob's");
    EXPECT_EQ(status({"-u", "bob:secret"}, "/outside"), 404);
    EXPECT_EQ(status({"-u", "bob:secret"}, "/../../outside"), 403);
    EXPECT_EQ(status({"-u", "bob:secret"}, "/%2e%2e/%2e%2e/outside"), 403);
    fs::create_symlink("../../outside", server_.file("homes/bob/link"));
    EXPECT_NE(status({"-u", "bob:secret"}, "/link"), 200);
}

TEST_F(Curl_Access, ReadersChangeNothing)
{
    ASSERT_EQ(status(put_as("alice:correct horse"), "/file", "x"), 200);
    EXPECT_EQ(status(put_as("carol:pass:word"), "/file", "y"), 403);
    for (const char* method : {"DELETE", "MKCOL", "COPY", "MOVE", "POST"})
        EXPECT_EQ(
            status({"-u", "carol:pass:word", "-X", method, "-H", "Destination: /other"}, "/file"),
            403)
            << method;
    EXPECT_EQ(read_local(server_.file("file")), "x");
}

TEST_F(Curl_Access, TheLogNamesTheUserAndNoSecret)
{
    ASSERT_EQ(status(put_as("alice:correct horse"), "/a%20b", "12345"), 200);
    EXPECT_EQ(status({"-u", "alice:wrong"}, "/file"), 401);
    EXPECT_EQ(status({"-H", "Authorization: Bearer " + std::string(token)}, "/a%20b"), 200);
    EXPECT_EQ(server_.end(), 0);
    const std::string log = read_local(log_);
    EXPECT_NE(log.find("127.0.0.1 - alice ["), std::string::npos) << log;
    EXPECT_NE(log.find("] \"PUT /a%20b HTTP/1.1\" 200 0 "), std::string::npos) << log;
    EXPECT_NE(log.find("127.0.0.1 - - ["), std::string::npos) << log;
    EXPECT_NE(log.find("127.0.0.1 - robot ["), std::string::npos) << log;
    for (const char* secret : {"correct horse", "wrong", token, "Y29ycmVjdC"})
        EXPECT_EQ(log.find(secret), std::string::npos) << secret;
}

TEST_F(Curl_Access, HangingUpReadsTheUsersAnewAndOpensANewLog)
{
    ASSERT_EQ(status({"-u", "alice:correct horse"}, "/"), 200);
    write_local(users_, user_line("dave", "new here"));
    fs::rename(log_, directory_ / "old.log");
    server_.signal(SIGHUP);
    wait_until([this] { return fs::exists(log_); }); // made when the users have been read
    EXPECT_EQ(status({"-u", "dave:new here"}, "/"), 200);
    EXPECT_EQ(status({"-u", "alice:correct horse"}, "/"), 401);

    write_local(users_, "nonsense\n");
    fs::remove(log_);
    server_.signal(SIGHUP);
    wait_until([this] { return fs::exists(log_); });
    EXPECT_EQ(status({"-u", "dave:new here"}, "/"), 200);
    EXPECT_EQ(server_.end(), 0);
    EXPECT_NE(read_local(directory_ / "old.log").find(" alice "), std::string::npos);
    EXPECT_NE(read_local(log_).find(" dave "), std::string::npos);
}

TEST(Curl_TLS, TheServersCertificateIsVerified)
{
    const Temp_Directory directory;
    const Test_Certificate certificate;
    const std::string cert = private_file(directory, "cert", certificate.pem());
    const std::string key = private_file(directory, "key", certificate.key_pem());
    const Storage_Server_Process server({"--tls-cert", cert, "--tls-key", key});
    const std::string url = server.uri("/file", "https");
    const std::string data = sample_bytes(3'000'000);
    EXPECT_EQ(curl({"--cacert", cert, "-X", "PUT", "--data-binary", "@-", url}, data).status, 200);
    EXPECT_TRUE(read_local(server.file("file")) == data);
    for (const char* version : {"--tlsv1.2", "--tlsv1.3"})
        EXPECT_TRUE(curl({"--cacert", cert, version, "--tls-max", version + 6, url}).body == data)
            << version;
    EXPECT_TRUE(curl({"--cacert", cert, "-r", "5-9", url}).body == data.substr(5, 5));
    EXPECT_EQ(curl({url}).exit_code, 60); // the certificate is not one that the system trusts
    EXPECT_NE(curl({"--cacert", cert, "--tls-max", "1.1", url}).exit_code, 0);
    // Without TLS nobody is served, and nobody is held up.
    EXPECT_EQ(status_of(ask(server.port(), "GET / HTTP/1.1\r\nHost: h\r\n\r\n")), 0);
    EXPECT_EQ(curl({"--cacert", cert, url}).status, 200);
}

TEST(Curl_Read_Only, NothingCanBeChanged)
{
    const Storage_Server_Process server({"--read-only"});
    write_local(server.file("file"), "contents");
    EXPECT_EQ(curl({server.uri("/file")}).body, "contents");
    EXPECT_EQ(curl({"-X", "PUT", "-d", "x", server.uri("/file")}).status, 403);
    EXPECT_EQ(curl({"-X", "DELETE", server.uri("/file")}).status, 403);
    EXPECT_EQ(read_local(server.file("file")), "contents");
}

TEST(Curl_Quota, WhatExceedsItIsRefused)
{
    const Storage_Server_Process server({"--quota", "1M"});
    const std::string data = sample_bytes(600'000);
    const auto put = [&](const std::string& path) {
        return curl({"-X", "PUT", "--data-binary", "@-", server.uri(path)}, data).status;
    };
    EXPECT_EQ(put("/one"), 200);
    EXPECT_EQ(put("/two"), 507);
    EXPECT_EQ(curl({"-X", "DELETE", server.uri("/two")}).status, 200);
    EXPECT_EQ(curl({"-X", "DELETE", server.uri("/one")}).status, 200);
    EXPECT_EQ(put("/two"), 200);
    EXPECT_NE(curl({server.uri("/.cio/metrics")}).body.find("\ncio_stored_bytes 600000\n"),
              std::string::npos);
}

TEST(Serve_Options, WhatWouldLetInStrangersIsRefused)
{
    const Temp_Directory directory;
    const Program_Result open = refused({}, "0.0.0.0:0");
    EXPECT_EQ(open.code, 1);
    EXPECT_NE(open.err.find("only this machine may be served"), std::string::npos) << open.err;

    write_local(directory / "users", user_line("alice", "x"));
    ::chmod((directory / "users").c_str(), 0640);
    const Program_Result exposed = refused({"--users", directory / "users"});
    EXPECT_EQ(exposed.code, 1);
    EXPECT_NE(exposed.err.find("is open to other users"), std::string::npos) << exposed.err;

    private_file(directory, "users", "alice x\n");
    const Program_Result bad = refused({"--users", directory / "users"});
    EXPECT_EQ(bad.code, 1);
    EXPECT_NE(bad.err.find("line 1: the secret is neither"), std::string::npos) << bad.err;
}

TEST(Serve_Options, WhatCannotBeMeantIsRefused)
{
    EXPECT_EQ(refused({"--tls-cert", "x"}).code, 2);
    EXPECT_EQ(refused({}, "nowhere").code, 2);
    EXPECT_EQ(refused({}, "name.example:1").code, 1);
    EXPECT_EQ(refused({"--threads", "0"}).code, 2);
    EXPECT_EQ(refused({"--quota", "much"}).code, 2);
    EXPECT_EQ(refused({"--token"}).code, 2);
    EXPECT_EQ(refused({"--users", "/none"}).code, 1);
    EXPECT_EQ(refused({"--tls-cert", "/none", "--tls-key", "/none"}).code, 1);
    EXPECT_EQ(run_program({CIO_PROGRAM, "serve"}).code, 2);
    EXPECT_EQ(run_program({CIO_PROGRAM, "serve", "ftp"}).code, 2);
    EXPECT_EQ(run_program({CIO_PROGRAM, "serve", "http"}).code, 2);
    EXPECT_EQ(run_program({CIO_PROGRAM, "serve", "http", "--root", "/none"}).code, 1);
}

TEST(Serve_User, SecretsThatAreNoneAreRefused)
{
    const auto code = [](const std::vector<std::string>& arguments, const std::string& input) {
        std::vector<std::string> command = {CIO_PROGRAM, "serve", "user"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return run_program(command, input).code;
    };
    EXPECT_EQ(code({"alice"}, ""), 2);
    EXPECT_EQ(code({"alice"}, "\nsecret\n"), 2);
    EXPECT_EQ(code({"a:b"}, "secret\n"), 2);
    EXPECT_EQ(code({"alice", "--token"}, "short\n"), 2);
    EXPECT_EQ(code({"alice", "--quota", "1"}, "secret\n"), 2);
    EXPECT_EQ(code({"alice"}, std::string(1024, 'x')), 2);
}
