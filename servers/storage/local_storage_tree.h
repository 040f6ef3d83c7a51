#pragma once

#include "servers/storage/confined_root.h"
#include "servers/storage/directory_walk.h"
#include "servers/storage/root_lock.h"
#include "servers/storage/storage_error.h"
#include "servers/storage/storage_path.h"
#include "servers/storage/storage_quota.h"
#include "servers/storage/storage_tree.h"
#include "servers/storage/uploads_under_way.h"

#include <array>
#include <cerrno>
#include <mutex>
#include <vector>

/// What a tree and its subtrees share.
struct Storage_State
{
    Storage_State(const Storage_Tree::Options& options) : sync(options.sync), quota(options.quota)
    {}

    /// One of a few locks, chosen by the name. Who gives a name to a file or takes it off one holds
    /// it, so that what is at the name is still what he looked at.
    std::mutex& name_lock(int directory, std::string_view name);

    /// Files that the disk has failed to take. The system tells of it once; what it still shows of
    /// such a file may be gone, so that no upload may go on in it.
    void mark_damaged(const File_Key& file);
    void forget_damage(const File_Key& file);
    bool is_damaged(const File_Key& file);

    const bool sync;
    Storage_Quota quota;
    Uploads_Under_Way uploads;
    File_Handle root;
    Root_Lock lock; ///< released before the handle that it works with

private:
    std::array<std::mutex, 64> name_locks_;
    std::mutex damaged_mutex_;
    std::vector<File_Key> damaged_;
};

/// The tree of a directory of this system.
///
/// Its sources are local_storage_tree.cpp and, by kind of operation, local_storage_read.cpp,
/// local_storage_upload.cpp and local_storage_copy.cpp.
class Local_Storage_Tree : public Storage_Tree
{
public:
    Local_Storage_Tree(Confined_Root root, std::shared_ptr<Storage_State> state);

    Storage_Result status(std::string_view path, Storage_Status& status) override;
    Storage_Result download(std::string_view path, std::unique_ptr<Download>& download) override;
    Storage_Result list(std::string_view path, std::unique_ptr<Listing>& listing) override;
    Storage_Result upload(std::string_view path, Upload_Kind kind, std::uint64_t offset,
                          const Upload_Options& options, std::unique_ptr<Upload>& upload) override;
    Storage_Result make_collection(std::string_view path, unsigned creation_mask) override;
    Storage_Result remove(std::string_view path) override;
    Storage_Result copy(std::string_view from, std::string_view to, bool overwrite) override;
    Storage_Result move(std::string_view from, std::string_view to, bool overwrite) override;
    bool syncs() const override { return state_->sync; }
    std::uint64_t used() const override;
    Storage_Result subtree(std::string_view path, std::unique_ptr<Storage_Tree>& tree) override;

private:
    class Local_Upload;

    /// Looks at what a path leads to, which has to be a file or a directory.
    Storage_Result examine(const Storage_Path& path, struct stat& info) const;
    Storage_Result open_file(const Storage_Path& path, File_Handle& file, struct stat& info) const;
    Storage_Status status_of(const struct stat& info) const;

    /// Opens a file for an upload and lets the upload join those under way; not_found when it was
    /// removed meanwhile.
    Storage_Result begin_upload(const Storage_Path& path, Upload_Kind kind,
                                const Upload_Options& options,
                                std::unique_ptr<Local_Upload>& upload);
    Storage_Result create_file(const Storage_Path& path, const Upload_Options& options,
                               std::unique_ptr<Local_Upload>& upload);
    Storage_Result replace_file(const Storage_Path& path, const Upload_Options& options,
                                std::unique_ptr<Local_Upload>& upload);
    Storage_Result open_existing(const Storage_Path& path, bool create,
                                 const Upload_Options& options,
                                 std::unique_ptr<Local_Upload>& upload);

    /// The directory of a path's last name, made with its parents.
    Storage_Result make_parent(const Storage_Path& path, unsigned creation_mask,
                               File_Handle& parent) const;
    /// Renames an entry, and settles what that takes the name off: its upload ends, and its bytes
    /// no longer count.
    Storage_Result place(int from_directory, const char* from, int to_directory, const char* to,
                         bool overwrite);
    /// What a file that has lost a name was to others: its upload, its part of the quota.
    void settle_nameless(int handle);
    Storage_Result sync_names(int directory) const;

    /// Refuses what place() would, before the work is done.
    static Storage_Result check_target(int parent, const char* name, const struct stat& source,
                                       bool overwrite);
    Storage_Result copy_file(const Storage_Path& from, int parent, const char* name,
                             bool overwrite);
    Storage_Result copy_directory(const Storage_Path& from, int parent, const char* name,
                                  bool overwrite);
    /// Whether a directory is another one or lies somewhere in it.
    Storage_Result is_within(int directory, const File_Key& other, bool& within) const;

    std::shared_ptr<const Confined_Root> root_;
    std::shared_ptr<Storage_State> state_;
};

inline Storage_Result last_storage_error()
{
    return storage_error(errno);
}

/// Permission bits that new files and directories have before their creation mask.
constexpr mode_t new_file_mode = 0666;
constexpr mode_t new_directory_mode = 0777;
/// For directories that come into being on the way to a copy.
constexpr unsigned usual_creation_mask = 022;
