#include "cli/resume.h"

#include "platform/json/json_value.h"
#include "platform/runtime/file_system.h"
#include "tests/cli/cli_test.h"

namespace fs = std::filesystem;

using cio::obstacle_to_continuing;
using cio::Partial_File;
using cio::Resume_Record;
using cio::Source_Version;

class Resume : public Cli_Test
{
protected:
    static constexpr std::size_t size = 3'000'000;
    const std::string data_ = pattern(size);
    const Environment_Variable state_{"XDG_STATE_HOME", path("state")};

    void SetUp() override
    {
        write("source", data_);
        write("target/stored", data_);
    }
    Cio_Result put() { return cio({"put", "--resume", "--json", "source", uri(), "stored"}); }
    Cio_Result get() { return cio({"get", "--resume", "--json", uri(), "stored", "local"}); }

    /// A member of the summary, which stands on the last line.
    static std::uint64_t summary(const Cio_Result& result, const char* member)
    {
        const std::size_t start = result.out.rfind('\n', result.out.size() - 2);
        json_spirit::Value value;
        const std::string line = result.out.substr(start == std::string::npos ? 0 : start + 1);
        EXPECT_TRUE(loads_json(line, value)) << result.out;
        return value.value(member, std::uint64_t{0} - 1);
    }
    cio::Target target() const { return cio::make_target(uri(), {}, true); }
    /// The record that an interrupted put leaves.
    Resume_Record put_record() const { return {"put", target(), "stored", path("source")}; }
    Source_Version source_version() const
    {
        file_system::Status status;
        EXPECT_TRUE(file_system::status(path("source").c_str(), true, status));
        return {status.size, status.mtime};
    }
};

TEST_F(Resume, PutGoesOnWhereTheTargetEnds)
{
    fs::resize_file(at("target/stored"), 2'000'000);
    const Cio_Result result = put();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(summary(result, "bytes"), size - 2'000'000);
    EXPECT_EQ(read("target/stored"), data_);
}

TEST_F(Resume, GetGoesOnWhereTheLocalFileEnds)
{
    write("local", data_.substr(0, 1'234'567));
    const Cio_Result result = get();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(summary(result, "bytes"), size - 1'234'567);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, CompleteFilesAreNotMovedAgain)
{
    write("local", data_);
    for (const Cio_Result& result : {put(), get()}) {
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(summary(result, "bytes"), 0U);
        EXPECT_EQ(summary(result, "files"), 1U);
    }
}

TEST_F(Resume, WithoutAPartialFileEverythingIsMoved)
{
    fs::remove(at("target/stored"));
    EXPECT_EQ(summary(put(), "bytes"), size);
    EXPECT_EQ(read("target/stored"), data_);
    EXPECT_EQ(summary(get(), "bytes"), size);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, EmptyPartialFileIsFilled)
{
    write("target/stored", "");
    EXPECT_EQ(put().code, 0);
    EXPECT_EQ(read("target/stored"), data_);
    write("local", "");
    EXPECT_EQ(get().code, 0);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, NewerSourceStartsAgainAndSaysSo)
{
    fs::resize_file(at("target/stored"), 2'000'000);
    shift_time("source", 60);
    const Cio_Result stored = put();
    EXPECT_EQ(stored.code, 0);
    EXPECT_NE(stored.out.find("starts again: its source is newer"), std::string::npos);
    EXPECT_EQ(summary(stored, "bytes"), size);

    write("local", data_.substr(0, 5000));
    shift_time("target/stored", 60);
    const Cio_Result restored = get();
    EXPECT_EQ(restored.code, 0);
    EXPECT_NE(restored.out.find("starts again: its source is newer"), std::string::npos);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, LongerPartialFileStartsAgain)
{
    write("target/stored", data_ + "tail");
    const Cio_Result stored = put();
    EXPECT_EQ(stored.code, 0);
    EXPECT_NE(stored.out.find("starts again: it is longer than its source"), std::string::npos);
    EXPECT_EQ(read("target/stored"), data_);
    write("local", data_ + "tail");
    EXPECT_EQ(get().code, 0);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, OtherBytesAtTheEndOfThePartialFileStartAgain)
{
    std::string partial = data_.substr(0, 2'000'000);
    partial[1'000'000] = static_cast<char>(partial[1'000'000] ^ 0x40);
    write("target/stored", partial);
    const Cio_Result stored = put();
    EXPECT_EQ(stored.code, 0);
    EXPECT_NE(stored.out.find("starts again: it differs"), std::string::npos);
    EXPECT_EQ(read("target/stored"), data_);

    write("local", partial);
    const Cio_Result restored = get();
    EXPECT_EQ(restored.code, 0);
    EXPECT_NE(restored.out.find("starts again: it differs"), std::string::npos);
    EXPECT_EQ(read("local"), data_);
}

