#include "client_io/client_io.h"
#include "tests/faults/fault_proxy.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fault_io.h"
#include "tests/support/storage_server_process.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iomanip>
#include <iostream>
#include <optional>
#include <random>
#include <sched.h>
#include <sstream>
#include <vector>

namespace
{

using enum Proxy_Fault_Kind;
using enum Proxy_Direction;

enum class Operation
{
    upload,    ///< of a new file
    overwrite, ///< of one that replaces another
    append,
    random_write,
    download,
};

std::string name_of(Operation operation)
{
    constexpr std::array names = {"upload", "overwrite", "append", "random_write", "download"};
    return names.at(static_cast<std::size_t>(operation));
}

constexpr std::size_t index_of(Proxy_Fault_Kind kind)
{
    return static_cast<std::size_t>(kind);
}

constexpr int schedules_of_each_operation = HTTP_SCHEDULES;

/// What a transfer is and what its connections suffer, all of it drawn from one seed.
struct Schedule
{
    /// @param number  decides about what takes time: in some the server is killed, and in a few
    ///                somebody waits for a time limit
    Schedule(Operation kind, std::uint64_t seed, int number);

    /// What the file holds when so many bytes of the body have been written.
    std::string stored_after(std::size_t written) const;
    /// Whether nothing that happens excuses a failure.
    bool has_to_succeed() const;

    Operation operation;
    std::string old;                  ///< what the file holds before; of a download what is read
    std::string body;                 ///< what is written
    std::size_t start = 0;            ///< of a random write, where
    std::size_t piece = 0;            ///< bytes of each read or write
    bool other_way = false;           ///< of reading: without copying; of writing: with flushes
    std::size_t buffer = 0;           ///< of the resumption
    std::optional<std::size_t> kills; ///< the connection at whose fault the server is killed
    std::vector<Proxy_Fault> faults;  ///< of the first connections; later ones have none

private:
    std::size_t draw_size();
    std::string draw_bytes(char first);
    void draw_faults();

    Proxy_Direction direction() const
    {
        return operation == Operation::download ? to_client : to_server;
    }

