#pragma once

#include "platform/runtime/export.h"

#include <cstdint>
#include <memory>
#include <string>

/// Reads the entries of one local directory in the order in which the system gives them.
/// "." and ".." are never among them. One object serves one thread.
class CLIENT_IO_EXPORT Directory_Reader
{
public:
    struct Entry
    {
        int error = 0;          ///< why the entry could not be examined, 0 when it could
        std::string name;       ///< in the system's bytes on POSIX, UTF-8 on Windows
        std::uint32_t mode = 0; ///< file type and permission bits as stat gives them
        std::int64_t mtime = 0; ///< POSIX seconds
        std::uint64_t size = 0; ///< bytes

        bool is_dir() const { return (mode & 0xF000U) == 0x4000U; }
    };

    Directory_Reader();
    ~Directory_Reader();
    Directory_Reader(const Directory_Reader&) = delete;
    Directory_Reader& operator=(const Directory_Reader&) = delete;

    /// Opens a directory; one that is open already is closed first.
    ///
    /// @param follow_links  true: a symbolic link shows what it points at. false: a link to a
    ///     file shows that file's record, but a link to a directory stays a link, so that a walk
    ///     cannot leave the tree or run in circles. A dangling link always stays a link.
    /// @param limit  end after so many entries, 0 = no limit
    /// @return false on failure; the reason is ACE_OS::last_error()
    [[nodiscard]] bool open(const char* path, bool follow_links, std::uint64_t limit);

    /// Reads the next entry. An entry that vanished since the directory was opened is passed over.
    /// One that cannot be examined does not end the listing: it comes with its name and the system
    /// error number, everything else of it is 0.
    /// @return 1 when @p entry was filled, 0 at the end, -1 on failure (ACE_OS::last_error())
    [[nodiscard]] int read(Entry& entry);

    void close();

private:
    struct State; // differs between the systems
    std::unique_ptr<State> state_;
};
