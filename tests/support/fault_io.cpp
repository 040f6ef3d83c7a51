#include "tests/support/fault_io.h"

#include "platform/json/json_value.h"
#include "platform/runtime/clock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <utility>

namespace
{

constexpr std::array kind_names = {"nothing done", "part done",     "done",
                                   "lost",         "reopened long", "short read",
                                   "unknown size", "old size",      "slow"};
constexpr std::array operation_names = {"connect",    "reconnect", "open",   "read",
                                        "read_block", "write",     "flush",  "close",
                                        "seek",       "size",      "get_dir"};

constexpr std::uint64_t no_limit = std::numeric_limits<std::uint64_t>::max();

const char* name_of(Fault_Kind kind)
{
    return kind_names[static_cast<std::size_t>(kind)];
}

const char* name_of(Fault_Operation operation)
{
    return operation_names[static_cast<std::size_t>(operation)];
}

/// The plan behind random_faults().
class Random_Plan
{
public:
    explicit Random_Plan(const Random_Faults& settings)
        : settings_(settings), random_(settings.seed)
    {}

    std::optional<Fault> operator()(const Fault_Point& point)
    {
        ++since_last_;
        const bool recovering = since_last_ <= operations_to_recover;
        if (!recovering)
            on_end_ = 0;
        // A retry reconnects right after the failure; any other reconnect is the caller's.
        if (!can_be_hidden(point) ||
            (point.operation == Fault_Operation::reconnect && since_last_ > 1) ||
            (recovering && (file_left_open_ || on_end_ >= most_on_end)) ||
            !chance(recovering ? 0.25 : settings_.probability))
            return std::nullopt;
        if (point.operation == Fault_Operation::close && !point.writing) {
            // A retrying layer reports it as success all the same, so the file must not stay open
            // nor the connection be lost.
            since_last_ = 0;
            file_left_open_ = true;
            return Fault{Fault_Kind::done};
        }
        const Fault fault = recovering ? lost() : any_of(point);
        if (fault.kind != Fault_Kind::short_read) {
            since_last_ = 0;
            ++on_end_;
            file_left_open_ = fault.kind != Fault_Kind::connection_lost;
        }
        return fault;
    }

private:
    static constexpr std::uint64_t operations_to_recover = 8;
    static constexpr int most_on_end = 3;

    static bool can_be_hidden(const Fault_Point& point)
    {
        const unsigned access = point.open_mode & Client_IO_Base::mode_access;
        switch (point.operation) {
        case Fault_Operation::connect:
        case Fault_Operation::reconnect:
            return true;
        case Fault_Operation::open:
            return access >= Client_IO_Base::mode_read &&
                   access <= Client_IO_Base::mode_random_write;
        case Fault_Operation::read:
        case Fault_Operation::read_block:
            return point.is_open && !point.writing;
        case Fault_Operation::write:
        case Fault_Operation::flush:
            return point.is_open && point.writing;
        case Fault_Operation::close:
            return point.is_open;
        case Fault_Operation::size:
        case Fault_Operation::get_dir:
            return !point.is_open;
        case Fault_Operation::seek:
            break;
        }
        return false;
    }

    Fault any_of(const Fault_Point& point)
    {
        switch (point.operation) {
        case Fault_Operation::connect:
        case Fault_Operation::reconnect:
        case Fault_Operation::open:
            return chance(0.5) ? Fault{} : lost();
        case Fault_Operation::close:
            return chance(0.5) ? lost() : Fault{Fault_Kind::done};
        case Fault_Operation::read_block:
            if (chance(0.3))
                return {Fault_Kind::short_read, number(4096)};
            break;
        case Fault_Operation::read:
            if (settings_.short_copying_reads && chance(0.3))
                return {Fault_Kind::short_read, number(point.bytes)};
            break;
        default:
            break;
        }
        switch (number(3)) {
        case 0:
            return {};
        case 1:
            return {Fault_Kind::part_done, number(point.bytes)};
        case 2:
            return {Fault_Kind::done};
        default:
            return lost();
        }
    }

    Fault lost()
    {
        // Small amounts as often as large ones: what was lost may end in any write.
        return {Fault_Kind::connection_lost,
                chance(0.5) ? number(16) : number(settings_.most_lost)};
    }

    bool chance(double probability) { return std::bernoulli_distribution(probability)(random_); }
    std::uint64_t number(std::uint64_t most)
    {
        return std::uniform_int_distribution<std::uint64_t>(0, most)(random_);
    }

    Random_Faults settings_;
    std::mt19937_64 random_;
    std::uint64_t since_last_ = operations_to_recover;
    int on_end_ = 0;
    bool file_left_open_ = false;
};

} // namespace

std::ostream& operator<<(std::ostream& out, const Fault& fault)
{
    return out << name_of(fault.kind) << ' ' << fault.amount
               << (fault.retriable ? "" : " (not retriable)");
}

