#include "platform/json/json_value.h"
#include "platform/runtime/os_error.h"
#include "tests/faults/fault_stack.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fault_io.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

/// The fault layer itself: what each fault does, and that the random ones can be hidden.

namespace
{

class Fault_Layer : public testing::Test
{
protected:
    void start(std::map<std::uint64_t, Fault> faults)
    {
        io_ = std::make_unique<Fault_IO>(std::make_unique<Memory_IO>(target_.files),
                                         faults_at(std::move(faults)), target_.files);
        ASSERT_TRUE(io_->connect(URI(), {}));
    }

    bool open(unsigned mode, std::uint64_t offset = 0)
    {
        return io_->open(Fault_Target::path, mode, offset, 0);
    }
    bool write(const std::string& data) { return io_->write(data.data(), data.size()); }

    static constexpr unsigned overwriting =
        Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;

    Fault_Target target_;
    std::unique_ptr<Fault_IO> io_;
};

TEST_F(Fault_Layer, WithoutAPlanChangesNothing)
{
    target_.store("old");
    io_ = std::make_unique<Fault_IO>(std::make_unique<Memory_IO>(target_.files));
    ASSERT_TRUE(io_->connect(URI(), {}));
    ASSERT_TRUE(open(Client_IO_Base::mode_append));
    EXPECT_TRUE(write("new"));
    EXPECT_TRUE(io_->close());
    EXPECT_EQ(target_.contents(), "oldnew");
    EXPECT_EQ(io_->operations(), 4U);
    EXPECT_EQ(io_->failures(), 0U);
    EXPECT_FALSE(open(overwriting & ~0x100U));
    EXPECT_EQ(io_->errnum(), os_error::file_exists); // the lower layer's own failure
    EXPECT_FALSE(io_->retriable());
}

TEST_F(Fault_Layer, AFailureIsTheFaultsUntilTheNextOperation)
{
    start({{1, {}}, {2, {Fault_Kind::nothing_done, 0, false}}});
    EXPECT_FALSE(open(overwriting));
    EXPECT_EQ(io_->error(), "injected nothing done at open 1");
    EXPECT_EQ(io_->errnum(), EIO);
    EXPECT_TRUE(io_->retriable());
    EXPECT_FALSE(open(overwriting));
    EXPECT_FALSE(io_->retriable());
    EXPECT_EQ(target_.contents(), "(missing)");
    EXPECT_TRUE(open(overwriting));
    EXPECT_EQ(io_->error(), "");
    EXPECT_EQ(io_->errnum(), 0);
    EXPECT_EQ(io_->failures(), 2U);
}

TEST_F(Fault_Layer, PartsAndWholesArriveThoughTheyFail)
{
    start({{2, {Fault_Kind::part_done, 2}}, {3, {Fault_Kind::done}}, {4, {Fault_Kind::done}}});
    ASSERT_TRUE(open(overwriting));
    EXPECT_FALSE(write("ABCD"));
    EXPECT_EQ(target_.contents(), "AB");
    EXPECT_FALSE(write("EFGH"));
    EXPECT_EQ(target_.contents(), "ABEFGH");
    EXPECT_FALSE(io_->close());
    EXPECT_FALSE(io_->is_open());
}

TEST_F(Fault_Layer, ALostConnectionTakesTheLastBytesAndTheFile)
{
    start({{3, {Fault_Kind::connection_lost, 3}}});
    ASSERT_TRUE(open(overwriting));
    EXPECT_TRUE(write("ABCD"));
    EXPECT_FALSE(write("EF"));
    EXPECT_EQ(target_.contents(), "ABC");
    EXPECT_FALSE(io_->is_open());
    EXPECT_FALSE(io_->is_connected());
}

TEST_F(Fault_Layer, ALostConnectionBringsBackWhatWasOverwrittenButNothingBeforeTheSeek)
{
    target_.store("0123456789");
    start({{5, {Fault_Kind::connection_lost, 100}}});
    ASSERT_TRUE(open(Client_IO_Base::mode_random_write));
    EXPECT_TRUE(write("AB"));
    ASSERT_TRUE(io_->seek(8, 0));
    EXPECT_TRUE(write("C"));
    EXPECT_FALSE(write("DEF"));
    EXPECT_EQ(target_.contents(), "AB23456789");
}

TEST_F(Fault_Layer, ALostConnectionTakesOnlyWhatItSays)
{
    target_.store("0123456789");
    start({{2, {Fault_Kind::connection_lost, 3}}});
    ASSERT_TRUE(open(Client_IO_Base::mode_random_write, 7));
    EXPECT_FALSE(write("ABCDE"));
    EXPECT_EQ(target_.contents(), "0123456AB9");
}

TEST_F(Fault_Layer, ReopenedLongMeansForeignBytesBehindAll)
{
    start({{2, {Fault_Kind::reopened_long, 3}}});
    ASSERT_TRUE(open(overwriting));
    EXPECT_FALSE(write("AB"));
    EXPECT_EQ(target_.contents(), "AB###");
    EXPECT_FALSE(io_->is_connected());
}

TEST_F(Fault_Layer, ShortReadsBringEveryByteOnce)
{
    target_.store("ABCDEFGH");
    for (const bool copying : {false, true}) {
        start({{2, {Fault_Kind::short_read, 3}}, {3, {Fault_Kind::short_read, 0}}});
        ASSERT_TRUE(open(Client_IO_Base::mode_read));
        std::vector<std::string> blocks;
        for (;;) {
            char buffer[100];
            const void* data = buffer;
            std::uint64_t size = 0;
            if (copying)
                size = static_cast<std::uint64_t>(io_->read(buffer, sizeof buffer));
            else
                ASSERT_TRUE(io_->read(data, size));
            if (size == 0)
                break;
            blocks.emplace_back(static_cast<const char*>(data), size);
        }
        EXPECT_EQ(blocks, (std::vector<std::string>{"ABC", "D", "EFGH"})) << copying;
    }
}

TEST_F(Fault_Layer, SizesAreUnknownOrOldUntilTheNextOpen)
{
    target_.store("0123456789");
    start({{1, {Fault_Kind::unknown_size}}, {2, {Fault_Kind::old_size}}});
    ASSERT_TRUE(open(Client_IO_Base::mode_read));
    EXPECT_EQ(io_->size(), Client_IO_Base::size_unknown);
    ASSERT_TRUE(open(overwriting));
    EXPECT_EQ(io_->size(), 10U);
    EXPECT_TRUE(write("A"));
    EXPECT_EQ(io_->size(), 10U);
    ASSERT_TRUE(open(Client_IO_Base::mode_read));
    EXPECT_EQ(io_->size(), 1U);
}

TEST_F(Fault_Layer, SlowTakesSecondsOfTheClockAndSucceeds)
{
    Fake_Clock clock;
    start({{1, {Fault_Kind::slow, 7}}});
    EXPECT_TRUE(open(overwriting));
    EXPECT_EQ(clock.time, std::chrono::seconds(7));
    EXPECT_EQ(io_->failures(), 0U);
}

TEST_F(Fault_Layer, ListingsAndSizesFailHalfWay)
{
    target_.store("12345");
    start({{1, {Fault_Kind::part_done, 1}}, {2, {Fault_Kind::done}}});
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_FALSE(io_->get_dir("", entries));
    EXPECT_EQ(entries.size(), 1U);
    EXPECT_EQ(io_->size(Fault_Target::path), Client_IO_Base::size_unknown);
    EXPECT_EQ(io_->size(Fault_Target::path), 5U);
}

TEST_F(Fault_Layer, OpenWithExtraIsCountedAndFailsLikeTheOther)
{
    start({{1, {}}});
    const json_spirit::Value extra;
    EXPECT_FALSE(io_->open(Fault_Target::path, overwriting, extra));
    EXPECT_EQ(target_.contents(), "(missing)");
    EXPECT_TRUE(io_->open(Fault_Target::path, overwriting, extra));
    EXPECT_EQ(target_.contents(), "");
}

// --- random faults

/// Writes, appends and reads at random, and holds every result to what it must be.
class Random_Work
{
public:
    Random_Work(std::uint64_t seed, double probability)
        : random_(seed),
          stack_(target_,
                 random_faults({.seed = seed, .probability = probability, .most_lost = 500}),
                 100000)
    {
        EXPECT_TRUE(stack_.connect()) << stack_.io->error();
    }

