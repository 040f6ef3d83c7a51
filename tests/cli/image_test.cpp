#include "tests/cli/image_test.h"

#include "tests/support/this_system.h"

#include <sstream>

void Image_Test::write_sparse(const std::string& name, std::uint64_t size,
                              std::initializer_list<Piece> pieces) const
{
    write(name, "");
    this_system::resize_with_hole(path(name), size);
    for (const Piece& piece : pieces)
        write_into(name, piece.offset, piece.data);
}

void Image_Test::write_into(const std::string& name, std::uint64_t offset,
                            const std::string& data) const
{
    std::fstream file(at(name), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(offset));
    file << data;
    file.close();
    ASSERT_TRUE(file) << name;
}

std::string Image_Test::extents(const std::string& name) const
{
    std::istringstream text(done("info", {uri(), name}).out);
    std::string found;
    std::string line;
    while (std::getline(text, line))
        if (!line.starts_with('#'))
            found += line + '\n';
    return found;
}

void Image_Test::expect_refused(const std::string& name, const std::string& text) const
{
    for (const std::vector<std::string>& line : {std::vector<std::string>{"info", uri(), name},
                                                 {"verify", uri(), name},
                                                 {"restore", uri(), name, "must-not-be"}})
    {
        const Cio_Result result = cio([&] {
            std::vector<std::string> arguments{"image"};
            arguments.insert(arguments.end(), line.begin(), line.end());
            return arguments;
        }());
        EXPECT_EQ(result.code, 1) << line[0] << ": " << result.out;
        EXPECT_NE(result.err.find(name + ": " + text), std::string::npos)
            << line[0] << ": " << result.err;
    }
    EXPECT_FALSE(exists("must-not-be"));
}

Image_Builder::Image_Builder(const qovr::Image_Options& options)
{
    EXPECT_TRUE(set_options(options));
    EXPECT_TRUE(
        write_descriptor_header(qovr::image_descriptor_version, qovr::image_descriptor_magic));
}

Image_Builder::~Image_Builder() = default;

bool Image_Builder::overflow(const void* data, std::uint64_t size)
{
    bytes_.append(static_cast<const char*>(data), size);
    return true;
}

void Image_Builder::add(std::uint64_t block, std::uint64_t count, char character)
{
    EXPECT_EQ(write_descriptor_record(block, count), static_cast<std::int64_t>(count));
    EXPECT_TRUE(end_batch());
    write_blocks(count, character);
}

const std::string& Image_Builder::finish(std::uint64_t block, std::uint64_t count, char character)
{
    EXPECT_EQ(write_descriptor_record(block, count), static_cast<std::int64_t>(count));
    EXPECT_EQ(write_descriptor_record(0, 0), 0);
    write_blocks(count, character);
    return bytes_;
}

void Image_Builder::write_blocks(std::uint64_t count, char character)
{
    const std::string data(count * data_block_size(), character);
    EXPECT_EQ(write_data(data.data(), data.size()), static_cast<std::int64_t>(data.size()));
}
