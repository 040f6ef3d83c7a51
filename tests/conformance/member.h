#pragma once

#include "client_io/client_io_base.h"

#include <functional>
#include <gtest/gtest.h>
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
};

/// An empty place to store files in; what is stored there outlives its connections.
class Target
{
public:
    virtual ~Target() = default;
    /// A new object of the member's kind, connected to the place.
    virtual std::unique_ptr<Client_IO_Base> connect() = 0;
};

/// One kind of storage (or a stack over one) that is held to the suite.
struct Member
{
    std::string name;
    std::function<std::unique_ptr<Target>()> make_target;
    std::set<Deviation> deviations;
    /// Beneath the facade state is checked before anything is asked of the storage.
    bool is_facade = false;
    std::string reading_refused; ///< text of a read from a file that is open for writing
    std::string writing_refused; ///< text of a write to a file that is open for reading
};

std::ostream& operator<<(std::ostream& out, const Member& member);

const std::vector<Member>& members();

inline std::string member_name(const testing::TestParamInfo<Member>& info)
{
    return info.param.name;
}

/// A test of one member: an empty target, and one connection to it.
class Conformance : public testing::TestWithParam<Member>
{
protected:
    void SetUp() override;

    bool deviates(Deviation deviation) const { return GetParam().deviations.contains(deviation); }

    /// Stores a file with a connection of its own.
    void store(const std::string& path, const std::string& data);
    /// Reads a whole file with a connection of its own.
    std::string stored(const std::string& path);
    /// Size of a file or directory, asked for with a connection of its own.
    std::uint64_t stored_size(const std::string& path);
    /// Reads the open file to its end, @p block bytes at a time; fails the test on a failed read.
    std::string read_rest(std::size_t block = 4096) { return read_rest(*io_, block); }
    static std::string read_rest(Client_IO_Base& io, std::size_t block = 4096);
    /// Names in a directory, sorted, directories with a `/` behind.
    std::vector<std::string> names(const std::string& path);

    std::unique_ptr<Target> target_;
    std::unique_ptr<Client_IO_Base> io_;
};
