#include "tests/support/run_program.h"
#include "tests/support/temp_directory.h"
#include "tests/unit/image/image_bytes.h"
#include "tests/unit/image/image_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

// read_image.py, which was written from docs/image_format.md, and the library hold each other to
// the page.

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

/// What the other reader says of an image.
struct Other
{
    bool accepted = false;
    std::string superblock; ///< its first line
    std::vector<Range> extents;
    std::string source; ///< the extents at their places
    std::string reason;
};

Other other_reader(const std::string& image)
{
    const Temp_Directory directory;
    write_local(directory / "image", image);
    const Program_Result result =
        run_program({READ_IMAGE, directory / "image", "--extract", directory / "source"});
    EXPECT_EQ(result.code, result.err.empty() ? 0 : 1) << result.err;
    EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("Traceback")));
    Other other;
    other.accepted = result.code == 0;
    other.reason = result.err.substr(0, result.err.find('\n'));
    other.source = read_local(directory / "source");
    std::istringstream lines(result.out);
    std::getline(lines, other.superblock);
    for (std::string line; std::getline(lines, line);) {
        Range extent;
        EXPECT_EQ(std::sscanf(line.c_str(), "{\"offset\": %lu, \"length\": %lu}", &extent.offset,
                              &extent.count),
                  2)
            << line;
        other.extents.push_back(extent);
    }
    return other;
}

/// What ours delivers, as the other one shows it.
struct Ours
{
    bool accepted = false;
    std::vector<Range> extents;
    std::string source;
};

Ours our_reader(const std::string& image)
{
    class Blocks : public Parse_Log
    {
    public:
        bool handle_descriptor_header(const qovr::Image_Parser::Descriptor_Header& header) override
        {
            first = true;
            return Parse_Log::handle_descriptor_header(header);
        }
        bool handle_descriptor_record(std::uint64_t offset, std::uint64_t count) override
        {
            const std::uint64_t block = superblock.data_blk_size;
            const Range extent{offset * block, count * block};
            if (!first && extents.back().offset + extents.back().count == extent.offset)
                extents.back().count += extent.count;
            else
                extents.push_back(extent);
            first = false;
            return true;
        }

        std::vector<Range> extents;
        bool first = true; ///< of its descriptor block
    };
    Ours ours;
    Blocks blocks;
    ours.accepted = parse_image(image, blocks).whole;
    ours.extents = blocks.extents;
    Image_File file(image);
    file.open();
    const Log_Capture log;
    const bool ok =
        read_image(Reading::zero_copy, file.io,
                   [&](const void* data, std::uint64_t size, std::int64_t offset) {
                       const auto at = static_cast<std::size_t>(offset);
                       if (ours.source.size() < at + size)
                           ours.source.resize(at + size);
                       ours.source.replace(at, size, static_cast<const char*>(data), size);
                       return true;
                   });
    EXPECT_EQ(ok, ours.accepted);
    return ours;
}

void expect_same(const std::string& image)
{
    const Other other = other_reader(image);
    const Ours ours = our_reader(image);
    EXPECT_TRUE(other.accepted) << other.reason;
    EXPECT_TRUE(ours.accepted);
    EXPECT_EQ(other.extents, ours.extents);
    EXPECT_TRUE(other.source == ours.source);
}

/// An image with one thing changed.
struct Changed
{
    std::string what;
    std::string image;
    bool refused = true;
};

/// Shows them all to both readers.
void expect_same_judgement(const std::vector<Changed>& images)
{
    const Temp_Directory directory;
    std::vector<std::string> command = {READ_IMAGE};
    for (std::size_t i = 0; i < images.size(); ++i) {
        command.push_back(directory / (std::to_string(i) + ".img"));
        write_local(command.back(), images[i].image);
    }
    const Program_Result result = run_program(command);
    EXPECT_EQ(result.err.find("Traceback"), std::string::npos) << result.err;
    for (std::size_t i = 0; i < images.size(); ++i) {
        EXPECT_EQ(result.err.find(command[i + 1] + ": ") != std::string::npos, images[i].refused)
            << images[i].what;
        EXPECT_EQ(refusal(images[i].image) != "", images[i].refused)
            << images[i].what << refusal(images[i].image);
    }
}

