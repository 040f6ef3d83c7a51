#include "servers/storage/temporary_entry.h"

#include "servers/storage/directory_walk.h"
#include "servers/storage/storage_path.h"

#include <array>
#include <cstdint>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

namespace
{

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t random_digits = 16;
constexpr int attempts = 100;

std::string name_prefix()
{
    return std::string(Storage_Path::reserved) + "new-";
}

bool random_name(std::string& name)
{
    std::array<unsigned char, random_digits> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return false;
    name = name_prefix();
    for (const unsigned char byte : bytes)
        name += digits[byte % digits.size()];
    return true;
}

bool is_temporary(std::string_view name)
{
    const std::string prefix = name_prefix();
    return name.size() == prefix.size() + random_digits && name.starts_with(prefix) &&
           name.find_first_not_of(digits, prefix.size()) == std::string_view::npos;
}

} // namespace

Temporary_Entry::~Temporary_Entry()
{
    if (handle_)
        remove_with_contents(parent_, name_);
}

bool Temporary_Entry::create_file(int parent)
{
    return create(parent, [&] {
        return openat(parent, name_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    });
}

bool Temporary_Entry::create_directory(int parent)
{
    return create(parent, [&] {
        return mkdirat(parent, name_.c_str(), 0700) != 0
                   ? -1
                   : openat(parent, name_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    });
}

File_Handle Temporary_Entry::placed()
{
    static_cast<void>(flock(handle_.get(), LOCK_UN));
    return std::move(handle_);
}

template <class Create>
bool Temporary_Entry::create(int parent, Create create)
{
    parent_ = parent;
    for (int i = 0; i < attempts; ++i) {
        if (!random_name(name_))
            return false;
        File_Handle made(create());
        if (!made) {
            if (errno == EEXIST)
                continue;
            return false;
        }
        // Whoever looks for left-overs may have come between; then its name is gone. Where files
        // cannot be locked nobody removes any.
        struct stat info;
        static_cast<void>(flock(made.get(), LOCK_EX | LOCK_NB));
        if (fstat(made.get(), &info) != 0)
            return false;
        if (info.st_nlink == 0)
            continue;
        handle_ = std::move(made);
        return true;
    }
    return false;
}

void remove_with_contents(int parent, const std::string& name)
{
    if (unlinkat(parent, name.c_str(), 0) == 0 || errno != EISDIR)
        return;
    Directory_Walk walk(
        File_Handle(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
    for (;;) {
        switch (walk.next()) {
        case Directory_Walk::Event::entry:
            if (walk.type() != S_IFDIR || !walk.enter())
                unlinkat(walk.directory(), walk.name().c_str(), 0);
            break;
        case Directory_Walk::Event::left:
            unlinkat(walk.directory(), walk.name().c_str(), AT_REMOVEDIR);
            break;
        case Directory_Walk::Event::end:
        case Directory_Walk::Event::failed:
            unlinkat(parent, name.c_str(), AT_REMOVEDIR);
            return;
        }
    }
}

void remove_left_over(int parent, const std::string& name)
{
    struct stat info;
    if (!is_temporary(name) || fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)))
        return;
    const File_Handle entry(
        openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (entry && flock(entry.get(), LOCK_EX | LOCK_NB) == 0)
        remove_with_contents(parent, name);
}
