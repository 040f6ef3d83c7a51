#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <gtest/gtest.h>

// Small images, damaged in every way: every reader refuses each of them, and delivers nothing wrong
// before it does.

namespace
{

using Extents = std::vector<Range>; // in bytes

struct Small_Image
{
    std::string name;
    std::string bytes;
    std::string data; ///< all of it, in its order
};

std::ostream& operator<<(std::ostream& out, const Small_Image& image)
{
    return out << image.name;
}

Small_Image make(const std::string& name, const Extents& extents, const std::string& extra)
{
    Small_Image image;
    image.name = name;
    Image_File file;
    file.open_new();
    Image_Block_Writer writer(&file.io);
    qovr::Image_Options options = small_options();
    options.extra = extra;
    EXPECT_TRUE(writer.set_options(options));
    const Test_Source source;
    for (const Range& extent : extents) {
        writer.add_block(extent.offset, extent.count);
        image.data += source.read(extent.offset, extent.count);
    }
    EXPECT_TRUE(writer.write_blocks(go_on, source.reader()));
    file.close();
    image.bytes = file.bytes();
    return image;
}

/// An extra area that leaves room for @p records in the first descriptor block.
std::string extra_that_leaves(std::size_t records)
{
    return std::string(512 - 64 - 16 * records, 'e');
}

std::vector<Small_Image> small_images()
{
    std::vector<Small_Image> images;
    // Out of order: one descriptor block for each.
    images.push_back(make("SeveralDescriptorBlocks", {{4096, 512}, {2048, 512}, {0, 1024}}, ""));
    images.push_back(make("FullWithoutTerminator", {{0, 512}, {2048, 512}}, extra_that_leaves(2)));
    images.push_back(
        make("FullThenMore", {{0, 512}, {2048, 512}, {4096, 512}}, extra_that_leaves(2)));
    images.push_back(make("ExtraArea", {{0, 512}, {512, 512}}, "extra area"));
    return images;
}

class Damaged_Image : public testing::TestWithParam<Small_Image>
{
protected:
    /// @return whether the file is accepted; what is delivered of an image is a part of its data
    bool accepted(Image_File& file, Reading reading)
    {
        std::string delivered;
        file.open();
        const Log_Capture log;
        const bool ok =
            read_image(reading, file.io, [&](const void* data, std::uint64_t size, std::int64_t) {
                delivered.append(static_cast<const char*>(data), size);
                return true;
            });
        file.close();
        EXPECT_TRUE(GetParam().data.starts_with(delivered));
        EXPECT_EQ(log.messages().size(), ok ? 0U : 1U);
        return ok;
    }

    bool is_data(std::size_t at) const
    {
        if (at < 512)
            return false;
        for (const Descriptor_Place& place : descriptor_places(GetParam().bytes)) {
            const std::size_t start = place.data - 512;
            if (at >= start && at < place.data)
                return false;
        }
        return true;
    }
};

INSTANTIATE_TEST_SUITE_P(Of, Damaged_Image, testing::ValuesIn(small_images()),
                         [](const auto& image) { return image.param.name; });

TEST_P(Damaged_Image, WithoutDamageIsAccepted)
{
    Image_File file(GetParam().bytes);
    for (const Reading reading : every_reading)
        EXPECT_TRUE(accepted(file, reading)) << reading;
}

TEST_P(Damaged_Image, CutOffAnywhereIsRefused)
{
    Image_File file(GetParam().bytes);
    for (std::size_t size = GetParam().bytes.size(); size-- > 0;) {
        file.contents().truncate(size);
        for (const Reading reading : every_reading)
            ASSERT_FALSE(accepted(file, reading)) << reading << ", " << size << " bytes";
    }
}

TEST_P(Damaged_Image, WithBytesBehindItIsRefused)
{
    const std::string& image = GetParam().bytes;
    for (const std::string& behind : {std::string(1, '\0'), std::string(512, '\0'), image,
                                      image.substr(512, 1024), image.substr(image.size() - 1024)})
    {
        Image_File file(image + behind);
        for (const Reading reading : every_reading)
            EXPECT_FALSE(accepted(file, reading)) << reading << ", " << behind.size() << " bytes";
    }
}

TEST_P(Damaged_Image, WithAFlippedBitInWhatIsNoDataIsRefused)
{
    const std::string& image = GetParam().bytes;
    Image_File file(image);
    for (std::size_t at = 0; at < image.size(); ++at) {
        if (is_data(at))
            continue;
        for (unsigned bit = 0; bit < 8; ++bit) {
            const char flipped = static_cast<char>(image[at] ^ (1 << bit));
            file.contents().write(at, &flipped, 1);
            for (const Reading reading : every_reading)
                ASSERT_FALSE(accepted(file, reading)) << reading << ", bit " << bit << " at " << at;
        }
        file.contents().write(at, &image[at], 1);
    }
}

TEST_P(Damaged_Image, WithAFlippedBitInItsDataIsDeliveredAsItIs)
{
    const std::string& image = GetParam().bytes;
    std::size_t tried = 0;
    for (std::size_t at = 0; at < image.size(); at += 61) {
        if (!is_data(at))
            continue;
        ++tried;
        std::string damaged = image;
        damaged[at] = static_cast<char>(damaged[at] ^ 4);
        Image_File file(damaged);
        for (const Reading reading : every_reading) {
            std::string delivered;
            file.open();
            EXPECT_TRUE(read_image(reading, file.io,
                                   [&](const void* data, std::uint64_t size, std::int64_t) {
                                       delivered.append(static_cast<const char*>(data), size);
                                       return true;
                                   }));
            file.close();
            ASSERT_EQ(delivered.size(), GetParam().data.size());
            std::size_t different = 0;
            for (std::size_t i = 0; i < delivered.size(); ++i)
                different += delivered[i] != GetParam().data[i] ? 1 : 0;
            EXPECT_EQ(different, 1U) << reading << " at " << at;
        }
    }
    EXPECT_GT(tried, 10U);
}

TEST_P(Damaged_Image, WithoutOneOfItsSectorsIsRefused)
{
    const std::string& image = GetParam().bytes;
    for (std::size_t at = 0; at < image.size(); at += 512) {
        std::string shorter = image;
        shorter.erase(at, 512);
        Image_File file(shorter);
        for (const Reading reading : every_reading) {
            file.open();
            const Log_Capture log;
            EXPECT_FALSE(read_image(reading, file.io,
                                    [](const void*, std::uint64_t, std::int64_t) { return true; }))
                << reading << " at " << at;
            file.close();
        }
    }
}

TEST_P(Damaged_Image, WithZerosInPlaceOfASectorThatIsNoDataIsRefused)
{
    const std::string& image = GetParam().bytes;
    for (std::size_t at = 0; at < image.size(); at += 512) {
        if (is_data(at))
            continue;
        std::string damaged = image;
        damaged.replace(at, 512, 512, '\0');
        Image_File file(damaged);
        for (const Reading reading : every_reading)
            EXPECT_FALSE(accepted(file, reading)) << reading << " at " << at;
    }
}

} // namespace
