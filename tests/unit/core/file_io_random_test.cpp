#include "client_io/file_io.h"
#include "tests/support/temp_directory.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

namespace
{

/// One file of a File_IO beside the bytes that it must hold.
class Random_File : public testing::Test
{
protected:
    void SetUp() override
    {
        const char* given = std::getenv("CLIENT_IO_SEED");
        seed_ = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
        std::cout << "CLIENT_IO_SEED=" << seed_ << '\n';
        random_.seed(seed_);
        URI uri;
        uri.scheme("file");
        uri.path(directory_.str(), false);
        ASSERT_TRUE(io_.connect(uri, Client_IO_Base::Options{})) << io_.error();
    }

    std::uint64_t number(std::uint64_t most)
    {
        return std::uniform_int_distribution<std::uint64_t>(0, most)(random_);
    }

    /// Sizes of every order, often near multiples of the block size, where errors by one live.
    std::uint64_t odd_size()
    {
        switch (number(3)) {
        case 0:
            return number(16);
        case 1:
            return number(5000);
        case 2:
            return number(300000);
        default:
            return 65536 * (1 + number(3)) + number(2) - 1;
        }
    }

    /// A size of a read or write, which is never 0.
    std::uint64_t step() { return std::max<std::uint64_t>(1, odd_size()); }

    std::string bytes(std::uint64_t size)
    {
        std::string data(size, '\0');
        const auto first = random_();
        for (std::size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<char>((first + i * 2654435761U) >> 16U);
        return data;
    }

    void overwrite_model(std::uint64_t offset, const std::string& data)
    {
        if (model_.size() < offset + data.size())
            model_.resize(offset + data.size());
        std::copy(data.begin(), data.end(), model_.begin() + static_cast<std::ptrdiff_t>(offset));
    }

    void write_some(bool seeking)
    {
        const unsigned modes[] = {Client_IO_Base::mode_random_write,
                                  Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite};
        const unsigned mode = modes[number(1)];
        std::uint64_t position = number(1) != 0 ? number(model_.size()) : odd_size();
        if (mode != Client_IO_Base::mode_random_write) {
            position = number(2) != 0 ? position : 0;
            if (position == 0)
                model_.clear();
        }
        ASSERT_TRUE(io_.open("file", mode, position, 0)) << io_.error();
        std::uint64_t highest = position;
        for (std::uint64_t i = number(6); i > 0; --i) {
            if (seeking && number(2) == 0) {
                position = number(model_.size() + 1000);
                ASSERT_TRUE(io_.seek(position, number(10))) << io_.error();
                highest = std::max(highest, position);
            }
            const std::string data = bytes(step());
            ASSERT_TRUE(io_.write(data.data(), data.size())) << io_.error();
            overwrite_model(position, data);
            position += data.size();
            highest = std::max(highest, position);
            ASSERT_EQ(io_.size(), highest);
        }
        ASSERT_TRUE(io_.close()) << io_.error();
    }

    void append_some()
    {
        ASSERT_TRUE(io_.open("file", Client_IO_Base::mode_append, 0, 0)) << io_.error();
        std::uint64_t appended = 0;
        for (std::uint64_t i = number(4); i > 0; --i) {
            const std::string data = bytes(step());
            ASSERT_TRUE(io_.write(data.data(), data.size())) << io_.error();
            model_ += data;
            appended += data.size();
            ASSERT_EQ(io_.size(), appended);
        }
        ASSERT_TRUE(io_.close()) << io_.error();
    }

    /// Bytes that may still be read from @p position, with a limit of @p limit (0 = none) there.
    std::uint64_t readable(std::uint64_t position, std::uint64_t limit) const
    {
        const std::uint64_t rest = model_.size() - std::min<std::uint64_t>(position, model_.size());
        return limit == 0 ? rest : std::min(rest, limit);
    }

    std::string expected(std::uint64_t position, std::uint64_t size) const
    {
        return position >= model_.size() ? "" : model_.substr(position, size);
    }

    void read_copying()
    {
        std::uint64_t position = number(1) != 0 ? number(model_.size() + 100) : 0;
        std::uint64_t limit = number(1) != 0 ? odd_size() : 0;
        ASSERT_TRUE(io_.open("file", Client_IO_Base::mode_read, position, limit)) << io_.error();
        ASSERT_EQ(io_.size(), model_.size());
        std::uint64_t left = readable(position, limit);
        for (std::uint64_t i = number(12); i > 0; --i) {
            if (number(5) == 0) {
                position = number(model_.size() + 100);
                limit = number(1) != 0 ? odd_size() : 0;
                ASSERT_TRUE(io_.seek(position, limit)) << io_.error();
                left = readable(position, limit);
            }
            std::string data(step(), '#');
            const std::uint64_t wanted = std::min<std::uint64_t>(left, data.size());
            const std::int64_t n = io_.read(data.data(), data.size());
            ASSERT_EQ(n, static_cast<std::int64_t>(wanted))
                << io_.error() << " at " << position << " of " << model_.size();
            ASSERT_TRUE(data.substr(0, wanted) == expected(position, wanted)) << "at " << position;
            ASSERT_EQ(data.find_first_not_of('#', wanted), std::string::npos)
                << "bytes behind the end were touched";
            position += wanted;
            left -= wanted;
        }
        ASSERT_TRUE(io_.close()) << io_.error();
    }

    void read_without_copying()
    {
        const std::uint64_t position = number(model_.size() + 100);
        const std::uint64_t limit = number(1) != 0 ? odd_size() : 0;
        ASSERT_TRUE(io_.open("file", Client_IO_Base::mode_read, position, limit)) << io_.error();
        std::string data;
        for (;;) {
            const void* block = nullptr;
            std::uint64_t size = 0;
            ASSERT_TRUE(io_.read(block, size)) << io_.error();
            if (size == 0)
                break;
            data.append(static_cast<const char*>(block), size);
        }
        ASSERT_TRUE(data == expected(position, readable(position, limit))) << "from " << position;
        ASSERT_TRUE(io_.close()) << io_.error();
    }

    void truncate_somewhere()
    {
        const std::uint64_t size = number(1) != 0 ? number(model_.size() + 1000) : odd_size();
        ASSERT_TRUE(io_.truncate("file", size)) << io_.error();
        model_.resize(size);
    }

    std::uint64_t seed_ = 0;
    std::mt19937_64 random_;
    Temp_Directory directory_;
    File_IO io_;
    std::string model_;
};

TEST_F(Random_File, HoldsWhatTheModelHoldsAfterEveryOperation)
{
    ASSERT_TRUE(io_.open("file", Client_IO_Base::mode_write, 0, 0));
    ASSERT_TRUE(io_.close());
    for (int round = 0; round < 600 && !HasFailure(); ++round) {
        SCOPED_TRACE("CLIENT_IO_SEED=" + std::to_string(seed_) + ", round " +
                     std::to_string(round));
        switch (number(7)) {
        case 0:
            write_some(false);
            break;
        case 1:
            write_some(true);
            break;
        case 2:
            append_some();
            break;
        case 3:
            truncate_somewhere();
            break;
        case 4:
            read_without_copying();
            break;
        default:
            read_copying();
            break;
        }
        ASSERT_EQ(io_.size("file"), model_.size());
        if (model_.size() > (4U << 20U)) {
            ASSERT_TRUE(io_.truncate("file", 1000));
            model_.resize(1000);
        }
        if (round % 16 == 0) {
            ASSERT_TRUE(read_local(directory_ / "file") == model_);
        }
    }
    EXPECT_TRUE(read_local(directory_ / "file") == model_);
}

} // namespace
