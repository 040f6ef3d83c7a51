#include "tests/support/dav_peer.h"
#include "tests/support/run_program.h"
#include "tests/support/scripted_server.h"
#include "tests/support/storage_server_process.h"
#include "tests/support/test_certificate.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <vector>

namespace
{

/// A file that only its owner can read, as keys have to be.
std::string private_file(const Temp_Directory& directory, const std::string& name,
                         const std::string& text)
{
    write_local(directory / name, text);
    ::chmod((directory / name).c_str(), 0600);
    return directory / name;
}

/// cio over HTTP, as a user runs it: with a tree of files, and what it says.
class Cio_Over_HTTP : public testing::TestWithParam<std::string>
{
protected:
    Cio_Over_HTTP()
    {
        std::filesystem::create_directory(here_ / "source");
        write_local(here_ / "source/small", "a few bytes");
        write_local(here_ / "source/empty", "");
        write_local(here_ / "source/large", sample_bytes(3'000'000));
    }

    Program_Result cio(const std::string& command, const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> line = {CIO_PROGRAM, command, "-o", "max_retry=0"};
        line.insert(line.end(), options_.begin(), options_.end());
        line.insert(line.end(), arguments.begin(), arguments.end());
        return run_program(line);
    }

    void expect_done(const std::string& command, const std::vector<std::string>& arguments) const
    {
        const Program_Result run = cio(command, arguments);
        EXPECT_EQ(run.code, 0) << command << ": " << run.err;
    }

