#include "client_io/evp_io.h"
#include "client_io/rate_control_io.h"
#include "client_io/resumption_io.h"
#include "tests/support/allocation_count.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"
#include "tests/unit/transforms/c_allocations.h"
#include "tests/unit/transforms/transform_kinds.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>

// Once they are warm, transforms allocate nothing per read or write.

namespace
{

/// Takes what is written and gives what it is told to, without an allocation.
class Sink_IO : public Store_IO
{
public:
    explicit Sink_IO(std::string source = {})
        : Store_IO(std::make_shared<Store>()), source_(std::move(source))
    {}

    using Store_IO::open;
    using Store_IO::size;

    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t length) override
    {
        position_ = 0;
        return Store_IO::open(path, mode, offset, length);
    }
    bool write(const void*, std::uint64_t size) override
    {
        written_ += size;
        return true;
    }
    std::int64_t read(void* buf, std::uint64_t size) override
    {
        const std::uint64_t n = std::min<std::uint64_t>(size, source_.size() - position_);
        std::memcpy(buf, source_.data() + position_, n);
        position_ += n;
        return static_cast<std::int64_t>(n);
    }
    bool read(const void*& data, std::uint64_t& size) override
    {
        data = source_.data() + position_;
        size = std::min<std::uint64_t>(65536, source_.size() - position_);
        position_ += size;
        return true;
    }
    std::uint64_t size() const override { return source_.size() + written_; }
    bool flush() override { return true; }

private:
    std::string source_;
    std::size_t position_ = 0;
    std::uint64_t written_ = 0;
};

using Make = std::function<std::unique_ptr<Client_IO_Base>(std::unique_ptr<Client_IO_Base>)>;

struct Stack
{
    std::string name;
    Make make;
};

std::ostream& operator<<(std::ostream& out, const Stack& stack)
{
    return out << stack.name;
}

std::unique_ptr<Client_IO_Base> resuming(std::unique_ptr<Client_IO_Base> io)
{
    return std::make_unique<Resumption_IO>(std::move(io), 10485760);
}

std::unique_ptr<Client_IO_Base> paced(std::unique_ptr<Client_IO_Base> io)
{
    return std::make_unique<Rate_Control_IO>(50000000, std::vector<Rate_Control_Entry>(),
                                             std::move(io));
}

std::vector<Stack> stacks()
{
    std::vector<Stack> all = {{"Resumption", resuming}, {"Rate_Control", paced}};
    for (const Kind& kind : main_kinds()) {
        all.push_back({kind.name, kind.make});
        if (!kind.is_cipher)
            all.push_back({"Full_" + kind.name, [kind](std::unique_ptr<Client_IO_Base> io) {
                               return kind.make(
                                   main_kinds().at(2).make(paced(resuming(std::move(io)))));
                           }});
    }
    return all;
}

class Warm_Transforms : public testing::TestWithParam<Stack>
{
protected:
    static constexpr std::size_t warm = 2U << 20U;
    static constexpr std::size_t parts[] = {1, 1000, 65536, 262144};

    Log_Capture log_;
    Fake_Clock clock_;
    const std::string data_ = sample_text(8U << 20U);
};

INSTANTIATE_TEST_SUITE_P(Of, Warm_Transforms, testing::ValuesIn(stacks()),
                         [](const testing::TestParamInfo<Stack>& stack) {
                             return stack.param.name;
                         });

/// What was allocated since its construction, by whatever way.
class Both_Counts
{
public:
    std::uint64_t allocations() const
    {
        return count_.allocations() + (c_allocations() - c_before_);
    }

private:
    Allocation_Count count_;
    std::uint64_t c_before_ = c_allocations();
};

TEST(Allocations, AreCounted)
{
    const Both_Counts count;
    const auto block = std::make_unique<std::string>(1000, 'x');
    EXPECT_GE(count.allocations(), 2U);
#if !defined(__SANITIZE_ADDRESS__)
    const std::uint64_t before = c_allocations();
    const std::unique_ptr<void, decltype(&std::free)> c_block(std::malloc(1000), &std::free);
    EXPECT_NE(c_block, nullptr);
    EXPECT_EQ(c_allocations(), before + 1);
#endif
}

TEST_P(Warm_Transforms, AllocateNothingToWrite)
{
    const auto io = GetParam().make(std::make_unique<Sink_IO>());
    ASSERT_TRUE(io->connect(URI(), Client_IO_Base::Options()));
    ASSERT_TRUE(io->open("a", Client_IO_Base::mode_write, 0, 0));
    bool written = io->write(data_.data(), warm);
    const auto write_parts = [&](int times) {
        std::size_t done = warm;
        for (const std::size_t part : parts)
            for (int time = 0; time < times; ++time, done += part)
                written = written && io->write(data_.data() + done, part);
    };
    write_parts(1);
    const Both_Counts count;
    write_parts(10);
    EXPECT_EQ(count.allocations(), 0U);
    EXPECT_TRUE(written);
    EXPECT_TRUE(io->close()) << io->error();
}

TEST_P(Warm_Transforms, AllocateNothingToRead)
{
    const auto store = std::make_shared<Store>();
    {
        const auto writer = GetParam().make(std::make_unique<Store_IO>(store));
        ASSERT_TRUE(writer->connect(URI(), Client_IO_Base::Options()));
        ASSERT_TRUE(writer->open("a", Client_IO_Base::mode_write, 0, 0));
        ASSERT_TRUE(writer->write(data_.data(), data_.size()));
        ASSERT_TRUE(writer->close());
    }
    for (const Form form : {Form::copying, Form::zero_copy}) {
        const auto io = GetParam().make(std::make_unique<Sink_IO>(store->data));
        ASSERT_TRUE(io->connect(URI(), Client_IO_Base::Options()));
        ASSERT_TRUE(io->open("a", Client_IO_Base::mode_read, 0, 0));
        std::string buffer(262144, '\0');
        std::uint64_t total = 0;
        bool all_read = true;
        const auto read_parts = [&](int times) {
            for (const std::size_t part : parts)
                for (int time = 0; time < times; ++time) {
                    const void* data = nullptr;
                    std::uint64_t size = 0;
                    if (form == Form::copying)
                        size = static_cast<std::uint64_t>(
                            std::max<std::int64_t>(io->read(buffer.data(), part), 0));
                    else
                        all_read = io->read(data, size) && all_read;
                    all_read = all_read && size > 0;
                    total += size;
                }
        };
        while (all_read && total < warm)
            read_parts(1);
        const Both_Counts count;
        read_parts(4);
        EXPECT_EQ(count.allocations(), 0U) << (form == Form::copying ? "copying" : "zero-copy");
        EXPECT_TRUE(all_read);
        EXPECT_LT(total, data_.size());
        EXPECT_TRUE(io->close());
    }
}

} // namespace
