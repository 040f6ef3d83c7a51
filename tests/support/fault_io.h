#pragma once

#include "client_io/pipe_io.h"
#include "tests/support/memory_file_system.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

/// How an operation goes wrong. Where a kind has no meaning for an operation (a part of a flush),
/// it is `nothing_done`; the kinds below the line do not fail it, and do nothing to others.
enum class Fault_Kind
{
    nothing_done, ///< fails before anything is done
    part_done,    ///< fails after `amount` bytes of a write or read or entries of a listing
    done,         ///< is done, and reported as failed
    /// A write is done, anything else is not. Then the connection is lost, and with it the open
    /// file, and of the file the last `amount` bytes written since its open or last seek.
    connection_lost,
    /// Is done, and then `amount` foreign bytes stand behind the file's end and the connection is
    /// lost.
    reopened_long,
    // ---
    short_read,   ///< a read brings `amount` bytes at most, but at least one
    unknown_size, ///< an open succeeds; until the next one size() is unknown
    old_size,     ///< likewise; size() counts what the file held before the open
    slow,         ///< takes `amount` seconds of the clock in force, which should be a fake one
};

struct Fault
{
    Fault_Kind kind = Fault_Kind::nothing_done;
    std::uint64_t amount = 0;
    bool retriable = true;
};

std::ostream& operator<<(std::ostream& out, const Fault& fault);

/// What a Fault_IO counts and can let fail. `read_block` is the zero-copy read.
enum class Fault_Operation
{
    connect,
    reconnect,
    open,
    read,
    read_block,
    write,
    flush,
    close,
    seek,
    size,
    get_dir,
};

/// The moment before an operation.
struct Fault_Point
{
    std::uint64_t index = 0; ///< of the operation, from 0
    Fault_Operation operation = Fault_Operation::connect;
    bool is_open = false;    ///< a file is open below
    bool writing = false;    ///< it is, or is being opened, for writing
    unsigned open_mode = 0;  ///< of an open
    std::uint64_t bytes = 0; ///< of a read or write
};

/// Asked before every operation for the fault that shall befall it.
using Fault_Plan = std::function<std::optional<Fault>(const Fault_Point& point)>;

/// Faults at chosen operations, by their index.
Fault_Plan faults_at(std::map<std::uint64_t, Fault> faults);

/// Faults at random, all of which a retrying layer above can hide, however they fall:
/// - all are retriable, and none of them hits what is not retried (a seek, a reconnect that is not
///   part of a retry), a path operation while a file is open, or a read, write, flush or close that
///   the lower layer would refuse;
/// - what an open was to do is never done (a repeated one would find its own file);
/// - while the layer above recovers (eight operations) there are only lost connections, at most
///   three on end, and none at all when the first fault left the file open;
/// - a copying read is never short unless asked for, as most layers promise to fill the buffer.
struct Random_Faults
{
    std::uint64_t seed = 0;
    double probability = 0.05; ///< of each operation
    bool short_copying_reads = false;
    std::uint64_t most_lost = 100000; ///< bytes that a lost connection takes away at most
};
Fault_Plan random_faults(const Random_Faults& settings);

/// CLIENT_IO_SEED, or else a new seed; prints it.
std::uint64_t seed_of_faults();

/// A layer that lets operations fail as planned, and otherwise changes nothing.
///
/// After an injected failure error() begins with "injected ", errnum() is 5 and retriable() is the
/// fault's, until the next operation.
class Fault_IO : public Pipe_IO
{
public:
    /// @param plan   empty: nothing fails
    /// @param files  where the lower layer stores; without it no byte is lost and none is foreign
    explicit Fault_IO(std::unique_ptr<Client_IO_Base> io, Fault_Plan plan = {},
                      std::shared_ptr<Memory_File_System> files = nullptr);

    std::int64_t read(void* buf, std::uint64_t size) override;
    bool write(const void* buf, std::uint64_t size) override;
    std::uint64_t size() const override;
    bool connect(const URI& uri, const Options& options) override;
    bool reconnect() override;
    bool open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size) override;
    bool open(const char* path, unsigned mode, const json_spirit::Value& extra) override;
    bool close() override;
    bool read(const void*& data, std::uint64_t& size) override;
    bool flush() override;
    bool seek(std::uint64_t offset, std::uint64_t length) override;
    std::uint64_t size(const char* path) override;
    bool get_dir(const char* path, std::vector<Directory_Entry>& entries) override;
    int errnum() const override;
    bool retriable() const override;

    /// Operations counted so far.
    std::uint64_t operations() const { return operations_; }
    /// Operations that were made to fail so far.
    std::uint64_t failures() const { return failures_; }

private:
    using Whole = std::function<bool()>;
    using Part = std::function<bool(std::uint64_t amount)>;

    std::optional<Fault> next_fault(Fault_Point point);
    bool carry_out(const Fault_Point& point, const Whole& whole, const Part& part = {});
    template <class Open>
    bool open_with(const Open& open_lower, const char* path, unsigned mode, std::uint64_t offset);
    void begin_stretch(std::uint64_t position);
    bool write_noted(const void* buf, std::uint64_t size);
    bool hand_out(const void*& data, std::uint64_t& size, std::uint64_t most);
    void drop_tail(std::uint64_t amount);
    void add_foreign_bytes(std::uint64_t amount);
    void lose_connection();

    Fault_Plan plan_;
    std::shared_ptr<Memory_File_System> files_;
    std::uint64_t operations_ = 0;
    std::uint64_t failures_ = 0;
    std::optional<Fault> failure_; ///< of the last operation, if it was made to fail
    std::uint64_t shortest_ = 0;   ///< bytes to which the present read is cut, 0 = not
    Fault_Kind size_fault_ = Fault_Kind::nothing_done; ///< of the present file
    std::uint64_t size_before_open_ = 0;

    std::string path_;
    bool writing_ = false;
    std::uint64_t stretch_ = 0;  ///< where the last open or seek went
    std::uint64_t position_ = 0; ///< how far was written since
    std::uint64_t size_at_stretch_ = 0;
    std::string overwritten_;     ///< what stood between them
    const char* block_ = nullptr; ///< what is left of the lower layer's last block
    std::uint64_t block_size_ = 0;
};
