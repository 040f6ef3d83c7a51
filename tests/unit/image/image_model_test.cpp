#include "platform/runtime/encryption_algorithm.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

// Lists of extents of every kind, written and read back, against a model: the list itself and a
// source whose bytes tell where they belong.

namespace
{

using Extents = std::vector<Image_Block_Writer::Block>;

std::uint64_t capacity_of(std::uint64_t descriptor_block_size, std::uint64_t extra = 0)
{
    return (descriptor_block_size - extra - 64) / 16;
}

std::uint64_t total_of(const Extents& extents)
{
    std::uint64_t total = 0;
    for (const auto& extent : extents)
        total += extent.length;
    return total;
}

/// Compares what is delivered with what the list says, byte by byte.
class Model
{
public:
    explicit Model(const Extents& extents) : extents_(extents) {}

    /// False at the first byte that does not belong there.
    bool take(const void* data, std::uint64_t size, std::int64_t offset)
    {
        const char* from = static_cast<const char*>(data);
        auto at = static_cast<std::uint64_t>(offset);
        if (size == 0)
            return false;
        while (size > 0) {
            // Within a piece, the next extent begins where the one before ended.
            if (next_ == extents_.size() || extents_[next_].offset + done_ != at)
                return false;
            const std::uint64_t n = std::min(size, extents_[next_].length - done_);
            expected_.resize(n);
            source_.read(at, expected_.data(), n);
            if (std::memcmp(expected_.data(), from, n) != 0)
                return false;
            from += n;
            at += n;
            size -= n;
            done_ += n;
            if (done_ == extents_[next_].length) {
                ++next_;
                done_ = 0;
            }
        }
        return true;
    }

    bool complete() const { return next_ == extents_.size(); }

private:
    const Extents& extents_;
    Test_Source source_;
    std::string expected_;
    std::size_t next_ = 0;
    std::uint64_t done_ = 0; ///< bytes of it
};

bool write_image(Client_IO& io, const qovr::Image_Options& options, const Extents& extents,
                 const Image_Block_Writer::Reader& reader)
{
    Image_Block_Writer writer(&io);
    EXPECT_TRUE(writer.set_options(options));
    writer.reserve(extents.size());
    for (const auto& extent : extents)
        writer.add_block(extent.offset, extent.length);
    std::uint64_t progress = 0;
    const bool ok = writer.write_blocks(
        [&](std::uint64_t n) {
            progress += n;
            return true;
        },
        reader);
    EXPECT_EQ(progress, total_of(extents));
    return ok;
}

void expect_read(Reading reading, Client_IO& io, const Extents& extents, std::uint64_t buffer_size)
{
    SCOPED_TRACE(testing::PrintToString(reading));
    Model model(extents);
    EXPECT_TRUE(read_image(
        reading, io,
        [&](const void* data, std::uint64_t size, std::int64_t offset) {
            return model.take(data, size, offset);
        },
        buffer_size))
        << io.error();
    EXPECT_TRUE(model.complete());
}

/// Writes and reads in every form, and compares the records as well.
void round_trip(const qovr::Image_Options& options, const Extents& extents,
                std::uint64_t most_from_reader = ~std::uint64_t{0})
{
    Image_File file;
    const Test_Source source;
    file.open_new();
    ASSERT_TRUE(write_image(file.io, options, extents, source.reader(most_from_reader)));
    file.close();
    const std::uint64_t buffer_size =
        std::max(options.data_block_size, options.descriptor_block_size);
    for (const Reading reading : every_reading) {
        file.open();
        expect_read(reading, file.io, extents, buffer_size);
        file.close();
    }
    // A record for each extent, and one more for each that a full batch divides: here none is so
    // long.
    Parse_Log log;
    const std::string image = file.bytes();
    EXPECT_TRUE(parse_image(image, log).whole);
    std::vector<std::string> records;
    std::copy_if(log.events.begin(), log.events.end(), std::back_inserter(records),
                 [](const std::string& event) { return event.starts_with("record "); });
    ASSERT_EQ(records.size(), extents.size());
    for (std::size_t i = 0; i < extents.size(); ++i)
        ASSERT_EQ(records[i],
                  "record " + std::to_string(extents[i].offset / options.data_block_size) + ' ' +
                      std::to_string(extents[i].length / options.data_block_size));
    EXPECT_EQ(image.size(),
              512 + log.headers.size() * options.descriptor_block_size + total_of(extents));
}

std::uint64_t test_seed()
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const std::uint64_t seed =
        given != nullptr ? std::strtoull(given, nullptr, 10) : std::random_device()();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    return seed;
}

Extents gapped(std::uint64_t count, std::uint64_t block)
{
    Extents extents;
    for (std::uint64_t i = 0; i < count; ++i)
        extents.push_back({2 * block * i, block});
    return extents;
}

