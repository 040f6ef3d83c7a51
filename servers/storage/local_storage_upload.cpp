#include "servers/storage/local_storage_tree.h"
#include "servers/storage/temporary_entry.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <limits>
#include <thread>

namespace
{

constexpr std::uint64_t largest_position = std::numeric_limits<std::int64_t>::max();

/// So much of a long upload is written to the disk at a time, so that little is left for the end.
constexpr std::uint64_t write_back_step = 16U << 20U;

timespec to_timespec(std::int64_t nanoseconds)
{
    constexpr std::int64_t second = 1'000'000'000;
    std::int64_t seconds = nanoseconds / second;
    if (nanoseconds % second < 0)
        --seconds;
    return {seconds, nanoseconds - seconds * second};
}

bool is_same_time(const timespec& first, const timespec& second)
{
    return first.tv_sec == second.tv_sec && first.tv_nsec == second.tv_nsec;
}

/// Gives a new file the permissions that it should have whatever the process's umask, which is not
/// changed since all threads share it.
void set_mode(int file, mode_t present, mode_t wanted)
{
    if ((present & 0777U) != wanted)
        static_cast<void>(fchmod(file, wanted));
}

} // namespace

void Storage_State::mark_damaged(const File_Key& file)
{
    const std::lock_guard guard(damaged_mutex_);
    if (std::find(damaged_.begin(), damaged_.end(), file) == damaged_.end())
        damaged_.push_back(file);
}

void Storage_State::forget_damage(const File_Key& file)
{
    const std::lock_guard guard(damaged_mutex_);
    std::erase(damaged_, file);
}

bool Storage_State::is_damaged(const File_Key& file)
{
    const std::lock_guard guard(damaged_mutex_);
    return std::find(damaged_.begin(), damaged_.end(), file) != damaged_.end();
}

class Local_Storage_Tree::Local_Upload : public Storage_Tree::Upload
{
public:
    Local_Upload(std::shared_ptr<Storage_State> state, const Upload_Options& options,
                 File_Handle file)
        : state_(std::move(state)), mtime_ns_(options.mtime_ns), file_(std::move(file))
    {}
    ~Local_Upload() override;

    /// The directory of the file, in which its name may be new.
    void has_new_name(File_Handle directory) { directory_ = std::move(directory); }
    /// Joins the uploads under way in place of an older one of the file.
    /// @return not_found when the file has lost its name before
    /// @param is_new  whether the file was made for it
    Storage_Result join(bool is_new);
    /// What the path led to before; unless it is said, what the file itself was when it joined.
    void replaces(const struct stat& before) { before_ = before; }
    Storage_Result cut(std::uint64_t size);
    /// Ends the beginning: from here on a newer upload may take over.
    void start_at(std::uint64_t offset);

    std::string file_id() const override { return key_.text(); }
    Storage_Result write(std::string_view data) override;
    Storage_Result finish() override;

private:
    Storage_Result fail(Storage_Result failure) { return failure_ = failure; }
    int write_all(std::string_view data);
    bool set_times(bool finished);

    const std::shared_ptr<Storage_State> state_;
    const std::int64_t mtime_ns_;
    File_Handle file_;
    File_Handle directory_;
    File_Key key_;
    struct stat before_ = {};
    Uploads_Under_Way::Membership membership_; ///< none before and after; locked while it begins
    Storage_Result failure_;                   ///< what is missing stays missing
    bool is_changed_ = false;
    std::uint64_t size_ = 0;
    std::uint64_t position_ = 0;
    std::uint64_t written_back_ = 0; ///< up to here the disk has been told to write
};

Local_Storage_Tree::Local_Upload::~Local_Upload()
{
    if (membership_.entry == nullptr)
        return;
    if (!membership_.lock.owns_lock())
        membership_.lock.lock();
    if (!membership_.entry->superseded) {
        set_times(false);
        state_->uploads.end(key_, membership_.entry);
    }
}

Storage_Result Local_Storage_Tree::Local_Upload::join(bool is_new)
{
    struct stat info;
    if (fstat(file_.get(), &info) != 0)
        return last_storage_error();
    if (!S_ISREG(info.st_mode))
        return {Storage_Failure::denied};
    key_ = File_Key::of(info);
    if (is_new)
        state_->forget_damage(key_); // of another file that had this number
    else if (state_->is_damaged(key_))
        return storage_error(EIO);
    membership_ = state_->uploads.begin(key_);
    if (fstat(file_.get(), &before_) != 0)
        return last_storage_error();
    size_ = static_cast<std::uint64_t>(before_.st_size);
    return before_.st_nlink != 0 ? Storage_Result{} : storage_error(ENOENT);
}

