#include "platform/runtime/path.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/os_error.h"

#include <ace/Default_Constants.h>
#include <ace/OS_NS_errno.h>
#include <new>
#include <string_view>
#include <vector>

namespace
{

constexpr bool is_separator(char c)
{
    return c == '/' || c == ACE_DIRECTORY_SEPARATOR_CHAR_A;
}

std::string_view without_trailing_separators(std::string_view path)
{
    while (path.size() > 1 && is_separator(path.back()))
        path.remove_suffix(1);
    return path;
}

// Everything before the last name; empty when there is nothing.
std::string_view parent_of(std::string_view path)
{
    while (!path.empty() && !is_separator(path.back()))
        path.remove_suffix(1);
    return path.empty() ? path : without_trailing_separators(path);
}

bool is_directory(const char* path)
{
    file_system::Status status;
    return file_system::status(path, true, status) && status.is_directory();
}

enum class Made
{
    created,
    there_already,
    parent_missing,
    failed,
};

Made make_one(const char* path, unsigned short mode)
{
    if (file_system::make_directory(path, mode))
        return Made::created;
    const int reason = ACE_OS::last_error();
    if (os_error::is_missing(reason))
        return Made::parent_missing;
    // Asked whatever the reason: some systems answer EACCES or EROFS for a directory that is
    // there, and another thread may have been faster.
    const bool there = is_directory(path);
    ACE_OS::last_error(reason);
    return there ? Made::there_already : Made::failed;
}

int make_all(std::string_view path, unsigned short mode,
             const std::function<void(const char*)>& callback)
{
    // From the path towards its root until something stands, then back down.
    std::vector<std::string> missing{std::string(without_trailing_separators(path))};
    bool climbing = true;
    while (!missing.empty()) {
        const Made made = make_one(missing.back().c_str(), mode);
        if (made == Made::failed)
            return -1;
        if (made == Made::parent_missing) {
            const std::string parent{parent_of(missing.back())};
            // On the way down a parent was just there: somebody removes what is made here.
            if (!climbing || parent.empty() || parent == missing.back())
                return -1;
            missing.push_back(parent);
            continue;
        }
        climbing = false;
        if (made == Made::created && callback)
            callback(missing.back().c_str());
        missing.pop_back();
    }
    return 0;
}

} // namespace

int mkdir_p(const char* path, unsigned short mode, const std::function<void(const char*)>& callback)
{
    if (path == nullptr || *path == '\0') {
        ACE_OS::last_error(path == nullptr ? os_error::invalid_argument : os_error::no_such_file);
        return -1;
    }
    try {
        return make_all(path, mode, callback);
    } catch (const std::bad_alloc&) {
        ACE_OS::last_error(os_error::out_of_memory);
        return -1;
    }
}

bool dirname_string(const std::string& path, std::string& result, char separator)
{
    const std::size_t last = path.rfind(separator);
    if (last == std::string::npos) {
        result.clear();
        return false;
    }
    // The separator of "/b" is the directory itself. `result` may be `path`.
    std::string directory = path.substr(0, last == 0 ? 1 : last);
    result = std::move(directory);
    return true;
}
