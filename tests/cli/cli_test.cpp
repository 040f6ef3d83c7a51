#include "tests/cli/cli_test.h"

#include "platform/runtime/file_system.h"

#include "tests/support/remove_tree.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

namespace
{

std::string text_of(const fs::path& path)
{
    const std::u8string text = path.generic_u8string();
    return {text.begin(), text.end()};
}

// Not by the C++ library, which on Windows knows no way to names such as " ".
void remove_all(const std::string& path)
{
    file_system::Status status;
    std::error_code ignored;
    if (file_system::status(path.c_str(), false, status) && status.is_directory())
        for (const auto& entry : fs::directory_iterator(native_path(path), ignored))
            remove_all(path + '/' + text_of(entry.path().filename()));
    (void)file_system::remove(path.c_str());
}

} // namespace

Cli_Test::Cli_Test()
{
    std::random_device random;
    do
        root_ = fs::temp_directory_path() / ("cio-test-" + std::to_string(random()));
    while (!fs::create_directory(root_));
}

Cli_Test::~Cli_Test()
{
    remove_tree(text_of(root_));
}

Cio_Settings Cli_Test::in_here(Cio_Settings settings) const
{
    settings.directory = text_of(root_);
    settings.environment.emplace_back("XDG_STATE_HOME", path("state"));
    return settings;
}

Cio_Result Cli_Test::cio(const std::vector<std::string>& arguments, Cio_Settings settings) const
{
    return run_cio(arguments, in_here(std::move(settings)));
}

fs::path Cli_Test::at(const std::string& name) const
{
    return native_path(path(name));
}

std::string Cli_Test::path(const std::string& name) const
{
    return text_of(root_) + '/' + name;
}

std::string Cli_Test::uri(const std::string& name) const
{
    const std::string text = path(name);
    return (text.starts_with('/') ? "file://" : "file:///") + text;
}

void Cli_Test::write(const std::string& name, const std::string& contents) const
{
    fs::create_directories(at(name).parent_path());
    std::ofstream file(at(name), std::ios::binary);
    file << contents;
    file.close();
    ASSERT_TRUE(file) << name;
}

std::string Cli_Test::read(const std::string& name) const
{
    std::ifstream file(at(name), std::ios::binary);
    EXPECT_TRUE(file) << name;
    // At once: byte by byte takes minutes where it is sanitized.
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

bool Cli_Test::exists(const std::string& name) const
{
    return fs::exists(fs::symlink_status(at(name)));
}

bool Cli_Test::same(const std::string& first, const std::string& second) const
{
    if (!fs::is_directory(at(first)))
        return read(first) == read(second);
    const std::vector<std::string> paths = paths_below(at(first));
    return paths == paths_below(at(second)) &&
           std::all_of(paths.begin(), paths.end(), [&](const std::string& name) {
               return name.ends_with('/') || read(first + '/' + name) == read(second + '/' + name);
           });
}

void Cli_Test::shift_time(const std::string& name, int seconds) const
{
    fs::last_write_time(at(name), fs::last_write_time(at(name)) + std::chrono::seconds(seconds));
}

std::string pattern(std::size_t size, unsigned seed)
{
    std::mt19937 generator(seed);
    std::string data(size, '\0');
    for (std::size_t i = 0; i < size; i += 4) {
        const auto value = generator();
        for (std::size_t k = i; k < std::min(size, i + 4); ++k)
            data[k] = static_cast<char>(value >> 8 * (k - i));
    }
    return data;
}

std::vector<std::string> paths_below(const fs::path& directory)
{
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(directory)) {
        const std::string name = text_of(entry.path().filename());
        paths.push_back(name + (entry.is_directory() ? "/" : ""));
        if (entry.is_directory() && !entry.is_symlink())
            for (const std::string& below : paths_below(entry.path()))
                paths.push_back(name + '/' + below);
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}
