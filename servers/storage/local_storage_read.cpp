#include "servers/storage/local_storage_tree.h"

#include <array>
#include <charconv>
#include <fcntl.h>

namespace
{

constexpr std::int64_t second = 1'000'000'000;

std::int64_t nanoseconds(const timespec& time)
{
    return time.tv_sec * second + time.tv_nsec;
}

void append_field(std::string& tag, std::uint64_t value)
{
    std::array<char, 16> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16).ptr;
    tag += tag.empty() ? '"' : '-';
    tag.append(digits.data(), end);
}

/// @param version  of the upload under way, 0 without one. The times of the file system are too
///                 coarse to tell its writes apart.
std::string entity_tag(const struct stat& info, std::uint64_t version)
{
    std::string tag;
    append_field(tag, info.st_dev);
    append_field(tag, info.st_ino);
    append_field(tag, static_cast<std::uint64_t>(info.st_size));
    append_field(tag, static_cast<std::uint64_t>(nanoseconds(info.st_mtim)));
    append_field(tag, static_cast<std::uint64_t>(nanoseconds(info.st_ctim)));
    if (version != 0)
        append_field(tag, version);
    tag += '"';
    return tag;
}

class Local_Download : public Storage_Tree::Download
{
public:
    Local_Download(File_Handle file, Storage_Status status)
        : file_(std::move(file)), status_(std::move(status))
    {}

    const Storage_Status& status() const override { return status_; }
    int handle() const override { return file_.get(); }

    std::int64_t read(void* buffer, std::size_t size, std::uint64_t offset) override
    {
        ssize_t count = 0;
        do
            count = pread(file_.get(), buffer, size, static_cast<off_t>(offset));
        while (count < 0 && errno == EINTR);
        return count;
    }

private:
    File_Handle file_;
    Storage_Status status_;
};

class Local_Listing : public Storage_Tree::Listing
{
public:
    /// @param root  for links, which can only be followed from there
    Local_Listing(std::shared_ptr<const Confined_Root> root, std::string path,
                  File_Handle directory)
        : root_(std::move(root)), path_(std::move(path)), walk_(std::move(directory))
    {}

    Storage_Result next(Storage_Tree::Entry& entry, bool& end) override
    {
        end = false;
        for (;;) {
            switch (walk_.next()) {
            case Directory_Walk::Event::entry:
                break;
            case Directory_Walk::Event::left:
            case Directory_Walk::Event::end:
                end = true;
                return {};
            case Directory_Walk::Event::failed:
                return last_storage_error();
            }
            if (is_reserved(walk_.name()))
                continue;
            struct stat info;
            if (!examine(info)) {
                if (errno == ENOENT)
                    continue;
                return last_storage_error();
            }
            entry.name = Storage_Tree::listed_name(walk_.name());
            entry.is_dir = S_ISDIR(info.st_mode);
            entry.size = entry.is_dir ? 0 : static_cast<std::uint64_t>(info.st_size);
            entry.mtime_ns = nanoseconds(info.st_mtim);
            return {};
        }
    }

private:
    /// @return false with ENOENT for what has vanished meanwhile and what is not to be listed
    bool examine(struct stat& info) const
    {
        const std::string& name = walk_.name();
        if (walk_.type() == S_IFREG || walk_.type() == S_IFDIR) {
            if (fstatat(walk_.directory(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
                return false;
            if ((info.st_mode & S_IFMT) == walk_.type())
                return true;
        } else if (walk_.type() == S_IFLNK && root_->follows_links()) {
            const File_Handle target =
                root_->open(path_.empty() ? name : path_ + '/' + name, O_PATH);
            if (target && fstat(target.get(), &info) == 0 && S_ISREG(info.st_mode))
                return true;
        }
        errno = ENOENT;
        return false;
    }

    std::shared_ptr<const Confined_Root> root_;
    const std::string path_;
    Directory_Walk walk_;
};

} // namespace

Storage_Result Local_Storage_Tree::status(std::string_view path, Storage_Status& status)
{
    Storage_Path place;
    if (!place.parse(path))
        return {Storage_Failure::bad_path};
    struct stat info;
    const Storage_Result found = examine(place, info);
    if (found)
        status = status_of(info);
    return found;
}

Storage_Result Local_Storage_Tree::download(std::string_view path,
                                            std::unique_ptr<Download>& download)
{
    Storage_Path place;
    if (!place.parse(path))
        return {Storage_Failure::bad_path};
    File_Handle file;
    struct stat info;
    const Storage_Result opened = open_file(place, file, info);
    if (opened)
        download = std::make_unique<Local_Download>(std::move(file), status_of(info));
    return opened;
}

Storage_Result Local_Storage_Tree::list(std::string_view path, std::unique_ptr<Listing>& listing)
{
    Storage_Path place;
    if (!place.parse(path))
        return {Storage_Failure::bad_path};
    File_Handle directory = root_->open(place.text(), O_RDONLY | O_DIRECTORY);
    if (!directory)
        return last_storage_error();
    listing = std::make_unique<Local_Listing>(root_, place.text(), std::move(directory));
    return {};
}

Storage_Result Local_Storage_Tree::open_file(const Storage_Path& path, File_Handle& file,
                                             struct stat& info) const
{
    // Looked at first: opening a device may already do something.
    if (const Storage_Result found = examine(path, info); !found)
        return found;
    if (S_ISDIR(info.st_mode))
        return storage_error(EISDIR);
    file = root_->open(path.text(), O_RDONLY);
    if (!file || fstat(file.get(), &info) != 0)
        return last_storage_error();
    return S_ISREG(info.st_mode) ? Storage_Result{} : Storage_Result{Storage_Failure::denied};
}

Storage_Status Local_Storage_Tree::status_of(const struct stat& info) const
{
    Storage_Status status;
    status.is_dir = S_ISDIR(info.st_mode);
    status.mtime_ns = nanoseconds(info.st_mtim);
    if (!status.is_dir) {
        status.size = static_cast<std::uint64_t>(info.st_size);
        status.file_id = File_Key::of(info).text();
        // Asked for after the file was examined: an upload that begins between makes the tag one
        // that no other state of the file has.
        status.entity_tag = entity_tag(info, state_->uploads.version(File_Key::of(info)));
    }
    return status;
}
