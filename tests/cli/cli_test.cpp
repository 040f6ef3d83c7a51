#include "tests/cli/cli_test.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

Cli_Test::Cli_Test()
{
    std::string name = (fs::temp_directory_path() / "cio-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr)
        std::abort();
    root_ = name;
}

Cli_Test::~Cli_Test()
{
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

Cio_Settings Cli_Test::in_here(Cio_Settings settings) const
{
    settings.directory = root_.string();
    settings.environment.emplace_back("XDG_STATE_HOME", (root_ / "state").string());
    return settings;
}

Cio_Result Cli_Test::cio(const std::vector<std::string>& arguments, Cio_Settings settings) const
{
    return run_cio(arguments, in_here(std::move(settings)));
}

std::string Cli_Test::uri(const std::string& name) const
{
    return "file://" + at(name).string();
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
    return {std::istreambuf_iterator<char>(file), {}};
}

bool Cli_Test::exists(const std::string& name) const
{
    return fs::exists(fs::symlink_status(at(name)));
}

bool Cli_Test::shell(const std::string& command) const
{
    return std::system(("cd '" + root_.string() + "' && " + command).c_str()) == 0;
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
    for (const auto& entry : fs::recursive_directory_iterator(directory))
        paths.push_back(fs::relative(entry.path(), directory).string() +
                        (entry.is_directory() ? "/" : ""));
    std::sort(paths.begin(), paths.end());
    return paths;
}
