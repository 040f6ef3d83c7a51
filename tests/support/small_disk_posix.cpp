#include "tests/support/small_disk.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/mount.h>

std::unique_ptr<Small_Disk> Small_Disk::mount(std::uint64_t bytes)
{
    std::string path =
        (std::filesystem::temp_directory_path() / "client_io_small_disk_XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        ADD_FAILURE() << "cannot create " << path << ": " << std::strerror(errno);
        return nullptr;
    }
    const std::string options = "size=" + std::to_string(bytes);
    if (::mount("tmpfs", path.c_str(), "tmpfs", MS_NODEV | MS_NOSUID, options.c_str()) == 0)
        return std::unique_ptr<Small_Disk>(new Small_Disk(path));

    const std::string reason = std::strerror(errno);
    std::filesystem::remove(path);
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    if (std::getenv("CLIENT_IO_TESTS_WITHOUT_MOUNT") != nullptr)
        std::cout << "LEFT OUT (mounting a file system was refused: " << reason
                  << "): " << test->test_suite_name() << '.' << test->name() << '\n';
    else
        ADD_FAILURE() << "this test mounts a small file system, which was refused (" << reason
                      << "). Run it as root, or set CLIENT_IO_TESTS_WITHOUT_MOUNT to leave it out.";
    return nullptr;
}

Small_Disk::~Small_Disk()
{
    if (mounted_)
        ::umount2(path_.c_str(), MNT_DETACH);
    std::error_code error;
    std::filesystem::remove(path_, error);
}

bool Small_Disk::make_read_only()
{
    return ::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

bool Small_Disk::detach()
{
    if (!mounted_ || ::umount2(path_.c_str(), MNT_DETACH) != 0)
        return false;
    mounted_ = false;
    return true;
}
