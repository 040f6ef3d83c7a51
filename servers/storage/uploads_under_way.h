#pragma once

#include "servers/storage/directory_walk.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

/// Which files are being uploaded, and that each is by one upload only: a client whose connection
/// broke comes back while what it sent before is still being written.
///
/// Protocol with those who take a name off a file: an upload first joins the table and then looks
/// whether its file still has a name; they take the name off first and then call supersede(). One
/// of the two notices.
class Uploads_Under_Way
{
public:
    /// One upload's part: it writes with `mutex` held and as long as it is not superseded.
    struct Entry
    {
        std::mutex mutex;
        bool superseded = false;
        /// Another number before and after every write, unlike that of any other upload.
        std::atomic<std::uint64_t> version = 0;
    };
    using Lock = std::unique_lock<std::mutex>;
    struct Membership
    {
        std::shared_ptr<Entry> entry;
        Lock lock; ///< of the entry, which it must not outlive
    };

    Uploads_Under_Way();

    /// Joins the table in place of the file's older upload, and waits until that one has written
    /// its last. The new entry is locked all the while and afterwards: whoever comes next waits for
    /// the one that waits.
    Membership begin(const File_Key& file);
    /// Leaves the table, unless superseded.
    void end(const File_Key& file, const std::shared_ptr<Entry>& entry);
    /// Stops an upload because its file is no longer what it was.
    void supersede(const File_Key& file);

    void count_version(Entry& entry);
    /// The version of the file's upload, 0 when there is none.
    std::uint64_t version(const File_Key& file) const;

private:
    struct Hash
    {
        std::size_t operator()(const File_Key& key) const;
    };

    mutable std::mutex mutex_;
    std::unordered_map<File_Key, std::shared_ptr<Entry>, Hash> entries_;
    std::atomic<std::uint64_t> last_version_;
};
