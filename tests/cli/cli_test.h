#pragma once

#include "tests/cli/cio_process.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A test with an empty directory of its own, in which it keeps sources, a local target and the
/// program's state.
class Cli_Test : public testing::Test
{
protected:
    Cli_Test();
    ~Cli_Test() override;

    /// Runs cio in the test's directory.
    Cio_Result cio(const std::vector<std::string>& arguments, Cio_Settings settings = {}) const;
    Cio_Settings in_here(Cio_Settings settings = {}) const;

    std::filesystem::path at(const std::string& name) const { return root_ / name; }
    /// The URI of a target directory below the test's own.
    std::string uri(const std::string& name = "target") const;
    void write(const std::string& name, const std::string& contents) const;
    std::string read(const std::string& name) const;
    bool exists(const std::string& name) const;
    /// Runs a command of the system's shell in the test's directory. @return whether it succeeded
    bool shell(const std::string& command) const;
    /// Moves a file's modification time; negative seconds: into the past.
    void shift_time(const std::string& name, int seconds) const;

private:
    std::filesystem::path root_;
};

/// Bytes that look random and are the same in every run.
std::string pattern(std::size_t size, unsigned seed = 1);

/// Every path below a directory, sorted; directories end in '/'.
std::vector<std::string> paths_below(const std::filesystem::path& directory);