Fault_Plan faults_at(std::map<std::uint64_t, Fault> faults)
{
    return [faults = std::move(faults)](const Fault_Point& point) -> std::optional<Fault> {
        const auto found = faults.find(point.index);
        return found == faults.end() ? std::nullopt : std::optional(found->second);
    };
}

Fault_Plan random_faults(const Random_Faults& settings)
{
    return Random_Plan(settings);
}

std::uint64_t seed_of_faults()
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    const std::uint64_t seed =
        given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device{}();
    std::cout << "CLIENT_IO_SEED=" << seed << '\n';
    return seed;
}

Fault_IO::Fault_IO(std::unique_ptr<Client_IO_Base> io, Fault_Plan plan,
                   std::shared_ptr<Memory_File_System> files)
    : Pipe_IO(std::move(io)), plan_(std::move(plan)), files_(std::move(files))
{}

std::int64_t Fault_IO::read(void* buf, std::uint64_t size)
{
    std::int64_t n = -1;
    const auto read_lower = [&](std::uint64_t most) {
        n = Pipe_IO::read(buf, std::min(size, most));
        return n >= 0;
    };
    const bool ok = carry_out(
        {.operation = Fault_Operation::read, .bytes = size},
        [&] { return read_lower(shortest_ != 0 ? shortest_ : no_limit); }, read_lower);
    return ok ? n : -1;
}

bool Fault_IO::write(const void* buf, std::uint64_t size)
{
    return carry_out(
        {.operation = Fault_Operation::write, .bytes = size},
        [&] { return write_noted(buf, size); },
        [&](std::uint64_t part) { return write_noted(buf, std::min(part, size)); });
}

std::uint64_t Fault_IO::size() const
{
    const std::uint64_t n = Pipe_IO::size();
    if (n == size_unknown || size_fault_ == Fault_Kind::unknown_size)
        return size_unknown;
    return size_fault_ == Fault_Kind::old_size ? std::max(n, size_before_open_) : n;
}

bool Fault_IO::connect(const URI& uri, const Options& options)
{
    return carry_out({.operation = Fault_Operation::connect},
                     [&] { return Pipe_IO::connect(uri, options); });
}

bool Fault_IO::reconnect()
{
    return carry_out({.operation = Fault_Operation::reconnect},
                     [&] { return Pipe_IO::reconnect(); });
}

bool Fault_IO::open(const char* path, unsigned mode, std::uint64_t offset, std::uint64_t size)
{
    return open_with([&] { return Pipe_IO::open(path, mode, offset, size); }, path, mode, offset);
}

bool Fault_IO::open(const char* path, unsigned mode, const json_spirit::Value& extra)
{
    return open_with([&] { return Pipe_IO::open(path, mode, extra); }, path, mode, 0);
}

bool Fault_IO::close()
{
    return carry_out({.operation = Fault_Operation::close}, [&] {
        block_size_ = 0;
        return Pipe_IO::close();
    });
}

bool Fault_IO::read(const void*& data, std::uint64_t& size)
{
    const auto hand_out_most = [&](std::uint64_t most) { return hand_out(data, size, most); };
    return carry_out(
        {.operation = Fault_Operation::read_block},
        [&] { return hand_out_most(shortest_ != 0 ? shortest_ : no_limit); }, hand_out_most);
}

bool Fault_IO::flush()
{
    return carry_out({.operation = Fault_Operation::flush}, [&] { return Pipe_IO::flush(); });
}

bool Fault_IO::seek(std::uint64_t offset, std::uint64_t length)
{
    return carry_out({.operation = Fault_Operation::seek}, [&] {
        if (!Pipe_IO::seek(offset, length))
            return false;
        begin_stretch(offset);
        return true;
    });
}

std::uint64_t Fault_IO::size(const char* path)
{
    std::uint64_t n = size_unknown;
    const bool ok = carry_out({.operation = Fault_Operation::size}, [&] {
        n = Pipe_IO::size(path);
        return n != size_unknown;
    });
    return ok ? n : size_unknown;
}

bool Fault_IO::get_dir(const char* path, std::vector<Directory_Entry>& entries)
{
    const auto list = [&](std::uint64_t most) {
        std::vector<Directory_Entry> found;
        const bool ok = Pipe_IO::get_dir(path, found);
        most = std::min<std::uint64_t>(most, found.size());
        entries.insert(entries.end(), found.begin(),
                       found.begin() + static_cast<std::ptrdiff_t>(most));
        return ok;
    };
    return carry_out(
        {.operation = Fault_Operation::get_dir}, [&] { return list(no_limit); }, list);
}

int Fault_IO::errnum() const
{
    return failure_ ? EIO : Pipe_IO::errnum();
}

bool Fault_IO::retriable() const
{
    return failure_ ? failure_->retriable : Pipe_IO::retriable();
}

std::optional<Fault> Fault_IO::next_fault(Fault_Point point)
{
    point.index = operations_++;
    point.is_open = is_open();
    if (point.operation != Fault_Operation::open)
        point.writing = point.is_open && writing_;
    return plan_ ? plan_(point) : std::nullopt;
}

