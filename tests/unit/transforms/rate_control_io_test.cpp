#include "client_io/rate_control_io.h"

#include "platform/json/json_value.h"
#include "tests/support/fake_clock.h"
#include "tests/unit/transforms/store_io.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;

class Rate_Control : public testing::Test
{
protected:
    /// The bytes at 100000 a second: 300000 of them take three seconds.
    static constexpr std::uint64_t limit = 100000;

    std::chrono::nanoseconds slept(const std::function<void()>& operation)
    {
        const auto before = clock_.time;
        operation();
        return clock_.time - before;
    }

    /// Uses up what may be transferred without a pause.
    void warm_up(Rate_Control_IO& io)
    {
        ASSERT_TRUE(io.open("a", Client_IO_Base::mode_write, 0, 0));
        const std::string much(300000, 'w');
        ASSERT_TRUE(io.write(much.data(), much.size()));
        ASSERT_GT(clock_.time, 1s);
    }

    void expect_no_sleep(const std::function<void()>& operation)
    {
        EXPECT_EQ(slept(operation), 0ns);
    }

    Fake_Clock clock_;
    std::shared_ptr<Store> store_ = std::make_shared<Store>();
    Rate_Control_IO io_{limit, {}, std::make_unique<Store_IO>(store_)};
};

TEST_F(Rate_Control, ASuccessfulWriteIsPaced)
{
    warm_up(io_);
    const std::string data(300000, 'x');
    const auto time = slept([&] { EXPECT_TRUE(io_.write(data.data(), data.size())); });
    EXPECT_GT(time, 2900ms);
    EXPECT_LT(time, 3100ms);
    EXPECT_EQ(store_->data.size(), 600000U);
}

TEST_F(Rate_Control, ACopyingReadIsPacedByWhatItBrought)
{
    warm_up(io_);
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    store_->piece = 100000;
    std::string buffer(300000, '\0');
    const auto time = slept([&] { EXPECT_EQ(io_.read(buffer.data(), buffer.size()), 100000); });
    EXPECT_GT(time, 900ms);
    EXPECT_LT(time, 1100ms);
}

TEST_F(Rate_Control, AZeroCopyReadIsPacedByWhatItBrought)
{
    warm_up(io_);
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    store_->piece = 50000;
    const void* data = nullptr;
    std::uint64_t size = 0;
    const auto time = slept([&] { EXPECT_TRUE(io_.read(data, size)); });
    EXPECT_EQ(size, 50000U);
    EXPECT_GT(time, 400ms);
    EXPECT_LT(time, 600ms);
}

TEST_F(Rate_Control, FailuresAreNotDelayed)
{
    warm_up(io_);
    const std::string data(300000, 'x');
    store_->failing = {"write"};
    expect_no_sleep([&] { EXPECT_FALSE(io_.write(data.data(), data.size())); });
    EXPECT_EQ(io_.error(), "the store's words");
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    store_->failing = {"read"};
    store_->retriable = true;
    std::string buffer(300000, '\0');
    expect_no_sleep([&] { EXPECT_EQ(io_.read(buffer.data(), buffer.size()), -1); });
    const void* block = nullptr;
    std::uint64_t size = 300000;
    expect_no_sleep([&] { EXPECT_FALSE(io_.read(block, size)); });
    EXPECT_TRUE(io_.retriable());
}

TEST_F(Rate_Control, TheEndOfAFileAndTransfersOfNothingAreNotDelayed)
{
    warm_up(io_);
    expect_no_sleep([&] { EXPECT_TRUE(io_.write("", 0)); });
    ASSERT_TRUE(io_.close());
    store_->data.clear();
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    char byte = 0;
    expect_no_sleep([&] { EXPECT_EQ(io_.read(&byte, 1), 0); });
    const void* block = nullptr;
    std::uint64_t size = 5;
    expect_no_sleep([&] { EXPECT_TRUE(io_.read(block, size)); });
    EXPECT_EQ(size, 0U);
}

TEST_F(Rate_Control, NothingButTheDataIsPacedAndEverythingIsPassedOnUnchanged)
{
    warm_up(io_);
    store_->calls.clear();
    std::vector<Client_IO_Base::Directory_Entry> entries;
    expect_no_sleep([&] {
        EXPECT_TRUE(io_.flush());
        EXPECT_TRUE(io_.seek(7, 9));
        EXPECT_TRUE(io_.close());
        EXPECT_TRUE(io_.connect(URI(), Client_IO_Base::Options()));
        EXPECT_TRUE(io_.reconnect());
        EXPECT_TRUE(io_.open("b", Client_IO_Base::mode_read, 11, 22));
        EXPECT_TRUE(io_.close());
        EXPECT_TRUE(io_.open("b", Client_IO_Base::mode_write, json_spirit::Value()));
        EXPECT_TRUE(io_.close());
        EXPECT_EQ(io_.size("f"), 0U);
        EXPECT_TRUE(io_.get_dir("d", entries));
        EXPECT_TRUE(io_.make_dir("d", 0700));
        EXPECT_TRUE(io_.truncate("f", 1000000));
        EXPECT_TRUE(io_.remove("f"));
        EXPECT_TRUE(io_.copy("f", "g", true));
        EXPECT_TRUE(io_.rename("f", "g", true));
        io_.disconnect();
    });
    EXPECT_THAT(store_->calls,
                testing::ElementsAre("flush", "seek", "close", "connect", "reconnect",
                                     "open b 1 11 22", "close", "open b 2 extra", "close", "size f",
                                     "get_dir d", "make_dir d", "truncate f", "remove f",
                                     "copy f g", "rename f g", "disconnect"));
}

TEST_F(Rate_Control, ThePacedBytesAreTheSame)
{
    const std::string data = "0123456789";
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_.write(data.data(), data.size()));
    EXPECT_EQ(store_->data, data);
    ASSERT_TRUE(io_.close());
    ASSERT_TRUE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    std::string buffer(20, '\0');
    EXPECT_EQ(io_.read(buffer.data(), buffer.size()), 10);
    EXPECT_EQ(buffer.substr(0, 10), data);
}

TEST_F(Rate_Control, WithoutALowerLayerEverythingFailsAtOnce)
{
    const auto below = io_.release();
    char byte = 0;
    const void* block = nullptr;
    std::uint64_t size = 300000;
    expect_no_sleep([&] {
        EXPECT_EQ(io_.read(&byte, 1), -1);
        EXPECT_FALSE(io_.read(block, size));
        EXPECT_FALSE(io_.write(&byte, 1));
        EXPECT_FALSE(io_.open("a", Client_IO_Base::mode_read, 0, 0));
    });
}

TEST_F(Rate_Control, TheScheduleDecidesByTheTimeOfDay)
{
    // All day but one second of it, so that the time zone does not matter; unlimited otherwise.
    Rate_Control_IO io(0, {Rate_Control_Entry(0, 86399, limit)},
                       std::make_unique<Store_IO>(store_));
    warm_up(io);
    const std::string data(100000, 'x');
    const auto time = slept([&] { EXPECT_TRUE(io.write(data.data(), data.size())); });
    EXPECT_GT(time, 900ms);
    EXPECT_LT(time, 1100ms);
}

TEST_F(Rate_Control, ALimitOf0PacesNothing)
{
    Rate_Control_IO io(0, {}, std::make_unique<Store_IO>(store_));
    ASSERT_TRUE(io.open("a", Client_IO_Base::mode_write, 0, 0));
    const std::string data(300000, 'x');
    expect_no_sleep([&] {
        for (int time = 0; time < 20; ++time)
            EXPECT_TRUE(io.write(data.data(), data.size()));
    });
}

} // namespace
