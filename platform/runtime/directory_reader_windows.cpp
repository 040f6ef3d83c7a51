#include "platform/runtime/directory_reader.h"

#include "platform/runtime/file_system.h"
#include "platform/runtime/native_path.h"
#include "platform/runtime/os_error.h"
#include "platform/runtime/windows_status.h"

#include <ace/OS_NS_errno.h>
#include <new>
#include <string_view>
#include <utility>

struct Directory_Reader::State
{
    ~State() { close(); }

    void close()
    {
        if (search != INVALID_HANDLE_VALUE)
            FindClose(search);
        search = INVALID_HANDLE_VALUE;
        is_open = false;
    }

    void advance() { end = FindNextFileW(search, &found) ? 0 : GetLastError(); }

    void examine(Entry& entry) const;

    HANDLE search = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW found = {}; // the entry to be read next,
    DWORD end = 0;               // unless this tells why there is none
    bool is_open = false;
    std::string path;
    bool follow_links = false;
    std::uint64_t limit = 0;
    std::uint64_t count = 0;
};

// The directory's own record serves; only links have to be looked at.
void Directory_Reader::State::examine(Entry& entry) const
{
    file_system::Status status = file_system::status_of(found);
    if (status.is_link()) {
        const std::string name = path + '\\' + entry.name;
        file_system::Status target;
        if (file_system::status(name.c_str(), true, target) &&
            (follow_links || !target.is_directory()))
            status = target;
    }
    entry.error = 0;
    entry.mode = status.mode;
    entry.mtime = status.mtime_seconds();
    entry.size = status.size;
}

Directory_Reader::Directory_Reader() = default;
Directory_Reader::~Directory_Reader() = default;

bool Directory_Reader::open(const char* path, bool follow_links, std::uint64_t limit)
try {
    if (state_ == nullptr)
        state_ = std::make_unique<State>();
    state_->close();
    std::wstring pattern;
    if (!to_native_path(path, pattern))
        return false;
    state_->path = from_native_path(pattern);
    state_->follow_links = follow_links;
    state_->limit = limit;
    state_->count = 0;
    pattern += pattern.ends_with(L'\\') ? L"*" : L"\\*";
    state_->search = FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &state_->found,
                                      FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    state_->end = state_->search != INVALID_HANDLE_VALUE ? 0 : GetLastError();
    // The root of an empty volume has not even "." in it.
    if (state_->end == ERROR_FILE_NOT_FOUND)
        state_->end = ERROR_NO_MORE_FILES;
    // Systems have several numbers for a file in the place of a directory.
    file_system::Status status;
    if (state_->end != 0 && file_system::status(path, true, status) && !status.is_directory())
        state_->end = ERROR_DIRECTORY;
    state_->is_open = state_->end == 0 || state_->end == ERROR_NO_MORE_FILES;
    if (!state_->is_open)
        ACE_OS::last_error(static_cast<int>(state_->end));
    return state_->is_open;
} catch (const std::bad_alloc&) {
    ACE_OS::last_error(os_error::out_of_memory);
    return false;
}

int Directory_Reader::read(Entry& entry)
try {
    if (state_ == nullptr || !state_->is_open) {
        ACE_OS::last_error(os_error::bad_handle);
        return -1;
    }
    if (state_->limit != 0 && state_->count >= state_->limit)
        return 0;
    for (; state_->end == 0; state_->advance()) {
        const std::wstring_view name = state_->found.cFileName;
        if (name == L"." || name == L"..")
            continue;
        entry.name = wide_to_utf8(name);
        state_->examine(entry);
        ++state_->count;
        state_->advance();
        return 1;
    }
    if (state_->end == ERROR_NO_MORE_FILES)
        return 0;
    ACE_OS::last_error(static_cast<int>(state_->end));
    return -1;
} catch (const std::bad_alloc&) {
    ACE_OS::last_error(os_error::out_of_memory);
    return -1;
}

void Directory_Reader::close()
{
    if (state_ != nullptr)
        state_->close();
}
