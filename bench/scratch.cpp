#include "bench/scratch.h"

#include "platform/runtime/uri.h"

#include <algorithm>
#include <fstream>
#include <random>
#include <vector>

Scratch_Directory::Scratch_Directory()
    : root_(std::filesystem::temp_directory_path() /
            ("client_io-bench-" + std::to_string(std::random_device{}())))
{
    std::filesystem::create_directory(root_);
}

Scratch_Directory::~Scratch_Directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

std::string Scratch_Directory::path(const std::string& name) const
{
    return (root_ / name).string();
}

std::string Scratch_Directory::uri() const
{
    URI uri;
    uri.path(root_.generic_string(), false);
    return "file://" + uri.path(true);
}

void Scratch_Directory::make_file(const std::string& name, std::uint64_t size) const
{
    std::ofstream file(root_ / name, std::ios::binary);
    file.exceptions(std::ios::badbit | std::ios::failbit);
    std::mt19937_64 generator(size);
    std::vector<char> block(1U << 20U);
    for (std::uint64_t left = size; left > 0;) {
        std::generate(block.begin(), block.end(),
                      [&generator] { return static_cast<char>(generator()); });
        const std::uint64_t part = std::min<std::uint64_t>(left, block.size());
        file.write(block.data(), static_cast<std::streamsize>(part));
        left -= part;
    }
}
