#include "tests/conformance/member.h"
#include "tests/support/temp_directory.h"

#include <algorithm>
#include <iostream>

namespace
{

/// That the members whose storage fails at random do not pass the suite for want of failures.
class Random_Faults : public Conformance
{
protected:
    void write_in_pieces(const std::string& data)
    {
        ASSERT_TRUE(io_->open("a", overwriting, 0, 0)) << io_->error();
        for (std::size_t done = 0; done < data.size(); done += piece) {
            ASSERT_TRUE(io_->write(data.data() + done, std::min(piece, data.size() - done)))
                << io_->error();
            ASSERT_TRUE(io_->flush()) << io_->error();
        }
        ASSERT_TRUE(io_->close()) << io_->error();
    }

    std::string read_blocks()
    {
        std::string data;
        const void* block = nullptr;
        std::uint64_t size = 0;
        EXPECT_TRUE(io_->open("a", Client_IO_Base::mode_read, 0, 0)) << io_->error();
        while (io_->read(block, size) && size > 0)
            data.append(static_cast<const char*>(block), size);
        EXPECT_EQ(size, 0U) << io_->error();
        EXPECT_TRUE(io_->close()) << io_->error();
        return data;
    }

    static constexpr unsigned overwriting =
        Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;
    static constexpr std::size_t piece = 20000;
};

INSTANTIATE_TEST_SUITE_P(Of, Random_Faults, testing::ValuesIn(faulty_members()), member_name);

TEST_P(Random_Faults, HappenInEveryOperationAndAreHidden)
{
    const std::string data = sample_bytes(3 * 65536 + 1234);
    const auto happened = [this](Fault_Operation operation) {
        const Fault_Counts counts = target_->faults();
        const auto found = counts.find(operation);
        return found == counts.end() ? 0 : found->second;
    };
    const auto enough = [&] {
        using enum Fault_Operation;
        const std::uint64_t reads = happened(read) + happened(read_block);
        return std::min({happened(connect), happened(reconnect), happened(open), reads,
                         happened(write), happened(flush), happened(close), happened(size),
                         happened(get_dir)}) >= 3;
    };
    for (int round = 0; round < 200 && !enough(); ++round) {
        io_ = target_->connect();
        // Not closed: the next open has to see to it that it is whole.
        ASSERT_TRUE(io_->open("b", overwriting, 0, 0)) << io_->error();
        ASSERT_TRUE(io_->write(data.data(), piece)) << io_->error();
        ASSERT_NO_FATAL_FAILURE(write_in_pieces(data));
        EXPECT_TRUE(stored("b") == data.substr(0, piece));
        EXPECT_EQ(io_->size("a"), size_shown("a", data.size()));
        EXPECT_EQ(names(""), (std::vector<std::string>{"a", "b"}));
        EXPECT_TRUE(stored("a") == data);
        EXPECT_TRUE(read_blocks() == data);
    }
    EXPECT_TRUE(enough());
    std::uint64_t all = 0;
    for (const auto& [operation, count] : target_->faults())
        all += count;
    std::cout << all << " failures hidden\n";
    EXPECT_GT(all, 50U);
    EXPECT_GT(clock_.time, std::chrono::seconds(100));
}

TEST_P(Random_Faults, LeaveEveryByteInItsPlaceWhereWritingIsRandom)
{
    std::string model = sample_bytes(200000);
    store("a", model);
    if (refuses_to_write_within("a", Client_IO_Base::mode_random_write, 0))
        return;
    std::uint64_t at = 0;
    char next = 0;
    const auto write_next = [&](std::size_t size) {
        const std::string data(size, ++next);
        ASSERT_TRUE(io_->write(data.data(), size)) << io_->error();
        model.replace(at, size, data);
        at += size;
    };
    for (int round = 0; round < 200; ++round) {
        at = static_cast<std::uint64_t>(round % 7) * 10000;
        ASSERT_TRUE(io_->open("a", Client_IO_Base::mode_random_write, at, 0)) << io_->error();
        ASSERT_NO_FATAL_FAILURE(write_next(1));
        ASSERT_NO_FATAL_FAILURE(write_next(20000));
        at = 150000 - at;
        ASSERT_TRUE(io_->seek(at, 0)) << io_->error();
        ASSERT_NO_FATAL_FAILURE(write_next(300));
        ASSERT_NO_FATAL_FAILURE(write_next(7));
        ASSERT_TRUE(io_->close()) << io_->error();
        ASSERT_TRUE(stored("a") == model) << "round " << round;
    }
    EXPECT_GT(target_->faults()[Fault_Operation::write], 10U);
}

} // namespace
