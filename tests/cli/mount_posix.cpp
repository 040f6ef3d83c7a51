#include "tests/cli/mount.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sched.h>
#include <string>
#include <sys/mount.h>

Mount::~Mount()
{
    if (mounted_)
        ::umount2(directory_.c_str(), MNT_DETACH);
}

bool Mount::small_disk(const std::filesystem::path& directory, unsigned long bytes)
{
    directory_ = directory;
    std::filesystem::create_directories(directory);
    const std::string options = "size=" + std::to_string(bytes);
    mounted_ = enter_own_namespace() &&
               told(::mount("none", directory.c_str(), "tmpfs", 0, options.c_str()) == 0, "tmpfs");
    return mounted_;
}

bool Mount::resize(unsigned long bytes)
{
    const std::string options = "size=" + std::to_string(bytes);
    return told(::mount("none", directory_.c_str(), "tmpfs", MS_REMOUNT, options.c_str()) == 0,
                "remount");
}

bool Mount::read_only(const std::filesystem::path& directory)
{
    directory_ = directory;
    const char* path = directory.c_str();
    mounted_ = enter_own_namespace() &&
               told(::mount(path, path, nullptr, MS_BIND, nullptr) == 0, "bind mount");
    return mounted_ &&
           told(::mount(nullptr, path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr) == 0,
                "read-only mount");
}

bool Mount::enter_own_namespace()
{
    return told(::unshare(CLONE_NEWNS) == 0, "own name space") &&
           told(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
                "private mounts");
}

bool Mount::told(bool result, const char* what) const
{
    if (!result)
        std::cout << what << " is refused: " << std::strerror(errno) << "\n";
    return result;
}

bool tests_without_mount()
{
    return std::getenv("CLIENT_IO_TESTS_WITHOUT_MOUNT") != nullptr;
}
