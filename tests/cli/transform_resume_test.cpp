#include "cli/resume.h"

#include "platform/runtime/file_system.h"
#include "tests/cli/transform_test.h"

namespace fs = std::filesystem;

/// --resume with files whose stored form has no place to go on at.
class Transform_Resume : public Transform_Test
{
protected:
    static constexpr std::size_t size = 3'000'000;
    const std::string data_ = pattern(size);
    const Environment_Variable state_{"XDG_STATE_HOME", path("state")};
    const std::vector<std::string> options_ = flags("zstd", "aes-256-cbc");

    void SetUp() override
    {
        Transform_Test::SetUp();
        write("source", data_);
        ASSERT_EQ(run("put", options_, {"source", uri(), "stored"}).code, 0);
        stored_ = read("target/stored");
    }
    Cio_Result put() const
    {
        return run("put", options_, {"--resume", "--json", "source", uri(), "stored"});
    }
    Cio_Result get() const
    {
        return run("get", options_, {"--resume", "--json", uri(), "stored", "local"});
    }
    static void expect_bytes(const Cio_Result& result, std::size_t bytes)
    {
        EXPECT_EQ(result.code, 0) << result.out;
        EXPECT_NE(result.out.find("\"bytes\":" + std::to_string(bytes) + ",\"command\""),
                  std::string::npos)
            << result.out;
    }
    static void expect_note(const Cio_Result& result, const std::string& text)
    {
        EXPECT_NE(result.out.find(text), std::string::npos) << result.out;
    }

    std::string stored_;
};

TEST_F(Transform_Resume, PutLeavesACompleteFileAlone)
{
    expect_bytes(put(), 0);
    EXPECT_EQ(read("target/stored"), stored_);
}

TEST_F(Transform_Resume, PutRepeatsACutFile)
{
    for (const std::size_t left : {stored_.size() - 1, stored_.size() / 2, std::size_t{0}}) {
        write("target/stored", stored_.substr(0, left));
        const Cio_Result result = put();
        expect_bytes(result, size);
        expect_note(result, "starts again: it differs from its source");
        EXPECT_EQ(read("target/stored"), stored_);
    }
}

TEST_F(Transform_Resume, PutRepeatsAFileThatIsShorterOrLongerThanItsSource)
{
    const auto later = fs::last_write_time(at("target/stored")) + std::chrono::hours(1);
    for (const std::string& source : {data_.substr(0, size - 1), data_ + "x"}) {
        write("source", source);
        fs::last_write_time(at("target/stored"), later);
        const Cio_Result result = put();
        expect_bytes(result, source.size());
        expect_note(result, "starts again: it differs from its source");
        EXPECT_EQ(run("cat", options_, {uri(), "stored"}).out, source);
    }
}

TEST_F(Transform_Resume, PutDoesNotReadBackWhatARecordSaysIsUnfinished)
{
    cio::Target target = cio::make_target(uri(), {}, true);
    file_system::Status status;
    ASSERT_TRUE(file_system::status(path("source").c_str(), true, status));
    const cio::Resume_Record record("put", target, "stored", path("source"));
    record.store({status.size, status.mtime});
    const Cio_Result result = put();
    expect_bytes(result, size);
    expect_note(result, "starts again: an encrypted file cannot be continued");
    EXPECT_FALSE(record.load());
}

TEST_F(Transform_Resume, PutRepeatsWhatIsOlderThanItsSource)
{
    shift_time("source", 60);
    const Cio_Result result = put();
    expect_bytes(result, size);
    expect_note(result, "starts again: its source is newer");
}

TEST_F(Transform_Resume, GetLeavesACompleteFileAlone)
{
    write("local", data_);
    const auto time = fs::last_write_time(at("local"));
    expect_bytes(get(), 0);
    EXPECT_EQ(read("local"), data_);
    EXPECT_EQ(fs::last_write_time(at("local")), time);
}

TEST_F(Transform_Resume, GetComparesWhatIsThereAndGoesOnBehindIt)
{
    for (const std::size_t there : {std::size_t{1}, std::size_t{262'144}, size - 1}) {
        write("local", data_.substr(0, there));
        expect_bytes(get(), size - there);
        EXPECT_EQ(read("local"), data_);
    }
}

TEST_F(Transform_Resume, GetRepeatsWhatDiffersOrIsTooLong)
{
    std::string other = data_.substr(0, 2'000'000);
    other[1'000'000] = static_cast<char>(other[1'000'000] ^ 1);
    for (const std::string& there : {other, data_ + "x"}) {
        write("local", there);
        const Cio_Result result = get();
        expect_bytes(result, size);
        expect_note(result, "starts again: it differs from its source");
        EXPECT_EQ(read("local"), data_);
    }
}

TEST_F(Transform_Resume, GetOfADamagedFileDoesNotCostTheLocalOne)
{
    write("target/stored", stored_.substr(0, stored_.size() / 2));
    write("local", data_);
    const Cio_Result result = get();
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Transform_Resume, TreesAreCompletedFileByFile)
{
    write("tree/a", data_);
    write("tree/b", "b");
    write("tree/empty", "");
    ASSERT_EQ(run("put", options_, {"tree", uri(), "p"}).code, 0);
    fs::remove(at("target/p/b"));
    expect_bytes(run("put", options_, {"--resume", "--json", "tree", uri(), "p"}), 1);
    EXPECT_EQ(run("verify", options_, {"tree", uri(), "p"}).code, 0);
    write("back/a", data_.substr(0, 1'000'000));
    expect_bytes(run("get", options_, {"--resume", "--json", uri(), "p", "back"}), 2'000'001);
    EXPECT_TRUE(same("tree", "back"));
}