    void run(int rounds)
    {
        for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
            const unsigned mode = static_cast<unsigned>(number(2)) + 2;
            if (round == 0 || number(2) != 0)
                change(mode);
            else
                read_back();
            ask();
        }
        EXPECT_EQ(target_.contents(), model_);
        EXPECT_TRUE(stack_.violations->empty()) << stack_.violations->front();
    }

    std::uint64_t failures() const { return stack_.faults->failures(); }

private:
    void change(unsigned mode)
    {
        const bool random_write = mode == Client_IO_Base::mode_random_write;
        if (mode == Client_IO_Base::mode_write) {
            mode |= Client_IO_Base::mode_overwrite;
            model_.clear();
        }
        std::uint64_t at = random_write ? number(model_.size()) : model_.size();
        ASSERT_TRUE(io().open(Fault_Target::path, mode, random_write ? at : 0, 0)) << io().error();
        for (std::uint64_t pieces = number(6); pieces > 0; --pieces) {
            std::string piece(number(300), '\0');
            std::generate(piece.begin(), piece.end(),
                          [this] { return static_cast<char>(number(255)); });
            ASSERT_TRUE(io().write(piece.data(), piece.size())) << io().error();
            model_.resize(std::max<std::size_t>(model_.size(), at + piece.size()));
            model_.replace(at, piece.size(), piece);
            at += piece.size();
            if (number(3) == 0) {
                ASSERT_TRUE(io().flush()) << io().error();
            }
            if (random_write && number(3) == 0) {
                at = number(model_.size());
                ASSERT_TRUE(io().seek(at, 0)) << io().error();
            }
        }
        ASSERT_TRUE(io().close()) << io().error();
    }

