#pragma once

#include <cstdint>
#include <memory>
#include <string>

/// A mounted file system of a given size, for tests of full and read-only disks. Needs the right
/// to mount; unmounted at the end.
class Small_Disk
{
public:
    /// Mounts one. When mounting is refused the calling test fails and NULL is returned, unless
    /// CLIENT_IO_TESTS_WITHOUT_MOUNT is set in the environment: then the test's name is printed
    /// as left out, and the test is to skip.
    static std::unique_ptr<Small_Disk> mount(std::uint64_t bytes);
    ~Small_Disk();
    Small_Disk(const Small_Disk&) = delete;
    Small_Disk& operator=(const Small_Disk&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + '/' + name; }

    /// From now on every change is refused.
    bool make_read_only();
    /// Takes the whole disk away under the users of open files.
    bool detach();

private:
    explicit Small_Disk(std::string path) : path_(std::move(path)) {}

    std::string path_;
    bool mounted_ = true;
};