/// The bytes of the page's dump, where "*" stands for lines like the one before.
std::string dumped_image(const std::string& page)
{
    std::string image;
    std::istringstream lines(page.substr(page.find("\n00000000  43 49 4f 49") + 1));
    for (std::string line; std::getline(lines, line) && line != "```";) {
        if (line == "*")
            continue;
        const std::size_t at = std::stoul(line, nullptr, 16);
        while (image.size() < at)
            image += image.substr(image.size() - 16);
        std::istringstream numbers(line.substr(8, line.find('|') - 8));
        for (std::string number; numbers >> number;)
            image += static_cast<char>(std::stoul(number, nullptr, 16));
    }
    return image;
}

TEST(Read_Image, ThePageShowsTheKnownImage)
{
    EXPECT_EQ(dumped_image(read_local(IMAGE_PAGE)), read_local(KNOWN_IMAGE));
}

TEST(Read_Image, ReadsTheKnownImage)
{
    const Other other = other_reader(read_local(KNOWN_IMAGE));
    EXPECT_TRUE(other.accepted) << other.reason;
    EXPECT_EQ(other.superblock,
              R"({"id": "a0a1a2a3a4a5a6a7a8a9aaabacadaeaf", "source_size": 4096, )"
              R"("data_blocks": 3, "data_block": 512, "descriptor_block": 512, )"
              R"("creation_time": 1767225600, "extra_size": 16, )"
              R"("extra": "{\"from\":\"disk0\"}"})");
    EXPECT_THAT(other.extents, ElementsAre(Range{0, 512}, Range{2560, 1024}));
    EXPECT_EQ(other.source, std::string(512, '\x11') + std::string(2048, '\0') +
                                std::string(512, '\x22') + std::string(512, '\x33') +
                                std::string(512, '\0'))
        << "as long as the source";
}

TEST(Read_Image, ReadsWhatTheWriterMakesOfEveryKindOfList)
{
    const std::uint64_t unknown = qovr::unknown_block_count;
    std::vector<Range> full;
    for (std::uint64_t i = 0; i < 28; ++i)
        full.push_back({2 * i, 1});
    qovr::Image_Options options = small_options();
    expect_same(two_descriptor_image());
    expect_same(written_image(options, {{{0, 1}, {1, 2}, {4, 1}}}, 4, true));
    expect_same(written_image(options, {{{9, 2}, {3, 1}, {4, 2}, {4, 1}, {0, 1}}}, unknown, true));
    expect_same(written_image(options, {full}, 28, false));
    expect_same(written_image(options, {full}, unknown, false));
    expect_same(written_image(options, {full, {{7, 1}}}, unknown, true));
    expect_same(written_image(options, {full, full}, 56, false));
    options.extra = "extra \x01\xFF";
    expect_same(written_image(options, {{{0, 1}}}, 1, true));
    options.extra = std::string(432, 'e');
    expect_same(written_image(options, {{{5, 1}}, {{6, 1}}}, 2, true));
    options = small_options();
    options.data_block_size = 4096;
    options.descriptor_block_size = 1024;
    expect_same(written_image(options, {{{1, 2}, {3, 1}}, {{3, 1}}}, 4, true));
}

TEST(Read_Image, ReadsAListOfSeveralDescriptorBlocksOfImageBlockWriter)
{
    Image_File file;
    file.open_new();
    Image_Block_Writer writer(&file.io);
    ASSERT_TRUE(writer.set_options(small_options()));
    for (std::uint64_t i = 0; i < 100; ++i)
        writer.add_block(512 * (i * 37 % 101), 512 * (1 + i % 3));
    const Test_Source source;
    ASSERT_TRUE(writer.write_blocks(go_on, source.reader()));
    file.close();
    expect_same(file.bytes());
}

