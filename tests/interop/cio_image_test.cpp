#include "tests/support/run_program.h"
#include "tests/support/storage_server_process.h"
#include "tests/support/temp_directory.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace
{

/// cio with block images over HTTP, as a user runs it.
class Cio_And_Servers_Image : public testing::Test
{
protected:
    /// A disk of 20 MiB with data in three places.
    Cio_And_Servers_Image()
    {
        std::string disk(20 << 20, '\0');
        for (const std::size_t at : {0U, 5U << 20U, 19U << 20U})
            disk.replace(at, 1'000'000, sample_bytes(1'000'000));
        write_local(disk_, disk);
    }

    std::string expect_done(const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> line = {CIO_PROGRAM, "image"};
        line.insert(line.end(), arguments.begin(), arguments.end());
        const Program_Result run = run_program(line);
        EXPECT_EQ(run.code, 0) << arguments[0] << ": " << run.err;
        return run.out;
    }

    const Temp_Directory here_;
    const std::string disk_ = here_ / "disk";
};

TEST_F(Cio_And_Servers_Image, ADiskIsStoredShownComparedAndRestored)
{
    const Storage_Server_Process server;
    const std::string uri = server.uri("/base");
    expect_done({"save", disk_, uri, "plain"});
    expect_done({"save", "--compress", "zstd", disk_, uri, "compressed"});
    EXPECT_LT(std::filesystem::file_size(server.file("base/plain")), 4'000'000U);
    for (const std::vector<std::string>& with :
         {std::vector<std::string>{uri, "plain"}, {"--compress", "zstd", uri, "compressed"}})
    {
        const auto run = [&](std::vector<std::string> arguments, const std::string& last) {
            arguments.insert(arguments.end(), with.begin(), with.end());
            if (!last.empty())
                arguments.push_back(last);
            return expect_done(arguments);
        };
        EXPECT_NE(run({"info"}, "").find("\n0 1048576\n5242880 1048576\n19922944 1048576\n# 3 "),
                  std::string::npos);
        run({"verify"}, disk_);
        run({"restore", "--overwrite", "--zero"}, here_ / "back");
        EXPECT_TRUE(read_local(here_ / "back") == read_local(disk_));
    }
}

} // namespace
