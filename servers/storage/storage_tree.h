#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

/// Why an operation on a Storage_Tree failed, as its callers need to tell cases apart.
enum class Storage_Failure
{
    none,
    not_found,
    is_collection,  ///< a directory where a file is asked for
    not_collection, ///< a file where a directory is asked for, the path's parents included
    exists,
    not_empty,
    no_space, ///< of the disk, of the quota, or in a file of the largest size
    bad_path, ///< a name that no tree holds, or a way out of the root
    denied,   ///< read-only, the system's permissions, what is no file and no directory (pipes,
              ///< devices), the root where it may not be, or a target that is or lies in its source
    superseded, ///< a newer upload of the same file has taken over
    failed,     ///< anything else
};

/// Failure and, where the system had a word to say, its error number.
struct Storage_Result
{
    Storage_Failure failure = Storage_Failure::none;
    int errnum = 0;

    explicit operator bool() const { return failure == Storage_Failure::none; }
};

struct Storage_Status
{
    bool is_dir = false;
    std::uint64_t size = 0;    ///< bytes
    std::int64_t mtime_ns = 0; ///< nanoseconds since 1970, UTC
    /// With its quotes; another one after every change of contents. Empty for directories.
    std::string file_id; ///< of a file; another one when it is replaced
    std::string entity_tag;
};

/// A directory tree that is served to clients who must not leave it.
///
/// Paths are as clients name them: relative to the root, with `/` between names (several and
/// leading ones count as one), free of the escapes of URLs, and with names in the form of
/// listed_name(), which every operation undoes itself. Refused as bad_path: "." and ".." as names,
/// NUL bytes, names that begin with ".cio-" (the tree's own), and symbolic links that lead outside,
/// whoever puts them there while an operation runs: every path is resolved beneath the root's
/// handle.
///
/// Links that stay inside are followed, but remove(), move() and replaced files concern the link
/// itself. Listings and copies of directories do not follow links to directories, so that whoever
/// walks the tree comes to an end. Pipes and devices are never opened.
///
/// Every operation blocks. One object serves any number of threads, and it alone serves its root.
class Storage_Tree
{
public:
    struct Options
    {
        std::string root;
        bool sync = true; ///< success is reported when the data is on disk
        bool follow_links =
            true;                ///< off, as always with kernels before 5.6: no path leads over one
        std::uint64_t quota = 0; ///< bytes of all files together, 0 = no limit
    };
    /// What the client asked for beside the contents.
    struct Upload_Options
    {
        unsigned creation_mask = 022; ///< permission bits that new files and directories lack
        std::int64_t mtime_ns = -1;   ///< of the file when it is complete; -1 = when it was written
    };
    struct Entry
    {
        std::string name; ///< in the listed form, see listed_name()
        bool is_dir = false;
        std::uint64_t size = 0;
        std::int64_t mtime_ns = 0;
    };

    class Upload;
    class Download;
    class Listing;

    /// Opens the root, which has to be there. With a quota, or when the last one to serve it was
    /// killed, the whole tree is walked: to count it, and to remove what was left half done.
    /// @param error  words for a message when that fails (NULL result)
    static std::unique_ptr<Storage_Tree> open(const Options& options, std::string& error);
    virtual ~Storage_Tree() = default;

    virtual Storage_Result status(std::string_view path, Storage_Status& status) = 0;
    virtual Storage_Result download(std::string_view path, std::unique_ptr<Download>& download) = 0;
    virtual Storage_Result list(std::string_view path, std::unique_ptr<Listing>& listing) = 0;

    /// How an upload treats what is there.
    enum class Upload_Kind
    {
        create,  ///< a new file; exists when there is one
        replace, ///< in place of what is there: from its success on only the new contents show
        within,  ///< writes into the file at an offset, creates it when it is missing; the rest
                 ///< stays
        cut,     ///< the file, which has to be there, ends at the offset; then as within
    };
    /// Begins an upload at @p offset (0 for create and replace). Missing directories are created.
    /// An older upload of the same file that is still under way ends as superseded: it writes
    /// nothing more from here on.
    virtual Storage_Result upload(std::string_view path, Upload_Kind kind, std::uint64_t offset,
                                  const Upload_Options& options,
                                  std::unique_ptr<Upload>& upload) = 0;

    /// Creates a directory and its missing parents; one that is there is success.
    virtual Storage_Result make_collection(std::string_view path, unsigned creation_mask) = 0;
    /// Removes a file or an empty directory, but not the root.
    virtual Storage_Result remove(std::string_view path) = 0;
    /// Copies a file, or a directory with all it holds, with their permissions. Whoever reads @p to
    /// sees the old contents or the whole of the new. @p to exists: exists, unless @p overwrite;
    /// but then too a file takes the place of a file only, and a directory that of an empty one.
    /// Missing directories on the way to @p to are created.
    virtual Storage_Result copy(std::string_view from, std::string_view to, bool overwrite) = 0;
    /// Likewise, and @p from is gone in the same step.
    virtual Storage_Result move(std::string_view from, std::string_view to, bool overwrite) = 0;

    /// Whether success waits for the disk, as the options said.
    virtual bool syncs() const = 0;
    /// Bytes of all files as the quota counts them; 0 without a quota.
    virtual std::uint64_t used() const = 0;

    /// A tree below a directory of this one, for a user with a root of their own; it shares the
    /// quota and the uploads under way.
    virtual Storage_Result subtree(std::string_view path, std::unique_ptr<Storage_Tree>& tree) = 0;

    /// The form in which a listing shows a name. Names that are UTF-8 stand as they are; each byte
    /// B that is not part of a valid character is shown as U+F700 + B, and so is each byte of the
    /// characters U+F780 to U+F7FF themselves, so that every name has one form of its own.
    static std::string listed_name(std::string_view name);
    /// The name that a client means: undoes listed_name().
    static std::string meant_name(std::string_view listed);
};

/// One upload under way. Destroyed without finish(), it leaves the bytes that were written.
/// One object serves one thread.
class Storage_Tree::Upload
{
public:
    virtual ~Upload() = default;
    /// As Storage_Status has it.
    virtual std::string file_id() const = 0;
    /// Writes at the present place, which moves behind the data.
    virtual Storage_Result write(std::string_view data) = 0;
    /// Completes the file: sets its time and, unless switched off, waits until the disk has it.
    virtual Storage_Result finish() = 0;
};

/// A file that is being read; what is read is one version of it unless it is written into.
class Storage_Tree::Download
{
public:
    virtual ~Download() = default;
    virtual const Storage_Status& status() const = 0;
    /// The file's handle, for sendfile(); owned by this object.
    virtual int handle() const = 0;
    /// @return bytes read, 0 at the end, -1 on failure (errno)
    virtual std::int64_t read(void* buffer, std::size_t size, std::uint64_t offset) = 0;
};

/// A directory that is being listed, without "." and "..", in no order; memory does not grow with
/// its size.
class Storage_Tree::Listing
{
public:
    virtual ~Listing() = default;
    /// @param end  set when there are no more entries, and @p entry then untouched
    virtual Storage_Result next(Entry& entry, bool& end) = 0;
};
