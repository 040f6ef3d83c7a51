#include "cli/get_worker.h"
#include "cli/put_worker.h"
#include "tests/cli/cli_test.h"
#include "tests/cli/test_pipe.h"
#include "tests/support/fake_clock.h"

#include <fstream>

namespace fs = std::filesystem;

/// The progress line reads the clock after every block, which is the moment at which these tests
/// change the source.
class Changing_Source : public Cli_Test
{
protected:
    static constexpr std::size_t size = 3'000'000;

    void SetUp() override
    {
        write("source", pattern(size));
        write("target/stored", pattern(size));
    }

    /// Runs one transfer that meets @p change after its first block.
    /// @return its exit code
    int transfer(bool put, const std::function<void()>& change)
    {
        Fake_Clock clock;
        cio::Output out(pipe_.write_end());
        const cio::Target target = cio::make_target(uri(), {}, true);
        cio::Reporter report({put ? "put" : "get", false, true, true}, out, out);
        cio::Transfer shared{target, report, false, false};
        unsigned looks = 0;
        clock.on_look = [&] {
            if (++looks == 2)
                change();
        };
        if (put)
            cio::Put_Worker(shared).run({path("source"), "new", false, std::nullopt});
        else
            cio::Get_Worker(shared).run({"stored", path("local"), {size, 1}, false});
        clock.on_look = nullptr;
        const int code = report.finish(false);
        out.flush();
        messages_ = pipe_.take();
        return code;
    }
    void expect_changed(bool put, const std::function<void()>& change)
    {
        EXPECT_EQ(transfer(put, change), 1);
        EXPECT_NE(messages_.find("changed while it was read"), std::string::npos) << messages_;
        EXPECT_NE(messages_.find("\"failed\":1"), std::string::npos) << messages_;
    }
    void append(const std::string& name) { std::ofstream(at(name), std::ios::app) << "more"; }

    const Environment_Variable state_{"XDG_STATE_HOME", path("state")};
    Test_Pipe pipe_;
    std::string messages_;
};

TEST_F(Changing_Source, UnchangedSourceIsStoredAndRestored)
{
    EXPECT_EQ(transfer(true, [] {}), 0) << messages_;
    EXPECT_EQ(read("target/new"), pattern(size));
    EXPECT_EQ(transfer(false, [] {}), 0) << messages_;
    EXPECT_EQ(read("local"), pattern(size));
}

TEST_F(Changing_Source, SourceThatGrowsFails)
{
    expect_changed(true, [this] { append("source"); });
    EXPECT_TRUE(exists("target/new")) << "what was stored stays";
    expect_changed(false, [this] { append("target/stored"); });
}

TEST_F(Changing_Source, SourceThatShrinksFails)
{
    expect_changed(true, [this] { fs::resize_file(at("source"), 1'500'000); });
    expect_changed(false, [this] { fs::resize_file(at("target/stored"), 1'500'000); });
}

TEST_F(Changing_Source, SourceThatIsWrittenInPlaceFails)
{
    expect_changed(true, [this] { shift_time("source", 1); });
    expect_changed(false, [this] { shift_time("target/stored", 1); });
}

TEST_F(Changing_Source, SourceThatIsRemovedMeanwhileIsStillRead)
{
    EXPECT_EQ(transfer(true, [this] { fs::remove(at("source")); }), 0) << messages_;
    EXPECT_EQ(read("target/new"), pattern(size));
}

TEST_F(Changing_Source, SourceThatVanishesBeforeItIsReadIsCodeThree)
{
    fs::remove(at("source"));
    EXPECT_EQ(transfer(true, [] {}), 3);
    EXPECT_FALSE(exists("target/new"));
    fs::remove(at("target/stored"));
    EXPECT_EQ(transfer(false, [] {}), 3);
    EXPECT_FALSE(exists("local"));
}