TEST_F(Resume, RecordOfAnotherVersionStartsAgain)
{
    fs::resize_file(at("target/stored"), 2'000'000);
    Source_Version version = source_version();
    version.mtime -= 1;
    put_record().store(version);
    const Cio_Result result = put();
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.out.find("starts again: its source has changed"), std::string::npos);
    EXPECT_EQ(summary(result, "bytes"), size);
    EXPECT_EQ(read("target/stored"), data_);
    EXPECT_FALSE(put_record().load()) << "a complete file needs no record";
}

TEST_F(Resume, RecordOfTheSameVersionCountsMoreThanTimes)
{
    fs::resize_file(at("target/stored"), 2'000'000);
    shift_time("target/stored", -3600);
    put_record().store(source_version());
    const Cio_Result result = put();
    EXPECT_EQ(summary(result, "bytes"), size - 2'000'000);
    EXPECT_EQ(read("target/stored"), data_);
}

TEST_F(Resume, TreesContinueFileByFile)
{
    write("tree/done", "done");
    write("tree/half", data_);
    write("tree/sub/new", "new");
    write("target/tree/done", "done");
    write("target/tree/half", data_.substr(0, 1'500'000));
    const Cio_Result result = cio({"put", "--resume", "--json", "tree", uri()});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(summary(result, "bytes"), size - 1'500'000 + 3);
    EXPECT_EQ(cio({"verify", "tree", uri(), "tree"}).code, 0);

    write("back/tree/half", data_.substr(0, 777));
    EXPECT_EQ(cio({"get", "--resume", uri(), "tree", "back/"}).code, 0);
    EXPECT_EQ(cio({"verify", "back/tree", uri(), "tree"}).code, 0);
}

TEST_F(Resume, NothingIsReplacedThatIsADirectory)
{
    fs::create_directories(at("target/dir/stored"));
    EXPECT_NE(cio({"put", "--resume", "source", uri(), "dir/stored/x/../y"}).code, 0);
    EXPECT_NE(cio({"get", "--resume", uri(), "stored", "target/dir/"}).code, 0);
    EXPECT_TRUE(fs::is_directory(at("target/dir/stored")));
}

TEST_F(Resume, TransformsMakeContinuingImpossible)
{
    cio::Target target = this->target();
    EXPECT_EQ(cio::obstacle_of_target(target, "a"), "");
    target.options.compression = COMPRESSION_ZSTD;
    EXPECT_EQ(cio::obstacle_of_target(target, "a"), "a compressed file cannot be continued");
    target.options.compression = COMPRESSION_AUTO;
    EXPECT_EQ(cio::obstacle_of_target(target, "a"), "");
    EXPECT_EQ(cio::obstacle_of_target(target, "a.zst"), "a compressed file cannot be continued");
    target.options.encryption_algorithm = ENCRYPTION_AES_256_CTR;
    EXPECT_EQ(cio::obstacle_of_target(target, "a"), "an encrypted file cannot be continued");
}