/// @param whole  the operation
/// @param part   as much of it
bool Fault_IO::carry_out(const Fault_Point& point, const Whole& whole, const Part& part)
{
    failure_.reset();
    error_.clear();
    shortest_ = 0;
    const std::optional<Fault> fault = next_fault(point);
    if (!fault)
        return whole();
    switch (fault->kind) {
    case Fault_Kind::nothing_done:
        break;
    case Fault_Kind::part_done:
        if (part)
            static_cast<void>(part(fault->amount));
        break;
    case Fault_Kind::done:
        if (!whole())
            return false; // a failure of its own
        break;
    case Fault_Kind::connection_lost:
        if (point.operation == Fault_Operation::write && !whole())
            return false;
        drop_tail(fault->amount);
        lose_connection();
        break;
    case Fault_Kind::reopened_long:
        if (!whole())
            return false;
        add_foreign_bytes(fault->amount);
        lose_connection();
        break;
    case Fault_Kind::short_read:
        shortest_ = std::max<std::uint64_t>(fault->amount, 1);
        return whole();
    case Fault_Kind::unknown_size:
    case Fault_Kind::old_size: {
        const bool ok = whole();
        if (point.operation == Fault_Operation::open)
            size_fault_ = fault->kind;
        return ok;
    }
    case Fault_Kind::slow:
        Clock::current().sleep(std::chrono::seconds(fault->amount));
        return whole();
    }
    ++failures_;
    failure_ = fault;
    error_ = std::string("injected ") + name_of(fault->kind) + " at " + name_of(point.operation) +
             ' ' + std::to_string(operations_ - 1);
    return false;
}

template <class Open>
bool Fault_IO::open_with(const Open& open_lower, const char* path, unsigned mode,
                         std::uint64_t offset)
{
    Fault_Point point{.operation = Fault_Operation::open, .open_mode = mode};
    point.writing = (mode & mode_access) != mode_read;
    return carry_out(point, [&] {
        const Memory_File_System::Node* node = files_ ? files_->find(path) : nullptr;
        const std::uint64_t before = node != nullptr ? node->bytes.size() : 0;
        if (!open_lower())
            return false;
        size_fault_ = Fault_Kind::nothing_done;
        size_before_open_ = before;
        path_ = path;
        writing_ = point.writing;
        begin_stretch((mode & mode_access) == mode_append ? before : offset);
        return true;
    });
}

void Fault_IO::begin_stretch(std::uint64_t position)
{
    stretch_ = position_ = position;
    overwritten_.clear();
    block_size_ = 0;
    const Memory_File_System::Node* node = files_ ? files_->find(path_) : nullptr;
    size_at_stretch_ = node != nullptr ? node->bytes.size() : 0;
}

/// Writes, and notes what stood there before.
bool Fault_IO::write_noted(const void* buf, std::uint64_t size)
{
    if (files_ && position_ < size_at_stretch_) {
        if (const Memory_File_System::Node* node = files_->find(path_)) {
            std::string before(std::min(size, size_at_stretch_ - position_), '\0');
            node->bytes.read(position_, before.data(), before.size());
            overwritten_ += before;
        }
    }
    if (!Pipe_IO::write(buf, size))
        return false;
    position_ += size;
    return true;
}

bool Fault_IO::hand_out(const void*& data, std::uint64_t& size, std::uint64_t most)
{
    if (block_size_ == 0) {
        const void* block = nullptr;
        if (!Pipe_IO::read(block, block_size_)) {
            block_size_ = 0;
            return false;
        }
        block_ = static_cast<const char*>(block);
    }
    data = block_;
    size = std::min(most, block_size_);
    block_ += size;
    block_size_ -= size;
    return true;
}

/// Takes the last bytes away that were written since the open or the last seek, as if they had
/// never arrived.
void Fault_IO::drop_tail(std::uint64_t amount)
{
    amount = std::min(amount, position_ - stretch_);
    if (!files_ || !writing_ || !is_open() || amount == 0)
        return;
    Memory_File_System::Node* node = files_->find(path_);
    if (node == nullptr)
        return;
    position_ -= amount;
    // A gap in front of the stretch came with its first byte.
    node->bytes.truncate(position_ == stretch_ ? size_at_stretch_
                                               : std::max(size_at_stretch_, position_));
    if (position_ - stretch_ < overwritten_.size()) {
        const std::string before = overwritten_.substr(position_ - stretch_);
        node->bytes.write(position_, before.data(), before.size());
    }
}

void Fault_IO::add_foreign_bytes(std::uint64_t amount)
{
    Memory_File_System::Node* node = files_ && writing_ ? files_->find(path_) : nullptr;
    if (node == nullptr || node->is_dir)
        return;
    const std::string foreign(amount, '#');
    node->bytes.write(node->bytes.size(), foreign.data(), foreign.size());
}

void Fault_IO::lose_connection()
{
    block_size_ = 0;
    _io->disconnect();
}
