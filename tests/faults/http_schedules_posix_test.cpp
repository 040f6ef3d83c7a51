#include "client_io/client_io.h"
#include "tests/faults/fault_proxy.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fault_io.h"
#include "tests/support/storage_server_process.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <random>
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
    download,
};

std::string name_of(Operation operation)
{
    constexpr std::array names = {"upload", "overwrite", "append", "download"};
    return names.at(static_cast<std::size_t>(operation));
}

constexpr int schedules_of_each_operation = 150;

/// What one connection after the other suffers while one file is transferred, all of it drawn from
/// one seed.
struct Schedule
{
    Schedule(Operation kind, std::uint64_t seed);

    Operation operation;
    std::string old;                  ///< what the file holds before; of a download what is read
    std::string body;                 ///< what is written
    std::size_t piece = 0;            ///< bytes of each read or write
    bool flushes = false;             ///< after some writes
    std::size_t buffer = 0;           ///< of the resumption
    bool stalls = false;              ///< somebody waits for a time limit
    std::optional<std::size_t> kills; ///< the connection at whose fault the server is killed
    std::vector<Proxy_Fault> faults;  ///< of the first connections; later ones have none

private:
    std::size_t draw_size();
    void draw_faults();

    std::mt19937_64 random_;
};

Schedule::Schedule(Operation kind, std::uint64_t seed) : operation(kind), random_(seed)
{
    const auto draw_bytes = [this](char first) {
        std::string bytes(draw_size(), '\0');
        // So that no stretch is another one's equal.
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] =
                static_cast<char>(first + static_cast<char>((i * i / 7 + random_() % 2) % 26));
        return bytes;
    };
    if (operation != Operation::upload)
        old = draw_bytes('A');
    if (operation != Operation::download)
        body = draw_bytes('a');
    piece = 1 + random_() % std::max<std::size_t>(1, std::max(old.size(), body.size()) / 3);
    piece = std::max<std::size_t>(piece, 50);
    flushes = random_() % 2 == 0;
    buffer = random_() % 4 == 0 ? 1000 + random_() % 20000 : body.size() + 1;
    draw_faults();
}

std::size_t Schedule::draw_size()
{
    constexpr std::array<std::size_t, 4> limits = {2, 2000, 30000, 200000};
    return random_() % limits.at(random_() % limits.size());
}

void Schedule::draw_faults()
{
    std::vector<Proxy_Fault_Kind> kinds = {refuse, cut, reset, half_close, late, drip};
    // Of an answer that is longer than a piece of it, nobody could tell that a piece came twice.
    if (operation != Operation::download)
        kinds.push_back(repeat);
    const std::size_t span = std::max(old.size(), body.size()) + 1000;
    for (std::size_t left = 1 + random_() % 4; left > 0; --left)
        faults.push_back(random_() % 4 == 0 ? Proxy_Fault{}
                                            : random_proxy_fault(random_, kinds, span));
    Proxy_Fault& chosen = faults.at(random_() % faults.size());
    const std::uint64_t lot = random_() % 50;
    if (lot == 0) {
        chosen.kind = stall;
        stalls = true;
    } else if (lot < 6) {
        chosen = {.kind = reset, .direction = to_server, .after = random_() % span};
        kills = static_cast<std::size_t>(&chosen - faults.data());
    }
}

