#pragma once

#include <filesystem>
#include <string>

/// A directory of its own for one test; removed with everything in it at the end. Paths are UTF-8
/// on Windows.
class Temp_Directory
{
public:
    Temp_Directory();
    ~Temp_Directory();
    Temp_Directory(const Temp_Directory&) = delete;
    Temp_Directory& operator=(const Temp_Directory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string str() const { return path_.string(); }
    /// Path of @p name inside, with the system's separator.
    std::string operator/(const std::string& name) const;

private:
    std::filesystem::path path_;
};

/// A local path for std::filesystem and streams, which do not take narrow text for UTF-8 on
/// Windows.
std::filesystem::path local_path(const std::string& path);
/// The URI of a local path; no character of it may need an escape.
std::string file_uri(const std::string& path);
/// Contents of a local file; fails the test when it cannot be read.
std::string read_local(const std::string& path);
/// Creates or replaces a local file; fails the test when it cannot be written.
void write_local(const std::string& path, const std::string& data);
/// @p size bytes that differ from block to block, the same ones at every call.
std::string sample_bytes(std::size_t size);
