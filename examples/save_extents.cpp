#include <client_io/client_io.h>
#include <client_io/image_block_writer.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <vector>

/// Saves extents of a file as a block image:
/// save_extents SOURCE TARGET_URI IMAGE OFFSET LENGTH [OFFSET LENGTH]...
/// Offsets and lengths are multiples of 4096 bytes.
int main(int argc, char** argv)
{
    if (argc < 6 || argc % 2 != 0)
        return 2;
    std::ifstream source(argv[1], std::ios::binary);
    if (!source) {
        std::cerr << "Cannot read " << argv[1] << '\n';
        return 1;
    }
    Client_IO target(argv[2], {});
    if (!target.open(argv[3], Client_IO::mode_write, 0, 0)) {
        std::cerr << target.error() << '\n';
        return 1;
    }

    Image_Block_Writer writer(&target);
    qovr::Image_Options options;
    options.data_block_size = 4096;
    if (!writer.set_options(options))
        return 1;
    for (int i = 4; i < argc; i += 2)
        writer.add_block(std::strtoull(argv[i], nullptr, 10),
                         std::strtoull(argv[i + 1], nullptr, 10));

    // The library asks for the bytes as it writes them; from this buffer they go to the target.
    std::vector<char> buffer(1 << 20);
    const auto read = [&](const void*& data, std::uint64_t max_bytes, std::int64_t offset) {
        const auto most = std::min<std::uint64_t>(max_bytes, buffer.size());
        source.seekg(offset);
        source.read(buffer.data(), static_cast<std::streamsize>(most));
        if (source.gcount() == 0)
            std::cerr << "Nothing to read at " << offset << '\n';
        data = buffer.data();
        return static_cast<std::int64_t>(source.gcount());
    };
    std::uint64_t saved = 0;
    const auto progress = [&](std::uint64_t n) {
        saved += n;
        return true; // false would stop
    };
    // Only the close says that the image is there.
    if (!writer.write_blocks(progress, read) || !target.close()) {
        std::cerr << "Failed to save: " << target.error() << '\n';
        return 1;
    }
    std::cout << saved << " bytes saved\n";
    return 0;
}
