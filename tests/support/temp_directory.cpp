#include "tests/support/temp_directory.h"

#include "tests/support/remove_tree.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

Temp_Directory::Temp_Directory()
{
    std::random_device random;
    do
        path_ = fs::temp_directory_path() / ("client_io_test_" + std::to_string(random()));
    while (!fs::create_directory(path_));
}

Temp_Directory::~Temp_Directory()
{
    remove_tree(str());
}

std::string Temp_Directory::operator/(const std::string& name) const
{
    return (path_ / local_path(name)).make_preferred().string();
}

fs::path local_path(const std::string& path)
{
    return std::u8string(path.begin(), path.end());
}

std::string file_uri(const std::string& path)
{
    const std::string generic = local_path(path).generic_string();
    // A drive stands where the root does elsewhere.
    return (generic.starts_with('/') ? "file://" : "file:///") + generic;
}

std::string read_local(const std::string& path)
{
    std::ifstream in(local_path(path), std::ios::binary);
    EXPECT_TRUE(in.is_open()) << path;
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_local(const std::string& path, const std::string& data)
{
    std::ofstream out(local_path(path), std::ios::binary | std::ios::trunc);
    out.write(data.data(), static_cast<std::streamsize>(data.size()));
    out.close();
    EXPECT_TRUE(out.good()) << path;
}

std::string sample_bytes(std::size_t size)
{
    std::mt19937 random(20);
    std::string data(size, '\0');
    for (char& c : data)
        c = static_cast<char>(random() >> 24U);
    return data;
}