std::ostream& operator<<(std::ostream& out, const Schedule& schedule)
{
    out << schedule.old.size() << " bytes old, " << schedule.body.size() << " bytes new, pieces of "
        << schedule.piece << ", buffer of " << schedule.buffer << '\n';
    for (const Proxy_Fault& fault : schedule.faults)
        out << "    " << fault << '\n';
    if (schedule.kills)
        out << "    the server is killed at the fault of connection " << *schedule.kills << '\n';
    return out;
}

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
        options.max_retry = 6000; // of the clock's seconds
        options.resumption_buffer_size = schedule.buffer;
        if (schedule.stalls)
            options.socket_timeout = 1;
        Client_IO io;
        const std::string uri = "http://127.0.0.1:" + std::to_string(proxy.port()) + "/";
        const bool done = io.connect(uri.c_str(), options) && transfer(io, schedule, name);
        if (!done)
            failures_ << name << ": " << io.error() << '\n';
        io.disconnect();
        counts_ += proxy.counts();
        return done;
    }

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
        case Operation::download:
            return download(io, schedule, name);
        }
        return false;
    }

    static bool upload(Client_IO& io, const Schedule& schedule, const std::string& name,
                       unsigned mode)
    {
        if (!io.open(name.c_str(), mode, 0, 0))
            return false;
        bool flush = schedule.flushes;
        for (std::size_t done = 0; done < schedule.body.size();) {
            const std::size_t size = std::min(schedule.piece, schedule.body.size() - done);
            if (!io.write(schedule.body.data() + done, size))
                return false;
            done += size;
            if (flush && !io.flush())
                return false;
            flush = schedule.flushes && !flush;
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
            if (schedule.flushes) { // the other way to read
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

    std::string stored(const std::string& name) const
    {
        return std::filesystem::exists(server_.file(name)) ? read_local(server_.file(name)) : "";
    }

    void check(const Schedule& schedule, const std::string& name, bool done)
    {
        const std::string whole =
            schedule.operation == Operation::append ? schedule.old + schedule.body : schedule.body;
        const std::string now = stored(name);
        if (schedule.operation == Operation::download) {
            EXPECT_TRUE(now == schedule.old);
            EXPECT_TRUE(schedule.old.starts_with(read_)) << read_.size() << " bytes were read";
            EXPECT_TRUE(!done || read_ == schedule.old) << read_.size() << " bytes were read";
        } else if (done) {
            EXPECT_TRUE(now == whole) << now.size() << " bytes are stored";
            whole_[name] = whole;
        } else {
            // Nothing doubled, nothing out of place.
            EXPECT_TRUE(whole.starts_with(now) || now == schedule.old)
                << now.size() << " bytes are stored";
        }
    }

    Fake_Clock clock_;
    Storage_Server_Process server_{{"--no-sync"}};
    std::string read_;
    std::map<std::string, std::string> whole_; ///< what was reported as stored
    std::ostringstream failures_;
    Fault_Proxy::Counts counts_;
    int kills_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Of, Http_Schedules,
                         testing::Values(Operation::upload, Operation::overwrite, Operation::append,
                                         Operation::download),
                         [](const auto& about) { return name_of(about.param); });

TEST_P(Http_Schedules, LoseNothingDoubleNothingAndClaimNothing)
{
    const std::uint64_t seed = seed_of_faults();
    int succeeded = 0;
    int enough_memory = 0;
    for (int number = 0; number < schedules_of_each_operation; ++number) {
        const Schedule schedule(GetParam(), seed + static_cast<std::uint64_t>(number));
        const std::string name = "file" + std::to_string(number);
        std::ostringstream words;
        words << "CLIENT_IO_SEED=" << seed << ", schedule " << number << ": " << schedule;
        SCOPED_TRACE(words.str());
        if (GetParam() != Operation::upload)
            write_local(server_.file(name), schedule.old);
        const auto before = std::chrono::steady_clock::now();
        const bool done = carry_out(schedule, name);
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
                              std::chrono::steady_clock::now() - before)
                              .count();
        if (took > 500 || !done)
            std::cout << (done ? "ok " : "FAIL ") << took << " ms " << words.str() << std::endl;
        check(schedule, name, done);
        succeeded += done ? 1 : 0;
        enough_memory += schedule.buffer > schedule.body.size() ? 1 : 0;
        if (HasFailure())
            break; // the same again would say no more
    }
    // What comes late to the server changes nothing any more.
    for (const auto& [name, whole] : whole_)
        EXPECT_TRUE(stored(name) == whole) << name;

    std::cout << succeeded << " of " << schedules_of_each_operation << " transfers succeeded, "
              << counts_.connections << " connections, " << kills_
              << " times the server was killed";
    for (std::size_t kind = 1; kind < proxy_fault_kinds; ++kind)
        std::cout << ", " << counts_.faults.at(kind) << ' '
                  << name_of(static_cast<Proxy_Fault_Kind>(kind));
    std::cout << '\n' << failures_.str();
}

} // namespace