TEST(Image_Model, EveryCountAroundTheCapacityOfADescriptorBlock)
{
    const qovr::Image_Options options = small_options();
    const std::uint64_t capacity = capacity_of(512);
    for (const std::uint64_t lists : {1, 2, 3})
        for (const std::uint64_t count :
             {lists * capacity - 1, lists * capacity, lists * capacity + 1}) {
            SCOPED_TRACE(count);
            round_trip(options, gapped(count, 512));
        }
}

TEST(Image_Model, ALongExtentAtEveryRecord)
{
    const qovr::Image_Options options = small_options();
    const std::uint64_t count = capacity_of(512) + 3;
    for (std::size_t slot = 0; slot < count; ++slot) {
        SCOPED_TRACE(slot);
        Extents extents = gapped(count, 512);
        extents[slot] = {1 << 20, 100 * 512};
        round_trip(options, extents, 5000);
    }
}

TEST(Image_Model, AStepBackAtEveryRecord)
{
    const std::uint64_t count = capacity_of(512) + 3;
    for (std::size_t slot = 0; slot < count; ++slot) {
        SCOPED_TRACE(slot);
        Extents extents = gapped(count, 512);
        std::rotate(extents.begin(), extents.begin() + static_cast<std::ptrdiff_t>(slot),
                    extents.end());
        round_trip(small_options(), extents);
    }
}

TEST(Image_Model, TouchingExtentsAtEveryRecord)
{
    const std::uint64_t count = capacity_of(512) + 3;
    for (std::size_t slot = 1; slot < count; ++slot) {
        SCOPED_TRACE(slot);
        Extents extents = gapped(count, 512);
        extents[slot].offset = extents[slot - 1].offset + 512;
        round_trip(small_options(), extents);
    }
}

TEST(Image_Model, AnExtraAreaOfEverySizeThatLeavesAnotherCapacity)
{
    for (std::size_t size = 0; size <= qovr::largest_image_extra(512); size += 15) {
        SCOPED_TRACE(size);
        qovr::Image_Options options = small_options();
        options.extra = std::string(size, 'e');
        const std::uint64_t capacity = capacity_of(512, size);
        for (const std::uint64_t count : {capacity, capacity + 1, capacity + capacity_of(512)})
            round_trip(options, gapped(count, 512));
    }
}

TEST(Image_Model, OneBlock)
{
    for (const std::uint64_t block : {512, 4096, 65536, 1 << 20})
        for (const std::uint64_t descriptor : {512, 65536, 1 << 20}) {
            qovr::Image_Options options = small_options();
            options.data_block_size = block;
            options.descriptor_block_size = descriptor;
            round_trip(options, {{0, block}});
            round_trip(options, {{7 * block, block}}, 1000);
        }
}

TEST(Image_Model, AHundredThousandRecords)
{
    qovr::Image_Options options = small_options();
    options.descriptor_block_size = 4096;
    round_trip(options, gapped(100000, 512));
}

TEST(Image_Model, TheSameExtentsTwiceAndOverlappingOnes)
{
    round_trip(
        small_options(),
        {{1024, 2048}, {1024, 2048}, {2048, 2048}, {0, 8192}, {0, 512}, {512, 512}, {0, 512}});
}

/// A list that wanders: forth with gaps, touching, back, and long jumps.
Extents random_extents(std::mt19937_64& random, std::uint64_t block, std::uint64_t most_bytes)
{
    const std::uint64_t most_blocks = std::max<std::uint64_t>(1, most_bytes / block);
    Extents extents;
    std::uint64_t blocks = 0;
    std::uint64_t at = random() % 1000;
    const std::uint64_t longest = 1 + random() % 8;
    const std::uint64_t steps_back = random() % 2 == 0 ? 0 : 1 + random() % 20; // of 100
    const std::uint64_t wanted = 1 + random() % most_blocks;
    while (blocks < wanted) {
        const std::uint64_t count = std::min(1 + random() % longest, wanted - blocks);
        if (random() % 100 < steps_back)
            at -= std::min(at, random() % 50);
        else if (random() % 200 == 0)
            at = random() % ((std::uint64_t{1} << 62U) / block);
        else if (random() % 3 != 0)
            at += random() % 10;
        extents.push_back({at * block, count * block});
        at += count;
        blocks += count;
    }
    return extents;
}

qovr::Image_Options random_options(std::mt19937_64& random)
{
    constexpr std::uint64_t data_blocks[] = {512, 512, 4096, 65536, 1 << 20};
    constexpr std::uint64_t descriptor_blocks[] = {512, 512, 1024, 4096, 65536};
    qovr::Image_Options options;
    options.data_block_size = data_blocks[random() % std::size(data_blocks)];
    options.descriptor_block_size = descriptor_blocks[random() % std::size(descriptor_blocks)];
    if (random() % 2 == 0)
        options.extra = std::string(
            random() % (qovr::largest_image_extra(options.descriptor_block_size) + 1), 'e');
    return options;
}

