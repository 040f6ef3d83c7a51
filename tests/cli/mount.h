#pragma once

#include <filesystem>

/// Mounts that end with the object; only the test's own process and its children see them.
class Mount
{
public:
    ~Mount();

    /// A file system in memory of so many bytes.
    /// @return false when mounting is refused (told on standard output)
    bool small_disk(const std::filesystem::path& directory, unsigned long bytes);
    bool resize(unsigned long bytes);
    /// The directory itself, but nothing in it can be written.
    bool read_only(const std::filesystem::path& directory);

private:
    bool enter_own_namespace();
    bool told(bool result, const char* what) const;

    std::filesystem::path directory_;
    bool mounted_ = false;
};

/// Whether tests may go on without what they need mounts for: the environment variable
/// CLIENT_IO_TESTS_WITHOUT_MOUNT is set.
bool tests_without_mount();