    const Temp_Directory here_;
    std::vector<std::string> options_;
};

INSTANTIATE_TEST_SUITE_P(Of, Cio_Over_HTTP,
                         testing::Values("http", "https", "realtime", "realtimes", "sdfs", "sdfss",
                                         "btrfs", "btrfss"),
                         [](const auto& about) { return about.param; });

TEST_P(Cio_Over_HTTP, StoresATreeBringsItBackAndFindsNoDifference)
{
    const std::string& scheme = GetParam();
    const Test_Certificate certificate;
    std::vector<std::string> arguments;
    if (scheme == "https" || scheme == "realtimes" || scheme == "sdfss" || scheme == "btrfss") {
        const std::string cert = private_file(here_, "cert", certificate.pem());
        arguments = {"--tls-cert", cert, "--tls-key",
                     private_file(here_, "key", certificate.key_pem())};
        options_ = {"-o", "extra_opts.TLS_CA_FILE=" + cert};
    }
    const Storage_Server_Process server(arguments);
    const std::string uri = server.uri("/base", scheme);

    expect_done("put", {"--compress", "zstd", here_ / "source", uri});
    expect_done("verify", {"--compress", "zstd", here_ / "source", uri, "source"});
    expect_done("get", {"--compress", "zstd", uri, "source", here_ / "back"});
    for (const char* name : {"small", "empty", "large"})
        EXPECT_TRUE(read_local(here_ / ("back/" + std::string(name))) ==
                    read_local(here_ / ("source/" + std::string(name))))
            << name;

    expect_done("mv", {uri, "source/small", "moved"});
    expect_done("cp", {uri, "moved", "copied"});
    EXPECT_EQ(cio("cp", {uri, "moved", "copied"}).code, 4);
    EXPECT_EQ(cio("cat", {uri, "source/small"}).code, 3);
    expect_done("rm", {"-r", uri, "source"});
    EXPECT_EQ(cio("ls", {uri}).out, "copied\nmoved\n");
}

TEST(Cio_And_Servers, AUriWithoutAPathIsTheServersRoot)
{
    const Storage_Server_Process server;
    write_local(server.file("a"), "A");
    const Program_Result run = run_program({CIO_PROGRAM, "cat", server.uri(""), "a"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.out, "A");
}

TEST(Cio_And_Servers, AFileIsHadFromAServerThatCannotList)
{
    const Dav_Peer peer("nginx");
    const Temp_Directory here;
    const std::string data = sample_bytes(3'000'000);
    write_local(peer.file("large"), data);
    const Program_Result run =
        run_program({CIO_PROGRAM, "get", "-o", "max_retry=0", "-o",
                     "extra_opts.HTTP_DIALECT=webdav", peer.uri(false), "large", here / "large"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_local(here / "large") == data);
}

std::size_t count_of(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(Cio_Download, AsksForItsFileAndNotForTheListingOfADirectory)
{
    const Temp_Directory here;
    const std::string log = here / "log";
    const std::string data = sample_bytes(3'000'000);
    Storage_Server_Process server({"--access-log", log});
    write_local(server.file("large"), data);
    const Program_Result run =
        run_program({CIO_PROGRAM, "get", server.uri(), "large", here / "copy"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_local(here / "copy") == data);
    ASSERT_EQ(server.end(), 0);
    const std::string requests = read_local(log);
    // One asks whether it is a directory, the next opens it.
    EXPECT_EQ(count_of(requests, "\"HEAD //large "), 2U) << requests;
    EXPECT_EQ(count_of(requests, "\"GET //large "), 1U) << requests;
    EXPECT_EQ(count_of(requests, "\n"), 3U) << requests;
}

// The server refused the new file; what is there is the old one.
TEST(Cio_Upload, ThatIsRefusedRemovesNothingThatItShouldHaveReplaced)
{
    const Temp_Directory here;
    write_local(here / "small", "contents");
    const auto refuse = [](Scripted_Server::Connection& connection) {
        connection.head();
        connection.send(http_answer("413 Too large", "", "Connection: close\r\n"));
        connection.half_close();
    };
    // For connections to look around, to upload, and for whatever follows.
    Scripted_Server server({refuse, refuse, refuse, refuse});
    const Program_Result run =
        run_program({CIO_PROGRAM, "put", "--overwrite", here / "small", server.uri()});
    EXPECT_EQ(run.code, 1);
    EXPECT_NE(run.err.find("may stay there, or what was there before"), std::string::npos)
        << run.err;
    bool put = false;
    for (const auto& request : server.requests()) {
        put = put || request.first_line() == "PUT //small HTTP/1.1";
        EXPECT_FALSE(request.first_line().starts_with("DELETE")) << request.head;
    }
    EXPECT_TRUE(put);
}

/// A download of a large file that failed behind its first 2 MiB.
class Cio_Download_That_Failed : public testing::Test
{
protected:
    Cio_Download_That_Failed()
    {
        write_local(server_.file("large"), data_);
        // The shell counts in blocks of 512 bytes; a write beyond fails.
        const std::string limited = "ulimit -f 4096; XDG_STATE_HOME=" + (here_ / "state") +
                                    " exec " CIO_PROGRAM " get " + server_.uri() + " large " +
                                    copy_;
        const Program_Result run = run_program({"sh", "-c", limited});
        EXPECT_EQ(run.code, 1) << run.err;
        EXPECT_NE(run.err.find("File too large (2097152 bytes of it stay there)"),
                  std::string::npos)
            << run.err;
        EXPECT_TRUE(read_local(copy_) == data_.substr(0, 2U << 20U));
        // What is logged from now on belongs to what follows.
        EXPECT_EQ(server_.end(), 0);
        std::filesystem::remove(log_);
        server_.start();
    }

    Program_Result resume() const
    {
        return run_program({"env", "XDG_STATE_HOME=" + (here_ / "state"), CIO_PROGRAM, "get",
                            "--resume", server_.uri(), "large", copy_});
    }

    const Temp_Directory here_;
    const std::string log_ = here_ / "log";
    const std::string copy_ = here_ / "large";
    const std::string data_ = sample_bytes(5'000'000);
    Storage_Server_Process server_{{"--access-log", log_}};
};

TEST_F(Cio_Download_That_Failed, GoesOnWithOneHeadAndOneGet)
{
    const Program_Result run = resume();
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_TRUE(read_local(copy_) == data_);
    ASSERT_EQ(server_.end(), 0);
    const std::string requests = read_local(log_);
    EXPECT_EQ(count_of(requests, "\"HEAD //large "), 1U) << requests;
    EXPECT_EQ(count_of(requests, "\"GET //large "), 1U) << requests;
    EXPECT_EQ(count_of(requests, "\n"), 2U) << requests;
}

// The record of the single file says what the server told when it was opened, which a listing of
// its directory does not.
TEST_F(Cio_Download_That_Failed, GoesOnAsAFileOfItsDirectory)
{
    const Program_Result run =
        run_program({"env", "XDG_STATE_HOME=" + (here_ / "state"), CIO_PROGRAM, "get", "--resume",
                     server_.uri(), "/", here_.str()});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_EQ(run.err.find("starts again"), std::string::npos) << run.err;
    EXPECT_TRUE(read_local(copy_) == data_);
}

TEST_F(Cio_Download_That_Failed, StartsAgainWhenItsSourceWasReplaced)
{
    for (const std::string& other : {sample_bytes(4'000'000), std::string("short")}) {
        write_local(server_.file("new"), other);
        std::filesystem::rename(server_.file("new"), server_.file("large"));
        const Program_Result run = resume();
        EXPECT_EQ(run.code, 0) << run.err;
        EXPECT_NE(run.err.find("starts again: "), std::string::npos) << run.err;
        EXPECT_TRUE(read_local(copy_) == other);
    }
}

TEST_F(Cio_Download_That_Failed, StaysAsItIsWhenItsSourceHasGone)
{
    std::filesystem::remove(server_.file("large"));
    EXPECT_EQ(resume().code, 3);
    EXPECT_TRUE(read_local(copy_) == data_.substr(0, 2U << 20U));
}

} // namespace
