#pragma once

#include "tests/cli/cio_process.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A test with an empty directory of its own, in which it keeps sources, a local target and the
/// program's state. Names and paths are UTF-8 on Windows.
class Cli_Test : public testing::Test
{
protected:
    Cli_Test();
    ~Cli_Test() override;

    /// Runs cio in the test's directory.
    Cio_Result cio(const std::vector<std::string>& arguments, Cio_Settings settings = {}) const;
    Cio_Settings in_here(Cio_Settings settings = {}) const;

    std::filesystem::path at(const std::string& name) const;
    /// The same as text, as a user would write it.
    std::string path(const std::string& name) const;
    /// The URI of a target directory below the test's own.
    std::string uri(const std::string& name = "target") const;
    void write(const std::string& name, const std::string& contents) const;
    std::string read(const std::string& name) const;
    bool exists(const std::string& name) const;
    /// Whether two files or directories hold the same names and bytes.
    bool same(const std::string& first, const std::string& second) const;
    /// Moves a file's modification time; negative seconds: into the past.
    void shift_time(const std::string& name, int seconds) const;
    /// Lets nobody but its owner read a file, or everybody.
    void make_private(const std::string& name) const;
    void make_public(const std::string& name) const;

private:
    std::filesystem::path root_;
};

/// A variable of this process's environment, as long as the object lives.
class Environment_Variable
{
public:
    Environment_Variable(const char* name, const std::string& value);
    ~Environment_Variable();
    Environment_Variable(const Environment_Variable&) = delete;
    Environment_Variable& operator=(const Environment_Variable&) = delete;

private:
    const char* name_;
};

/// The system's own form of a path, in which every name stays as it is.
std::filesystem::path native_path(const std::string& path);

/// Bytes that look random and are the same in every run.
std::string pattern(std::size_t size, unsigned seed = 1);

/// Every path below a directory, sorted; directories end in '/'.
std::vector<std::string> paths_below(const std::filesystem::path& directory);