TEST(Read_Image, RefusesDamageAsTheLibraryDoes)
{
    qovr::Image_Options options = small_options();
    options.extra = "extra";
    const std::string image = written_image(options, {{{10, 1}, {20, 1}}, {{0, 1}}}, 3, true);
    expect_same(image);
    const auto places = descriptor_places(image);
    std::vector<Changed> images;
    // A bit of each field and of what stands between them.
    std::vector<std::size_t> flips = {0, 8, 10, 12, 16, 32, 40, 48, 52, 56, 64, 68, 100, 508, 513};
    for (const Descriptor_Place& place : places)
        for (const std::size_t at : {0, 4, 6, 8, 12, 16, 24, 40, 60, 64, 72, 300})
            flips.push_back(place.at + at);
    for (const std::size_t at : flips) {
        images.push_back({"flipped at " + std::to_string(at), image});
        images.back().image[at] = static_cast<char>(image[at] ^ 1);
    }
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{511}, std::size_t{512}, std::size_t{513},
          places[0].data, places[0].data + 1, places[1].at, places[1].at + 1, places[1].data,
          image.size() - 1})
        images.push_back({"cut to " + std::to_string(size), image.substr(0, size)});
    images.push_back({"a byte behind it", image + '\0'});
    images.push_back({"twice", image + image});
    images.push_back({"other data, which carry no checksum", image, false});
    images.back().image[places[0].data] = 'X';
    expect_same_judgement(images);
}

TEST(Read_Image, RefusesNumbersThatNoImageHasAsTheLibraryDoes)
{
    struct Change
    {
        bool in_descriptor;
        std::size_t at;
        std::size_t width;
        std::uint64_t number;
        bool refused;
    };
    constexpr std::uint64_t two_to_63 = std::uint64_t{1} << 63U;
    const Change changes[] = {
        {false, image_field::version, 2, 2, true},
        {false, image_field::after_version, 2, 1, true},
        {false, image_field::superblock_size, 4, 1024, true},
        {false, image_field::source_size, 8, two_to_63 - 1, false},
        {false, image_field::source_size, 8, two_to_63, true},
        {false, image_field::source_size, 8, 512 * 22 - 511, false},
        {false, image_field::source_size, 8, 512 * 21, true},
        {false, image_field::data_blocks, 8, 0, true},
        {false, image_field::data_blocks, 8, 2, true},
        {false, image_field::data_blocks, 8, 4, true},
        {false, image_field::data_blocks, 8, qovr::unknown_block_count, false},
        {false, image_field::data_block_size, 4, 513, true},
        {false, image_field::data_block_size, 4, 0, true},
        {false, image_field::data_block_size, 4, 1U << 25U, true},
        {false, image_field::descriptor_block_size, 4, 256, true},
        {false, image_field::descriptor_block_size, 4, 1U << 25U, true},
        {false, 56, 8, ~std::uint64_t{0}, false}, // a time before 1970
        {false, image_field::room, 1, 1, true},
        {true, descriptor_field::version, 2, 1, true},
        {true, descriptor_field::continuation, 2, 0, true},
        {true, descriptor_field::continuation, 2, 2, false},
        {true, descriptor_field::continuation, 2, 3, true},
        {true, descriptor_field::records, 4, 0, true},
        {true, descriptor_field::records, 4, 2, true},
        {true, descriptor_field::records, 4, 29, true},
        {true, descriptor_field::data_blocks, 4, 1, true},
        {true, descriptor_field::data_blocks, 4, 3, true},
        {true, descriptor_field::sequence, 8, 2, true},
        {true, descriptor_field::id, 1, 0, true},
        {true, descriptor_field::room, 1, 1, true},
        {true, descriptor_field::first_record, 8, two_to_63 / 512, true},
        {true, descriptor_field::first_record, 8, two_to_63 / 512 - 2, false},
        {true, descriptor_field::first_record, 8, ~std::uint64_t{0}, true},
        {true, descriptor_field::first_record + 8, 8, 0, true},
        {true, descriptor_field::first_record + 8, 8, 3, true},
    };
    std::vector<Changed> images;
    for (const Change& change : changes) {
        std::string image = two_descriptor_image();
        const Descriptor_Place place = descriptor_places(image).at(1);
        put_number(image, (change.in_descriptor ? place.at : 0) + change.at, change.width,
                   change.number);
        if (change.in_descriptor)
            seal_descriptor(image, place);
        else
            seal_superblock(image);
        images.push_back({(change.in_descriptor ? "descriptor block, " : "super block, ") +
                              std::to_string(change.at) + " = " + std::to_string(change.number),
                          image, change.refused});
    }
    expect_same_judgement(images);
}

} // namespace
