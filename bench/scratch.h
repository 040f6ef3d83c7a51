#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

/// A directory of its own below the system's temporary one (TMPDIR chooses another disk), removed
/// with everything in it at the end of the object's life.
class Scratch_Directory
{
public:
    Scratch_Directory();
    ~Scratch_Directory();
    Scratch_Directory(const Scratch_Directory&) = delete;
    Scratch_Directory& operator=(const Scratch_Directory&) = delete;

    /// Path of an entry of the directory.
    std::string path(const std::string& name) const;

    /// Address of the directory as a target.
    std::string uri() const;

    /// Creates a file of pseudo-random bytes, which is in the page cache afterwards.
    void make_file(const std::string& name, std::uint64_t size) const;

private:
    std::filesystem::path root_;
};
