#include "tests/unit/image/image_file.h"

#include <ace/Log_Priority.h>
#include <algorithm>
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <regex>

namespace
{

constexpr char path[] = "image";

/// The eight bytes of a source at 8 * @p index.
std::uint64_t word(std::uint64_t index)
{
    // The finishing steps of the splitmix64 generator.
    std::uint64_t mixed = (index + 1) * 0x9E3779B97F4A7C15U;
    mixed = (mixed ^ mixed >> 30U) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ mixed >> 27U) * 0x94D049BB133111EBU;
    return mixed ^ mixed >> 31U;
}

} // namespace

Image_File::Image_File(std::string bytes, Fault_Plan plan)
{
    EXPECT_TRUE(io.connect_plain(
        std::make_unique<Fault_IO>(std::make_unique<Memory_IO>(files_), std::move(plan))));
    contents().write(0, bytes.data(), bytes.size());
}

void Image_File::open_new()
{
    ASSERT_TRUE(io.open(path, Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite, 0, 0))
        << io.error();
}

void Image_File::open()
{
    ASSERT_TRUE(io.open(path, Client_IO_Base::mode_read, 0, 0)) << io.error();
}

void Image_File::close()
{
    ASSERT_TRUE(io.close()) << io.error();
}

std::string Image_File::bytes() const
{
    const Memory_File_System::Node* const node = files_->find(path);
    std::string bytes(node->bytes.size(), '\0');
    node->bytes.read(0, bytes.data(), bytes.size());
    return bytes;
}

Sparse_Bytes& Image_File::contents()
{
    Memory_File_System::Node* node = nullptr;
    EXPECT_EQ(files_->create_file(path, node), 0);
    return node->bytes;
}

std::ostream& operator<<(std::ostream& out, Reading reading)
{
    constexpr std::array names = {"zero-copy", "buffered", "aligned"};
    return out << names.at(static_cast<std::size_t>(reading));
}

bool read_image(Image_Block_Reader& reader, Reading reading, Client_IO& io,
                const Image_Block_Reader::Handler& handler, std::uint64_t buffer_size)
{
    switch (reading) {
    case Reading::zero_copy:
        return reader.read_blocks(io, handler);
    case Reading::buffered:
        return reader.read_blocks(io, handler, buffer_size);
    case Reading::aligned:
        return reader.read_blocks_align(io, handler, buffer_size);
    }
    return false;
}

bool read_image(Reading reading, Client_IO& io, const Image_Block_Reader::Handler& handler,
                std::uint64_t buffer_size)
{
    Image_Block_Reader reader;
    return read_image(reader, reading, io, handler, buffer_size);
}

std::ostream& operator<<(std::ostream& out, const Piece& piece)
{
    return out << piece.bytes.size() << " bytes at " << piece.offset;
}

Image_Block_Reader::Handler into(std::vector<Piece>& pieces)
{
    return [&pieces](const void* data, std::uint64_t size, std::int64_t offset) {
        pieces.push_back({offset, std::string(static_cast<const char*>(data), size)});
        return true;
    };
}

Image_Block_Reader::Handler joined_into(std::vector<Piece>& pieces)
{
    return [&pieces](const void* data, std::uint64_t size, std::int64_t offset) {
        if (pieces.empty() ||
            pieces.back().offset + static_cast<std::int64_t>(pieces.back().bytes.size()) != offset)
            pieces.push_back({offset, {}});
        pieces.back().bytes.append(static_cast<const char*>(data), size);
        return true;
    };
}

void Test_Source::read(std::uint64_t offset, char* to, std::uint64_t size) const
{
    while (size > 0) {
        const std::uint64_t bytes = word(offset / 8);
        const std::uint64_t start = offset % 8;
        const std::uint64_t n = std::min(size, 8 - start);
        std::memcpy(to, reinterpret_cast<const char*>(&bytes) + start, n);
        offset += n;
        to += n;
        size -= n;
    }
}

std::string Test_Source::read(std::uint64_t offset, std::uint64_t size) const
{
    std::string bytes(size, '\0');
    read(offset, bytes.data(), size);
    return bytes;
}

Image_Block_Writer::Reader Test_Source::reader(std::uint64_t most) const
{
    return [this, most, buffer = std::string()](const void*& data, std::uint64_t max_bytes,
                                                std::int64_t offset) mutable {
        // Whole extents would need as much memory.
        buffer.resize(std::min({max_bytes, most, std::uint64_t{1} << 20U}));
        read(static_cast<std::uint64_t>(offset), buffer.data(), buffer.size());
        data = buffer.data();
        return static_cast<std::int64_t>(buffer.size());
    };
}

bool go_on(std::uint64_t)
{
    return true;
}

std::vector<std::string> logged(const Log_Capture& log, const std::string& file)
{
    std::vector<std::string> lines;
    for (const Log_Capture::Message& message : log.messages()) {
        std::string priority = std::to_string(message.priority);
        if (message.priority == LM_EMERGENCY)
            priority = "emergency";
        else if (message.priority == LM_ERROR)
            priority = "error";
        std::string text = message.text;
        if (text.starts_with("Unexpected error in ")) {
            text.resize(std::min(text.size(), text.find(":\n") + 2));
            text = std::regex_replace(
                text, std::regex("backup/client_io/" + file + "\\.cpp:[0-9]+"), "%N:%l");
        }
        lines.push_back(priority + ": " + text);
    }
    return lines;
}