Storage_Result Local_Storage_Tree::Local_Upload::cut(std::uint64_t size)
{
    const std::uint64_t growth = size > size_ ? size - size_ : 0;
    if (!state_->quota.claim(growth))
        return {Storage_Failure::no_space};
    if (ftruncate(file_.get(), static_cast<off_t>(size)) != 0) {
        const Storage_Result failure = last_storage_error();
        state_->quota.release(growth);
        return failure;
    }
    if (size < size_)
        state_->quota.release(size_ - size);
    size_ = size;
    is_changed_ = true;
    return {};
}

void Local_Storage_Tree::Local_Upload::start_at(std::uint64_t offset)
{
    position_ = offset;
    written_back_ = offset;
    membership_.lock.unlock();
}

Storage_Result Local_Storage_Tree::Local_Upload::write(std::string_view data)
{
    if (!failure_)
        return failure_;
    Uploads_Under_Way::Entry& entry = *membership_.entry;
    const Uploads_Under_Way::Lock lock(entry.mutex);
    if (entry.superseded)
        return fail({Storage_Failure::superseded});
    if (data.size() > largest_position - position_)
        return fail(storage_error(EFBIG));
    if (data.empty())
        return {};
    const std::uint64_t start = position_;
    const std::uint64_t end = start + data.size();
    const std::uint64_t growth = end > size_ ? end - size_ : 0;
    if (!state_->quota.claim(growth))
        return fail({Storage_Failure::no_space});

    is_changed_ = true;
    state_->uploads.count_version(entry);
    const int reason = write_all(data);
    state_->uploads.count_version(entry);
    // Where no byte was written, no hole in front of it came into being either.
    const std::uint64_t grown = position_ > start && position_ > size_ ? position_ - size_ : 0;
    size_ += grown;
    state_->quota.release(growth - grown);
    if (reason != 0)
        return fail(storage_error(reason));

    if (state_->sync && position_ - written_back_ >= write_back_step) {
        // A hint; finish() tells whether it worked.
        static_cast<void>(sync_file_range(file_.get(), static_cast<off_t>(written_back_),
                                          static_cast<off_t>(position_ - written_back_),
                                          SYNC_FILE_RANGE_WRITE));
        written_back_ = position_;
    }
    return {};
}

Storage_Result Local_Storage_Tree::Local_Upload::finish()
{
    if (!failure_)
        return failure_;
    {
        const Uploads_Under_Way::Lock lock(membership_.entry->mutex);
        if (membership_.entry->superseded)
            return fail({Storage_Failure::superseded});
        if (!set_times(true))
            return fail(last_storage_error());
        // From here on the next upload may write: the file is complete, only not yet on the disk.
        state_->uploads.end(key_, membership_.entry);
    }
    membership_ = {};
    if (!state_->sync)
        return {};
    if (fsync(file_.get()) != 0) {
        const Storage_Result failure = last_storage_error();
        state_->mark_damaged(key_);
        return fail(failure);
    }
    if (directory_ && !sync_directory(directory_.get()))
        return fail(last_storage_error());
    return {};
}

