#pragma once

#include "client_io/client_io_base.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fault_io.h"
#include "tests/support/log_capture.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// Where a member differs from what the interface promises.
enum class Deviation
{
    /// In append mode size() is the number of bytes written since the open.
    append_size_counts_from_open,
    /// reconnect() after disconnect() fails, and nothing else brings the connection back.
    disconnect_forgets_target,
    /// An open file survives disconnect().
    disconnect_leaves_file_open,
    /// The length given to seek() ends the stream after so many bytes.
    seek_length_limits_reading,
    /// close() without an open file succeeds.
    closing_nothing_succeeds,
    /// size() without an open file is not "unknown".
    size_without_file_is_known,
    /// A name of 300 bytes is one like any other.
    names_have_no_limit,
    /// Names that differ in case only are one name.
    names_ignore_case,
    /// A file is stored as one stream of other bytes that only makes sense from its start. Seeks,
    /// random writing and writing from an offset are refused; reading from behind the end fails;
    /// truncate() works on the stream as it is stored, which then is a damaged one.
    one_stream,
    /// The stream has another length than the file, and all sizes are the stream's. A damaged one
    /// is noticed.
    stored_size_differs,
    /// A file that holds anything is not opened for append.
    no_append_to_contents,
    /// disconnect() loses the end of an open file's stream, and with it the file.
    disconnect_breaks_open_file,
    /// What was written before disconnect() may still be on its way afterwards.
    disconnect_leaves_bytes_on_their_way,
    /// Opening for writing does not wait for the target's answer: what the target refuses fails at
    /// the latest when it is closed.
    refusals_show_at_close,
    /// An access kind that does not exist is taken for writing.
    unknown_modes_write,
    /// Opening for reading at the end of the file or behind it fails.
    reading_starts_within_the_file,
    /// A name that is not UTF-8 is listed in another form, by which it can be reached as well.
    names_are_listed_as_utf8,
    /// Files are only written from their start and as a whole: append to what holds something,
    /// random writing, writing from an offset and seeks in writing are refused.
    whole_files_only,
    /// Directories cannot be listed.
    lists_nothing,
    truncates_nothing,
    /// Only files are removed.
    removes_no_directories,
    /// Directories are not copied or renamed.
    moves_files_only,
    /// The directories on the way to a file are not made.
    makes_no_parents,
    /// Failures have the numbers of an HTTP status: 17 for a file in place of a directory, 41 for a
    /// directory that is not empty, 121 for what has none.
    numbers_of_statuses,
};

using Fault_Counts = std::map<Fault_Operation, std::uint64_t>;

/// An empty place to store files in; what is stored there outlives its connections.
class Target
{
public:
    virtual ~Target() = default;
    /// A new object of the member's kind, connected to the place.
    virtual std::unique_ptr<Client_IO_Base> connect() = 0;
    /// A new object of the bare storage, connected to the same place.
    virtual std::unique_ptr<Client_IO_Base> connect_below() = 0;
    /// Calls that reached the storage and for which the interface does not provide.
    virtual std::vector<std::string> violations() const { return {}; }
    /// Failures that were injected so far.
    virtual Fault_Counts faults() const { return {}; }
};

/// One kind of storage (or a stack over one) that is held to the suite.
struct Member
{
    std::string name;
    std::function<std::unique_ptr<Target>()> make_target;
    std::set<Deviation> deviations;
    /// Beneath the facade state is checked before anything is asked of the storage.
    bool is_facade = false;
    /// Its storage fails at random.
    bool is_faulty = false;
    std::string reading_refused; ///< text of a read from a file that is open for writing
    std::string writing_refused; ///< text of a write to a file that is open for reading
    /// Text of what whole_files_only and the like refuse.
    std::string unsupported{};
};

std::ostream& operator<<(std::ostream& out, const Member& member);

const std::vector<Member>& members();
/// Those whose storage fails at random.
std::vector<Member> faulty_members();

inline std::string member_name(const testing::TestParamInfo<Member>& info)
{
    return info.param.name;
}

/// A test of one member: an empty target, and one connection to it.
///
/// Every test fails as well when a call reaches the storage for which the interface does not
/// provide and when a layer logs that something unexpected happened (unless the test made such
/// calls), and when time is spent on retries though no fault was injected.
class Conformance : public testing::TestWithParam<Member>
{
protected:
    void SetUp() override;
    void TearDown() override;

    bool deviates(Deviation deviation) const { return GetParam().deviations.contains(deviation); }

    /// Says that the test makes such calls itself (in the words of the strict storage). Layers may
    /// pass them on; the facade must not.
    void misuses(const std::set<std::string>& calls)
    {
        misuses_.insert(calls.begin(), calls.end());
    }

    /// Stores a file with a connection of its own.
    void store(const std::string& path, const std::string& data);
    /// Reads a whole file with a connection of its own.
    std::string stored(const std::string& path);
    /// Size of a file or directory, asked for with a connection of its own.
    std::uint64_t stored_size(const std::string& path);
    /// What the file holds beneath all layers; of a large one, the start.
    std::string stored_below(const std::string& path);
    /// Its size there.
    std::uint64_t size_below(const std::string& path);
    /// The size that a file of so many bytes has to show; it has to be stored already.
    std::uint64_t size_shown(const std::string& path, std::uint64_t plain);
    /// Reads the open file to its end, @p block bytes at a time; fails the test on a failed read.
    std::string read_rest(std::size_t block = 4096) { return read_rest(*io_, block); }
    static std::string read_rest(Client_IO_Base& io, std::size_t block = 4096);
    /// Writes to a path that the target refuses, which shows in the open or, at the latest, in the
    /// close.
    void expect_write_refused(const char* path, unsigned mode);
    /// The number that a failure has to show. @param number  the system's
    int number_shown(int number) const;
    /// The form in which a listing has to show the name.
    std::string name_shown(const std::string& name) const;
    /// Opens and reads a file up to its end or a failure, which has to leave a text.
    std::string read_as_far_as_possible(const std::string& path, bool* failed = nullptr);
    /// Reads a file that must turn out to be damaged before its end.
    std::string read_damaged(const std::string& path);
    /// Names in a directory, sorted, directories with a `/` behind.
    std::vector<std::string> names(const std::string& path) { return names(path, *io_); }
    std::vector<std::string> names(const std::string& path, Client_IO_Base& io);

    // The operations of the interface; where the member refuses them, and says so, they are carried
    // out beneath it.
    bool get_dir(const std::string& path, std::vector<Client_IO_Base::Directory_Entry>& entries)
    {
        return get_dir(path, entries, *io_);
    }
    bool truncate(const std::string& path, std::uint64_t size);

    /// Whether the member refuses to open a file so that the stream would not begin at its start;
    /// if it does, it has to say why, and nothing may be open or changed.
    bool refuses_to_write_within(const char* path, unsigned mode, std::uint64_t offset);
    /// Likewise for append to a file that holds something.
    bool refuses_to_append(const char* path);
    /// Likewise for a seek in the open file.
    bool refuses_to_seek(std::uint64_t offset, std::uint64_t length);

    Fake_Clock clock_;
    Log_Capture log_;
    std::unique_ptr<Target> target_;
    std::unique_ptr<Client_IO_Base> io_;

private:
    bool get_dir(const std::string& path, std::vector<Client_IO_Base::Directory_Entry>& entries,
                 Client_IO_Base& io);
    void expect_refused_open(const char* path, unsigned mode, std::uint64_t offset,
                             const std::string& text);

    std::set<std::string> misuses_;
};