    void read_back()
    {
        const std::uint64_t offset = number(model_.size());
        const std::uint64_t limit = number(1) * number(1000);
        const std::string expected = model_.substr(offset, limit == 0 ? std::string::npos : limit);
        const bool copying = number(1) == 0;
        ASSERT_TRUE(io().open(Fault_Target::path, Client_IO_Base::mode_read, offset, limit))
            << io().error();
        std::string bytes;
        for (;;) {
            char buffer[97];
            const void* data = buffer;
            std::uint64_t size = 0;
            if (copying) {
                const std::int64_t n = io().read(buffer, sizeof buffer);
                ASSERT_GE(n, 0) << io().error();
                size = static_cast<std::uint64_t>(n);
                // A short one is the last one.
                EXPECT_EQ(size,
                          std::min<std::uint64_t>(sizeof buffer, expected.size() - bytes.size()));
            } else {
                ASSERT_TRUE(io().read(data, size)) << io().error();
            }
            if (size == 0)
                break;
            bytes.append(static_cast<const char*>(data), size);
        }
        EXPECT_EQ(bytes, expected);
        ASSERT_TRUE(io().close()) << io().error();
        EXPECT_FALSE(io().is_open());
    }

    void ask()
    {
        EXPECT_EQ(io().size(Fault_Target::path), model_.size()) << io().error();
        std::vector<Client_IO_Base::Directory_Entry> entries;
        EXPECT_TRUE(io().get_dir("", entries)) << io().error();
        ASSERT_EQ(entries.size(), 1U);
        EXPECT_EQ(entries[0].size, model_.size());
    }

    Resumption_IO& io() { return *stack_.io; }
    std::uint64_t number(std::uint64_t most)
    {
        return std::uniform_int_distribution<std::uint64_t>(0, most)(random_);
    }

    Fake_Clock clock_;
    Log_Capture log_;
    std::mt19937_64 random_;
    Fault_Target target_;
    std::string model_;
    Fault_Stack stack_;
};

TEST(Random_Fault, AllOfThemAreHiddenByTheRetries)
{
    const std::uint64_t seed = seed_of_faults();
    std::uint64_t failures = 0;
    for (std::uint64_t round = 0; round < 200 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE("CLIENT_IO_SEED=" + std::to_string(seed) + ", round " + std::to_string(round));
        Random_Work work(seed + round, 0.02 * static_cast<double>(round % 20 + 1));
        work.run(40);
        failures += work.failures();
    }
    EXPECT_GT(failures, 1000U);
    std::cout << failures << " failures hidden\n";
}

TEST(Random_Fault, TheSameSeedGivesTheSameFaults)
{
    const auto failures_of = [](std::uint64_t seed) {
        Random_Work work(seed, 0.2);
        work.run(20);
        return work.failures();
    };
    EXPECT_GT(failures_of(7), 0U);
    EXPECT_EQ(failures_of(7), failures_of(7));
}

TEST(Random_Fault, NoneAtAllWithoutAProbability)
{
    Random_Work work(7, 0);
    work.run(20);
    EXPECT_EQ(work.failures(), 0U);
}

} // namespace