TEST(Image_Model, RandomLists)
{
    std::mt19937_64 random(test_seed());
    for (int time = 0; time < 60; ++time) {
        SCOPED_TRACE(time);
        const qovr::Image_Options options = random_options(random);
        const Extents extents = random_extents(random, options.data_block_size, 1 << 20);
        ASSERT_NO_FATAL_FAILURE(
            round_trip(options, extents, random() % 2 == 0 ? 1 + random() % 10000 : 1U << 30U));
        ASSERT_FALSE(HasFailure());
    }
}

TEST(Image_Model, RandomListsInRandomPieces)
{
    std::mt19937_64 random(test_seed());
    const Test_Source source;
    for (int time = 0; time < 30; ++time) {
        SCOPED_TRACE(time);
        const qovr::Image_Options options = random_options(random);
        const Extents extents = random_extents(random, options.data_block_size, 300000);
        std::uint64_t longest = ~std::uint64_t{0} / 2;
        Image_File file({}, [&](const Fault_Point&) {
            return std::optional(Fault{Fault_Kind::short_read, 1 + random() % longest, false});
        });
        file.open_new();
        // The reader gives another length each time.
        std::string buffer;
        ASSERT_TRUE(write_image(
            file.io, options, extents,
            [&](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
                const std::uint64_t n = 1 + random() % std::min<std::uint64_t>(max_bytes, 5000);
                buffer = source.read(static_cast<std::uint64_t>(offset), n);
                data = buffer.data();
                return static_cast<std::int64_t>(n);
            }));
        file.close();
        longest = 1 + random() % 3000;
        for (const Reading reading : {Reading::zero_copy, Reading::buffered}) {
            file.open();
            expect_read(reading, file.io, extents, 0);
            file.close();
        }
        ASSERT_FALSE(HasFailure());
    }
}

/// What stands between the image and the file.
struct Transform
{
    const char* name;
    Compression_Method compression;
    const char* cipher; ///< NULL = none
};

constexpr Transform transforms[] = {
    {"Zstd", COMPRESSION_ZSTD, nullptr},
    {"Cbc", COMPRESSION_NONE, "aes-256-cbc"},
    {"ZstdAndCtr", COMPRESSION_ZSTD, "aes-256-ctr"},
};

class Image_Through : public testing::TestWithParam<Transform>
{
protected:
    Image_Through()
    {
        Client_IO_Base::Options options;
        options.compression = GetParam().compression;
        options.overwrite = true;
        if (GetParam().cipher != nullptr) {
            EXPECT_TRUE(options.set_encryption_from_binary(GetParam().cipher, std::string(32, 'k'),
                                                           std::string(16, 'i')));
        }
        EXPECT_TRUE(io_.connect(file_uri(directory_ / "target").c_str(), options)) << io_.error();
    }

    Temp_Directory directory_;
    Client_IO io_;
};

INSTANTIATE_TEST_SUITE_P(Of, Image_Through, testing::ValuesIn(transforms),
                         [](const auto& transform) { return transform.param.name; });

TEST_P(Image_Through, ALocalFileIsReadInEveryForm)
{
    std::mt19937_64 random(test_seed());
    const Test_Source source;
    for (int time = 0; time < 4; ++time) {
        SCOPED_TRACE(time);
        const qovr::Image_Options image = random_options(random);
        const Extents extents = random_extents(random, image.data_block_size, 2 << 20);
        const std::string path = "image" + std::to_string(time);
        ASSERT_TRUE(io_.open(path.c_str(), Client_IO_Base::mode_write, 0, 0)) << io_.error();
        EXPECT_TRUE(write_image(io_, image, extents, source.reader(100000)));
        ASSERT_TRUE(io_.close()) << io_.error();
        for (const Reading reading : every_reading) {
            ASSERT_TRUE(io_.open(path.c_str(), Client_IO_Base::mode_read, 0, 0)) << io_.error();
            expect_read(reading, io_, extents, 1 << 20);
            ASSERT_TRUE(io_.close()) << io_.error();
        }
    }
}

TEST_P(Image_Through, WhatIsCutOffBelowIsRefused)
{
    const Test_Source source;
    ASSERT_TRUE(io_.open("image", Client_IO_Base::mode_write, 0, 0)) << io_.error();
    ASSERT_TRUE(write_image(io_, small_options(), gapped(40, 512), source.reader()));
    ASSERT_TRUE(io_.close()) << io_.error();
    const std::string stored = read_local(directory_ / "target/image");
    for (std::size_t size = 0; size < stored.size(); size += 1 + stored.size() / 97) {
        write_local(directory_ / "target/image", stored.substr(0, size));
        for (const Reading reading : every_reading) {
            ASSERT_TRUE(io_.open("image", Client_IO_Base::mode_read, 0, 0)) << io_.error();
            const Log_Capture log;
            EXPECT_FALSE(read_image(reading, io_,
                                    [](const void*, std::uint64_t, std::int64_t) { return true; }))
                << reading << ", " << size << " of " << stored.size() << " bytes";
            EXPECT_EQ(log.messages().size(), 1U);
            io_.close();
        }
    }
}

} // namespace
