#include "tests/support/allocation_count.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Data are not copied on their way, and memory does not grow with the image.

namespace
{

using testing::Contains;
using testing::ElementsAre;

TEST(Image_Copies, WhatTheReaderGivesReachesTheBackendsWriteInPlace)
{
    Recorded_Facade facade;
    facade.log->open = true;
    facade.io.write_mode_ = true;
    Image_Block_Writer writer(&facade.io);
    ASSERT_TRUE(writer.set_options(small_options()));
    writer.add_block(0, 2048);
    writer.add_block(8192, 512);
    writer.add_block(4096, 1024);
    const std::string source(10000, 's');
    std::vector<std::string> expected;
    ASSERT_TRUE(writer.write_blocks(
        go_on, [&](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
            data = source.data() + offset;
            const std::uint64_t n = std::min<std::uint64_t>(max_bytes, 700);
            expected.push_back(call_text("write", data, n));
            return static_cast<std::int64_t>(n);
        }));
    // What is left are the super block and two descriptor blocks.
    std::vector<std::string> calls = facade.log->actions();
    EXPECT_EQ(calls.size(), expected.size() + 3);
    for (const std::string& call : expected) {
        ASSERT_THAT(calls, Contains(call));
        calls.erase(std::find(calls.begin(), calls.end(), call));
    }
    for (const std::string& call : calls)
        EXPECT_THAT(call, testing::EndsWith(", 512)"));
}

TEST(Image_Copies, WhatTheBackendLendsReachesTheHandlerInPlace)
{
    Recorded_Facade facade;
    facade.log->open = true;
    const std::string image = two_descriptor_image();
    for (std::size_t at = 0; at < image.size(); at += 600)
        facade.log->blocks.push_back(image.substr(at, 600));
    std::uint64_t bytes = 0;
    Image_Block_Reader reader;
    EXPECT_TRUE(
        reader.read_blocks(facade.io, [&](const void* data, std::uint64_t size, std::int64_t) {
            const char* const from = static_cast<const char*>(data);
            const std::string& lent = facade.log->block;
            EXPECT_GE(from, lent.data());
            EXPECT_LE(from + size, lent.data() + lent.size());
            bytes += size;
            return true;
        }));
    EXPECT_EQ(bytes, 3U * 512);
    EXPECT_EQ(facade.log->count("read_block("), facade.log->actions().size());
}

TEST(Image_Copies, ThroughABufferDataReachTheHandlerFromIt)
{
    for (const Reading reading : {Reading::buffered, Reading::aligned}) {
        Recorded_Facade facade;
        facade.log->open = true;
        const std::string image = two_descriptor_image();
        for (const std::size_t size : {512, 512, 512, 512, 1024}) {
            std::size_t at = 0;
            for (const std::string& block : facade.log->blocks)
                at += block.size();
            facade.log->blocks.push_back(image.substr(at, size));
        }
        std::vector<std::string> expected;
        EXPECT_TRUE(
            read_image(reading, facade.io, [&](const void* data, std::uint64_t, std::int64_t) {
                const std::string& call = facade.log->calls.back();
                const std::string start = call_text("read", data);
                // "read(ADDRESS)" without its end is the start of the call.
                EXPECT_TRUE(call.starts_with(start.substr(0, start.size() - 1)))
                    << call << " and " << start;
                return true;
            }));
    }
}

TEST(Image_Memory, TenMillionReservedExtentsTake16BytesEach)
{
    constexpr std::uint64_t count = 10'000'000;
    const Log_Capture log;
    Image_Block_Writer writer(nullptr);
    const Allocation_Count memory;
    writer.reserve(count);
    for (std::uint64_t i = 0; i < count; ++i)
        writer.add_block(1024 * i, 512);
    const std::size_t bytes = memory.bytes();
    const std::size_t allocations = memory.allocations();
    EXPECT_EQ(bytes, 16 * count);
    EXPECT_EQ(allocations, 1U);
}

/// Takes everything.
class Null_IO : public Recording_IO
{
public:
    Null_IO() : Recording_IO(std::make_shared<Recording>()) {}

    using Recording_IO::open;
    using Recording_IO::read;
    using Recording_IO::size;

