#include <client_io/client_io.h>
#include <client_io/image_block_reader.h>

#include <fstream>
#include <iostream>

/// Writes the extents of a block image to their places in a file, which exists:
/// restore_extents TARGET_URI IMAGE FILE
int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    Client_IO target(argv[1], {});
    if (!target.open(argv[2], Client_IO::mode_read, 0, 0)) {
        std::cerr << target.error() << '\n';
        return 1;
    }
    std::fstream file(argv[3], std::ios::binary | std::ios::in | std::ios::out);

    std::uint64_t restored = 0;
    const auto write = [&](const void* data, std::uint64_t size, std::int64_t offset) {
        file.seekp(offset);
        file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
        restored += size;
        return file.good();
    };
    Image_Block_Reader reader;
    // An image that was cut off fails at its end: what is in the file by then is not the whole.
    if (!reader.read_blocks(target, write) || !file.flush()) {
        std::cerr << "Failed to restore: " << target.error() << '\n';
        return 1;
    }
    std::cout << restored << " bytes restored\n";
    return 0;
}