TEST_F(Resume, RecordsAreKeptPerDirectionTargetAndPath)
{
    const Source_Version version{5, -7};
    const Resume_Record record = put_record();
    EXPECT_FALSE(record.load());
    record.store(version);
    ASSERT_TRUE(record.load());
    EXPECT_EQ(*record.load(), version);
    EXPECT_FALSE(Resume_Record("get", target(), "stored", path("source")).load());
    EXPECT_FALSE(Resume_Record("put", target(), "store", path("source")).load());
    EXPECT_FALSE(Resume_Record("put", target(), "stored", path("other")).load());
    record.remove();
    EXPECT_FALSE(record.load());
    EXPECT_TRUE(fs::is_empty(at("state/cio")));
}

TEST_F(Resume, RecordOfTheSameFileByAnotherNameIsFound)
{
    put_record().store({1, 2});
    const fs::path before = fs::current_path();
    fs::current_path(path(""));
    EXPECT_TRUE(Resume_Record("put", target(), "stored", "./source").load());
    EXPECT_TRUE(Resume_Record("put", target(), "stored", "source").load());
    fs::current_path(before);
}

TEST_F(Resume, DamagedRecordIsNone)
{
    put_record().store({1, 2});
    for (const auto& entry : fs::directory_iterator(at("state/cio")))
        write("state/cio/" + entry.path().filename().string(), "{\"size\":1,");
    EXPECT_FALSE(put_record().load());
}

TEST_F(Resume, RecordsThatCannotBeKeptDisturbNothing)
{
    write("state", "a file where the directory should be");
    const Cio_Result result = cio({"put", "source", uri(), "fresh"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read("target/fresh"), data_);
}

TEST(Resume_Rules, ObstaclesAreFoundInOrder)
{
    const Source_Version source{100, 5};
    EXPECT_EQ(obstacle_to_continuing({101, 9}, source, 5, std::nullopt),
              "it is longer than its source");
    EXPECT_EQ(obstacle_to_continuing({50, 9}, source, 5, Source_Version{100, 4}),
              "its source has changed");
    EXPECT_EQ(obstacle_to_continuing({50, 9}, source, 5, Source_Version{99, 5}),
              "its source has changed");
    EXPECT_EQ(obstacle_to_continuing({50, 4}, source, 5, std::nullopt), "its source is newer");
    EXPECT_EQ(obstacle_to_continuing({50, 4}, source, 5, source), "");
    EXPECT_EQ(obstacle_to_continuing({50, 5}, source, 5, std::nullopt), "");
    EXPECT_EQ(obstacle_to_continuing({100, 5}, source, 5, std::nullopt), "");
}

TEST_F(Resume, WithoutARecordEveryByteOfTheExistingPartIsCompared)
{
    // The same size, the same end, a time before the stored file's: only the bytes tell.
    std::string changed = data_;
    changed[100] = static_cast<char>(changed[100] + 1);
    write("target/stored", changed);
    const auto earlier = fs::last_write_time(at("target/stored")) - std::chrono::hours(24);
    fs::last_write_time(at("source"), earlier);
    const Cio_Result stored = put();
    EXPECT_EQ(stored.code, 0);
    EXPECT_NE(stored.out.find("starts again: it differs"), std::string::npos);
    EXPECT_EQ(cio({"verify", "source", uri(), "stored"}).code, 0);

    fs::last_write_time(at("target/stored"), earlier);
    write("local", changed.substr(0, 1'500'000));
    const Cio_Result restored = get();
    EXPECT_EQ(restored.code, 0);
    EXPECT_NE(restored.out.find("starts again: it differs"), std::string::npos);
    EXPECT_EQ(cio({"verify", "local", uri(), "stored"}).code, 0);
}

TEST_F(Resume, ARecordIsFoundHoweverTheTargetWasWritten)
{
    const cio::Target plain = cio::make_target(uri(), {}, true);
    const cio::Target slashes = cio::make_target(uri() + "//", {}, true);
    const Resume_Record written("put", plain, "stored", path("source"));
    written.store({1, 2});
    EXPECT_TRUE(Resume_Record("put", slashes, "stored", path("source")).load());
    written.remove();
}
