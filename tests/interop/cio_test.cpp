#include "tests/support/dav_peer.h"
#include "tests/support/run_program.h"
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

} // namespace