/// @return the error number of what ended it, 0 when all was written
int Local_Storage_Tree::Local_Upload::write_all(std::string_view data)
{
    while (!data.empty()) {
        const ssize_t count =
            pwrite(file_.get(), data.data(), data.size(), static_cast<off_t>(position_));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EIO;
        position_ += static_cast<std::uint64_t>(count);
        data.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

/// Sets the time that the client asked for when the file is complete, and sees to it that a changed
/// file has other times or another size than the path showed before. It may not when all this took
/// less than a tick of the file system's clock, some milliseconds.
bool Local_Storage_Tree::Local_Upload::set_times(bool finished)
{
    constexpr timespec left{0, UTIME_OMIT};
    constexpr timespec now{0, UTIME_NOW};
    const bool is_asked_for = finished && mtime_ns_ != -1;
    const timespec to_asked_for[] = {left, to_timespec(mtime_ns_)};
    const timespec to_now[] = {now, now};
    if (is_asked_for && futimens(file_.get(), to_asked_for) != 0)
        return false;
    while (is_changed_) {
        struct stat info;
        if (fstat(file_.get(), &info) != 0)
            return false;
        if (info.st_size != before_.st_size || !is_same_time(info.st_mtim, before_.st_mtim) ||
            !is_same_time(info.st_ctim, before_.st_ctim))
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (futimens(file_.get(), is_asked_for ? to_asked_for : to_now) != 0)
            return false;
    }
    return true;
}

Storage_Result Local_Storage_Tree::upload(std::string_view path, Upload_Kind kind,
                                          std::uint64_t offset, const Upload_Options& options,
                                          std::unique_ptr<Upload>& upload)
{
    Storage_Path target;
    if (!target.parse(path))
        return {Storage_Failure::bad_path};
    if (target.is_root())
        return storage_error(EISDIR);
    if (offset > largest_position)
        return storage_error(EFBIG);
    std::unique_ptr<Local_Upload> begun;
    // Again when the file or its directory was removed meanwhile, as if that had come before.
    constexpr int attempts = 100;
    Storage_Result result{Storage_Failure::not_found};
    for (int i = 0; i < attempts && result.failure == Storage_Failure::not_found; ++i) {
        begun.reset();
        result = begin_upload(target, kind, options, begun);
        if (kind == Upload_Kind::cut)
            break;
    }
    if (!result)
        return result;
    if (kind == Upload_Kind::cut)
        if (const Storage_Result done = begun->cut(offset); !done)
            return done;
    if (kind != Upload_Kind::replace)
        begun->start_at(offset);
    upload = std::move(begun);
    return {};
}

Storage_Result Local_Storage_Tree::begin_upload(const Storage_Path& path, Upload_Kind kind,
                                                const Upload_Options& options,
                                                std::unique_ptr<Local_Upload>& upload)
{
    switch (kind) {
    case Upload_Kind::create:
        return create_file(path, options, upload);
    case Upload_Kind::replace:
        return replace_file(path, options, upload);
    case Upload_Kind::within:
        return open_existing(path, true, options, upload);
    case Upload_Kind::cut:
        return open_existing(path, false, options, upload);
    }
    return storage_error(EINVAL);
}

Storage_Result Local_Storage_Tree::create_file(const Storage_Path& path,
                                               const Upload_Options& options,
                                               std::unique_ptr<Local_Upload>& upload)
{
    File_Handle parent;
    if (const auto made = make_parent(path, options.creation_mask, parent); !made)
        return made;
    const mode_t mode = new_file_mode & ~options.creation_mask;
    std::unique_lock naming(state_->name_lock(parent.get(), path.name()));
    File_Handle file(
        openat(parent.get(), path.name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    naming.unlock();
    struct stat info;
    if (!file || fstat(file.get(), &info) != 0)
        return last_storage_error();
    set_mode(file.get(), info.st_mode, mode);
    upload = std::make_unique<Local_Upload>(state_, options, std::move(file));
    upload->has_new_name(std::move(parent));
    return upload->join(true);
}

Storage_Result Local_Storage_Tree::replace_file(const Storage_Path& path,
                                                const Upload_Options& options,
                                                std::unique_ptr<Local_Upload>& upload)
{
    struct stat before = {};
    const Storage_Result found = examine(path, before);
    if (!found && found.failure != Storage_Failure::not_found)
        return found;
    if (found && S_ISDIR(before.st_mode))
        return storage_error(EISDIR);
    File_Handle parent;
    if (const auto made = make_parent(path, options.creation_mask, parent); !made)
        return made;
    Temporary_Entry temporary;
    struct stat info;
    if (!temporary.create_file(parent.get()) || fstat(temporary.handle(), &info) != 0)
        return last_storage_error();
    // Only root may give files away; others serve their own.
    if (found && (info.st_uid != before.st_uid || info.st_gid != before.st_gid) &&
        fchown(temporary.handle(), before.st_uid, before.st_gid) != 0 && errno != EPERM)
        return last_storage_error();
    set_mode(temporary.handle(), info.st_mode,
             found ? before.st_mode & 0777U : new_file_mode & ~options.creation_mask);

    upload = std::make_unique<Local_Upload>(
        state_, options, File_Handle(fcntl(temporary.handle(), F_DUPFD_CLOEXEC, 0)));
    // Before others can see the file and upload into it.
    if (const Storage_Result joined = upload->join(true); !joined)
        return joined;
    upload->start_at(0);
    if (const auto placed =
            place(parent.get(), temporary.name().c_str(), parent.get(), path.name(), true);
        !placed)
        return placed;
    temporary.placed();
    upload->replaces(before);
    upload->has_new_name(std::move(parent));
    return {};
}

Storage_Result Local_Storage_Tree::open_existing(const Storage_Path& path, bool create,
                                                 const Upload_Options& options,
                                                 std::unique_ptr<Local_Upload>& upload)
{
    struct stat info;
    const Storage_Result found = examine(path, info);
    const bool is_new = create && found.failure == Storage_Failure::not_found;
    if (!found && !is_new)
        return found;
    File_Handle parent;
    if (const auto made = make_parent(path, options.creation_mask, parent); !made)
        return made;
    std::unique_lock<std::mutex> naming;
    if (is_new)
        naming = std::unique_lock(state_->name_lock(parent.get(), path.name()));
    const mode_t mode = new_file_mode & ~options.creation_mask;
    File_Handle file =
        root_->open(path.text(), is_new ? O_WRONLY | O_CREAT : O_WRONLY, is_new ? mode : 0);
    naming = {};
    if (!file || fstat(file.get(), &info) != 0)
        return last_storage_error();
    if (is_new)
        set_mode(file.get(), info.st_mode, mode);
    upload = std::make_unique<Local_Upload>(state_, options, std::move(file));
    // The upload that this one goes on with may have ended before the name was on the disk.
    upload->has_new_name(std::move(parent));
    return upload->join(is_new);
}