    std::mt19937_64 random_;
};

Schedule::Schedule(Operation kind, std::uint64_t seed, int number)
    : operation(kind), random_(seed + static_cast<std::uint64_t>(number))
{
    if (operation != Operation::upload)
        old = draw_bytes('A');
    if (operation != Operation::download)
        body = draw_bytes('a');
    if (operation == Operation::random_write)
        start = random_() % (old.size() + 1);
    const std::size_t length = std::max(old.size(), body.size());
    piece = std::max<std::size_t>(random_() % (length / 3 + 1), 50);
    other_way = random_() % 2 == 0;
    buffer = random_() % 4 == 0 ? 1000 + random_() % 20000 : body.size() + 1;
    draw_faults();

    // Where every first connection comes by.
    constexpr std::uint64_t in_the_first_head = 100;
    if (number % 50 == 0) {
        faults[0] = {
            .kind = stall, .direction = direction(), .after = random_() % in_the_first_head};
    } else if (number % 10 == 5) {
        const std::size_t transferred = operation == Operation::download ? length : body.size();
        faults[0] = {.kind = reset,
                     .direction = direction(),
                     .after = random_() % (in_the_first_head + transferred)};
        kills = 0;
    }
}

std::string Schedule::stored_after(std::size_t written) const
{
    std::string part = body.substr(0, written);
    switch (operation) {
    case Operation::append:
        return old + part;
    case Operation::random_write:
        return std::string(old).replace(start, std::min(part.size(), old.size() - start), part);
    case Operation::download:
        return old;
    default:
        return part;
    }
}

bool Schedule::has_to_succeed() const
{
    return operation == Operation::download || buffer > body.size();
}

std::size_t Schedule::draw_size()
{
    constexpr std::array<std::size_t, 4> limits = {2, 2000, 30000, 200000};
    return random_() % limits.at(random_() % limits.size());
}

/// Bytes no stretch of which is like another.
std::string Schedule::draw_bytes(char first)
{
    std::string bytes(draw_size(), '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(first + static_cast<char>(random_() % 26));
    return bytes;
}

void Schedule::draw_faults()
{
    constexpr std::uint64_t heads = 500;
    std::vector<Proxy_Fault_Kind> kinds = {refuse, cut, reset, half_close, drip};
    // Of a request, there is nothing that could come late; and of an answer that comes in pieces,
    // nobody could tell that one of them came twice.
    if (operation != Operation::download)
        kinds.insert(kinds.end(), {late, repeat});
    for (std::size_t left = 1 + random_() % 4; left > 0; --left) {
        Proxy_Fault fault =
            random_proxy_fault(random_, kinds, heads + std::max(old.size(), body.size()));
        if (fault.direction != direction() && fault.kind != drip)
            fault.after %= heads;
        // A whole request that comes too late is another client's.
        if (fault.kind == late)
            fault.after += heads;
        faults.push_back(random_() % 4 == 0 ? Proxy_Fault{} : fault);
    }
}

std::ostream& operator<<(std::ostream& out, const Schedule& schedule)
{
    out << schedule.old.size() << " bytes old, " << schedule.body.size() << " bytes new";
    if (schedule.operation == Operation::random_write)
        out << " from " << schedule.start << " on";
    out << ", pieces of " << schedule.piece << ", buffer of " << schedule.buffer << '\n';
    for (const Proxy_Fault& fault : schedule.faults)
        out << "    " << fault << '\n';
    if (schedule.kills)
        out << "    the server is killed at the fault of connection " << *schedule.kills << '\n';
    return out;
}

/// Real transfers through a proxy that follows schedules, to a real server. Only the pauses of the
/// retries are not real.
class Http_Schedules : public testing::TestWithParam<Operation>
{
protected:
    /// Carries a schedule out. @return whether the client says that the transfer succeeded
    bool carry_out(const Schedule& schedule, const std::string& name)
    {
        Fault_Proxy proxy(server_.port(), [&](std::uint64_t connection) {
            if (connection >= schedule.faults.size())
                return Proxy_Fault{};
            Proxy_Fault fault = schedule.faults[connection];
            if (schedule.kills == connection)
                fault.when_it_happens = [this] {
                    server_.kill();
                    server_.start();
                    ++kills_;
                };
            return fault;
        });
        Client_IO_Base::Options options;
        options.resumption_buffer_size = schedule.buffer;
        if (schedule.faults[0].kind == stall)
            options.socket_timeout = 1;
        clock_.on_sleep = [&](std::chrono::nanoseconds) {
            while (!server_is_at_rest(proxy.open_connections()))
                ::sched_yield();
        };
        Client_IO io;
        const std::string uri = "http://127.0.0.1:" + std::to_string(proxy.port()) + "/";
        const bool done = io.connect(uri.c_str(), options) && transfer(io, schedule, name);
        error_ = done ? "" : io.error();
        io.disconnect();
        clock_.on_sleep = {};
        counts_ += proxy.counts();
        return done;
    }

    void check(const Schedule& schedule, const std::string& name, bool done)
    {
        EXPECT_TRUE(done || !schedule.has_to_succeed()) << error_;
        const std::string now = stored(name);
        if (schedule.operation == Operation::download) {
            EXPECT_TRUE(schedule.old.starts_with(read_)) << read_.size() << " bytes were read";
            EXPECT_TRUE(!done || read_ == schedule.old) << read_.size() << " bytes were read";
        }
        if (done) {
            const std::string whole = schedule.stored_after(schedule.body.size());
            EXPECT_TRUE(now == whole) << now.size() << " bytes are stored";
            whole_[name] = whole;
        } else if (now != schedule.old) {
            EXPECT_TRUE(is_part(schedule, now)) << now.size() << " bytes are stored";
        }
    }

    std::string stored(const std::string& name) const
    {
        return std::filesystem::exists(server_.file(name)) ? read_local(server_.file(name)) : "";
    }

    Fake_Clock clock_;
    Storage_Server_Process server_{{"--no-sync"}};
    std::map<std::string, std::string> whole_; ///< what was reported as stored, by name
    std::string error_;                        ///< of the last transfer, if it failed
    Fault_Proxy::Counts counts_;
    int kills_ = 0;

private:
    bool transfer(Client_IO& io, const Schedule& schedule, const std::string& name)
    {
        switch (schedule.operation) {
        case Operation::upload:
            return upload(io, schedule, name, Client_IO_Base::mode_write);
        case Operation::overwrite:
            return upload(io, schedule, name,
                          Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite);
        case Operation::append:
            return upload(io, schedule, name, Client_IO_Base::mode_append);
        case Operation::random_write:
            return upload(io, schedule, name, Client_IO_Base::mode_random_write);
        case Operation::download:
            return download(io, schedule, name);
        }
        return false;
    }

    static bool upload(Client_IO& io, const Schedule& schedule, const std::string& name,
                       unsigned mode)
    {
        if (!io.open(name.c_str(), mode, schedule.start, 0))
            return false;
        for (std::size_t done = 0; done < schedule.body.size(); done += schedule.piece) {
            const std::size_t size = std::min(schedule.piece, schedule.body.size() - done);
            if (!io.write(schedule.body.data() + done, size) || (schedule.other_way && !io.flush()))
                return false;
        }
        return io.close();
    }

    /// What it reads goes to `read_`, however it ends.
    bool download(Client_IO& io, const Schedule& schedule, const std::string& name)
    {
        read_.clear();
        if (!io.open(name.c_str(), Client_IO_Base::mode_read, 0, 0))
            return false;
        std::string block(schedule.piece, '\0');
        for (;;) {
            const void* data = block.data();
            std::uint64_t size = 0;
            if (schedule.other_way) {
                if (!io.read(data, size))
                    return false;
            } else {
                const std::int64_t n = io.read(block.data(), block.size());
                if (n < 0)
                    return false;
                size = static_cast<std::uint64_t>(n);
            }
            if (size == 0)
                return io.close();
            read_.append(static_cast<const char*>(data), size);
        }
    }

    /// Whether the server has read all that was sent to it and has closed all but the open
    /// connections, as it would have in a pause of ten seconds.
    bool server_is_at_rest(std::size_t open_connections) const
    {
        std::ostringstream port;
        port << ':' << std::uppercase << std::hex << std::setw(4) << std::setfill('0')
             << server_.port();
        std::ifstream sockets("/proc/net/tcp");
        std::string line;
        std::getline(sockets, line);
        std::size_t connections = 0;
        while (std::getline(sockets, line)) {
            std::istringstream fields(line);
            std::string number;
            std::string local;
            std::string remote;
            std::string state;
            std::string queues;
            fields >> number >> local >> remote >> state >> queues;
            const bool is_open = state == "01" || state == "08"; // established, or the peer closed
            if (!local.ends_with(port.str()) || !is_open)
                continue;
            ++connections;
            if (!queues.ends_with(":00000000")) // to be sent : to be received
                return false;
        }
        return connections <= open_connections;
    }

    /// Whether a file holds what a transfer leaves that broke off somewhere: nothing is doubled,
    /// and nothing is out of place.
    static bool is_part(const Schedule& schedule, const std::string& now)
    {
        const std::size_t begin =
            schedule.operation == Operation::append ? schedule.old.size() : schedule.start;
        const std::string written = now.substr(std::min(begin, now.size()));
        const auto end = std::ranges::mismatch(written, schedule.body).in2;
        return schedule.stored_after(static_cast<std::size_t>(end - schedule.body.begin())) == now;
    }

    std::string read_;
};

INSTANTIATE_TEST_SUITE_P(Of, Http_Schedules,
                         testing::Values(Operation::upload, Operation::overwrite, Operation::append,
                                         Operation::random_write, Operation::download),
                         [](const auto& about) { return name_of(about.param); });

TEST_P(Http_Schedules, LoseNothingDoubleNothingAndClaimNothing)
{
    const std::uint64_t seed = seed_of_faults();
    int succeeded = 0;
    std::ostringstream errors;
    for (int number = 0; number < schedules_of_each_operation && !HasFailure(); ++number) {
        const Schedule schedule(GetParam(), seed, number);
        const std::string name = "file" + std::to_string(number);
        std::ostringstream words;
        words << "schedule " << number << ": " << schedule;
        SCOPED_TRACE(words.str());
        if (GetParam() != Operation::upload)
            write_local(server_.file(name), schedule.old);
        const bool done = carry_out(schedule, name);
        check(schedule, name, done);
        succeeded += done ? 1 : 0;
        if (!done)
            errors << "failed: " << number << ": " << error_ << '\n';
    }
    // What comes late to the server changes nothing any more.
    for (const auto& [name, whole] : whole_)
        EXPECT_TRUE(stored(name) == whole) << name;

    std::cout << errors.str() << succeeded << " of " << schedules_of_each_operation
              << " transfers succeeded, on " << counts_.connections << " connections";
    for (std::size_t kind = 1; kind < proxy_fault_kinds; ++kind) {
        std::cout << ", " << counts_.faults.at(kind) << ' '
                  << name_of(static_cast<Proxy_Fault_Kind>(kind));
        const bool is_drawn = GetParam() != Operation::download ||
                              (kind != index_of(late) && kind != index_of(repeat));
        // So many schedules that none of the kinds strikes would be a wonder; a few may miss one.
        constexpr bool many = schedules_of_each_operation >= 100;
        EXPECT_TRUE(is_drawn ? counts_.faults.at(kind) > 0 || !many : counts_.faults.at(kind) == 0);
    }
    std::cout << "; the server was killed " << kills_ << " times\n";
    EXPECT_GT(kills_, schedules_of_each_operation / 30); // of a tenth of the schedules
}

} // namespace