    bool connect(const URI&, const Options&) override { return true; }
    bool is_connected() const override { return true; }
    bool is_open() const override { return true; }
    bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override { return true; }
    bool write(const void*, std::uint64_t) override { return true; }
};

TEST(Image_Memory, WritingTakesTwoDescriptorBlocksWhateverTheImageHolds)
{
    std::vector<std::size_t> taken;
    for (const std::uint64_t count : {1000, 100000}) {
        Open_Facade io;
        ASSERT_TRUE(io.connect_plain(std::make_unique<Null_IO>()));
        io.write_mode_ = true;
        Image_Block_Writer writer(&io);
        ASSERT_TRUE(writer.set_options(small_options()));
        for (std::uint64_t i = 0; i < count; ++i)
            writer.add_block(1024 * i, 512);
        const std::string data(512, 'd');
        const auto reader = [&](const void*& from, std::uint64_t, std::int64_t) {
            from = data.data();
            return std::int64_t{512};
        };
        const Image_Block_Writer::Progress progress = go_on;
        const Image_Block_Writer::Reader read = reader;
        const Allocation_Count memory;
        const bool ok = writer.write_blocks(progress, read);
        taken.push_back(memory.bytes());
        EXPECT_TRUE(ok);
    }
    EXPECT_EQ(taken[0], taken[1]);
    EXPECT_LE(taken[1], 2U * 512);
}

/// Hands out an image of many descriptor blocks that is made while it is read.
class Endless_Image
{
public:
    explicit Endless_Image(std::uint64_t descriptor_blocks) : left_(descriptor_blocks)
    {
        EXPECT_TRUE(writer_.set_options(small_options()));
        EXPECT_TRUE(writer_.write_descriptor_header(0, "SDD1"));
    }

    /// The next part, "" behind the last one.
    std::string_view next()
    {
        part_.swap(writer_.image);
        writer_.image.clear();
        writer_.pieces.clear();
        if (part_.empty() && left_ > 0) {
            --left_;
            for (std::uint64_t i = 0; i < 28; ++i)
                EXPECT_EQ(writer_.write_descriptor_record(2 * i, 1), 1);
            EXPECT_TRUE(writer_.write_data_due(28));
            return next();
        }
        return part_;
    }

private:
    String_Image_Writer writer_;
    std::string part_;
    std::uint64_t left_;
};

class Endless_Image_IO : public Null_IO
{
public:
    explicit Endless_Image_IO(std::uint64_t descriptor_blocks) : image_(descriptor_blocks) {}

    std::int64_t read(void* buf, std::uint64_t size) override
    {
        if (rest_.empty())
            rest_ = image_.next();
        const std::string_view given = rest_.substr(0, size);
        std::copy(given.begin(), given.end(), static_cast<char*>(buf));
        rest_.remove_prefix(given.size());
        return static_cast<std::int64_t>(given.size());
    }
    bool read(const void*& data, std::uint64_t& size) override
    {
        rest_ = image_.next();
        data = rest_.data();
        size = rest_.size();
        rest_ = {};
        return true;
    }

private:
    Endless_Image image_;
    std::string_view rest_;
};

TEST(Image_Memory, ReadingKeepsNothingOfWhatWasDelivered)
{
    for (const Reading reading : every_reading) {
        SCOPED_TRACE(testing::PrintToString(reading));
        std::vector<std::size_t> most;
        for (const std::uint64_t descriptor_blocks : {10, 1000}) {
            Open_Facade io;
            ASSERT_TRUE(io.connect_plain(std::make_unique<Endless_Image_IO>(descriptor_blocks)));
            std::uint64_t bytes = 0;
            std::size_t kept = 0;
            const Allocation_Count memory;
            const bool ok =
                read_image(reading, io, [&](const void*, std::uint64_t size, std::int64_t) {
                    bytes += size;
                    kept = std::max(kept, memory.unreleased());
                    return true;
                });
            most.push_back(kept);
            EXPECT_TRUE(ok);
            EXPECT_EQ(bytes, descriptor_blocks * 28 * 512);
        }
        EXPECT_LE(most[1], most[0] + 2) << "allocations alive at one moment";
    }
}

} // namespace
