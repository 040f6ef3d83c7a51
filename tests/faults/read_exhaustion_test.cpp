#include "tests/faults/fault_stack.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>
#include <vector>

/// For a file read in pieces, every fault at every operation, alone and in pairs: what is handed
/// out is the beginning of the right bytes, and all of them when no operation failed. Every fault
/// that a repetition can help against is survived.

namespace
{

constexpr auto contents = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// A run of reads: to the end, or to its limit, or so many bytes.
struct Run
{
    std::uint64_t offset;
    std::uint64_t length = 0;  ///< the limit given to open() or seek(), 0 = none
    std::uint64_t most = 1000; ///< bytes after which the caller goes elsewhere
};

struct Read_Case
{
    const char* name;
    std::uint64_t block;   ///< bytes a read asks for; 0: without copying
    std::vector<Run> runs; ///< the first by open(), the others by seek()
};

const std::vector<Read_Case> cases = {
    {"Whole", 20, {{0}}},
    {"WholeInOneRead", 100, {{0}}},
    {"WholeWithoutCopying", 0, {{0}}},
    {"FromAnOffset", 9, {{30}}},
    {"FromTheEnd", 9, {{52}}},
    {"WithALimit", 5, {{7, 12}}},
    {"WithALimitWithoutCopying", 0, {{7, 12}}},
    {"WithALimitBehindTheEnd", 9, {{40, 100}}},
    {"WithSeeks", 6, {{0, 0, 12}, {40, 0, 6}, {3, 0, 12}, {45, 0}}},
    {"WithSeeksAndLimits", 6, {{20, 10}, {0, 11}, {47, 0}}},
    {"WithSeeksWithoutCopying", 0, {{10, 5}, {2, 7}, {44, 0}}},
};

std::ostream& operator<<(std::ostream& out, const Read_Case& read_case)
{
    return out << read_case.name;
}

std::string expected_bytes(const Read_Case& read_case)
{
    std::string bytes;
    for (const Run& run : read_case.runs)
        bytes += std::string(contents).substr(
            run.offset, std::min(run.most, run.length == 0 ? run.most : run.length));
    return bytes;
}

using Faults = std::map<std::uint64_t, Fault>;

struct Outcome
{
    bool all_succeeded = false;
    std::string bytes;
    std::uint64_t operations = 0;
    std::uint64_t failures = 0;
    bool seek_failed = false;
    std::string error;
    Memory_IO::Violations violations;
};

bool read_run(const Read_Case& read_case, const Run& run, Client_IO_Base& io, std::string& bytes)
{
    std::uint64_t done = 0;
    while (done < run.most) {
        std::string buffer(std::min(read_case.block, run.most - done), '?');
        const void* data = buffer.data();
        std::uint64_t size = 0;
        if (read_case.block == 0) {
            if (!io.read(data, size))
                return false;
        } else {
            const std::int64_t n = io.read(buffer.data(), buffer.size());
            if (n < 0)
                return false;
            size = static_cast<std::uint64_t>(n);
        }
        if (size == 0)
            return true;
        bytes.append(static_cast<const char*>(data), size);
        done += size;
    }
    return true;
}

bool read_file(const Read_Case& read_case, Client_IO_Base& io, Outcome& outcome)
{
    for (std::size_t i = 0; i < read_case.runs.size(); ++i) {
        const Run& run = read_case.runs[i];
        const bool ok =
            i == 0 ? io.open(Fault_Target::path, Client_IO_Base::mode_read, run.offset, run.length)
                   : io.seek(run.offset, run.length);
        outcome.seek_failed = !ok && i != 0;
        if (!ok || !read_run(read_case, run, io, outcome.bytes))
            return false;
    }
    return io.close();
}

class Read_Exhaustion : public testing::TestWithParam<Read_Case>
{
protected:
    Read_Exhaustion() { target_.store(contents); }

    Outcome run(const Faults& faults)
    {
        ++runs_;
        log_.clear();
        Outcome outcome;
        Fault_Stack stack(target_, faults_at(faults), 0);
        outcome.all_succeeded = stack.connect() && read_file(GetParam(), *stack.io, outcome);
        outcome.operations = stack.faults->operations();
        outcome.failures = stack.faults->failures();
        outcome.error = stack.io->error();
        if (stack.io->is_open())
            stack.io->close();
        outcome.violations = *stack.violations;
        return outcome;
    }

    void check(const Outcome& outcome, const Faults& faults)
    {
        if (outcome.all_succeeded) {
            EXPECT_EQ(outcome.bytes, expected_) << describe(faults);
        } else {
            EXPECT_TRUE(expected_.starts_with(outcome.bytes))
                << describe(faults) << ": " << outcome.bytes;
            EXPECT_FALSE(outcome.error.empty()) << describe(faults);
        }
        EXPECT_TRUE(outcome.violations.empty())
            << describe(faults) << ": " << outcome.violations.front();
        recovered_ += outcome.all_succeeded && outcome.failures > 0 ? 1 : 0;
    }

    static std::string describe(const Faults& faults)
    {
        std::ostringstream out;
        out << GetParam().name;
        for (const auto& [index, fault] : faults)
            out << ", operation " << index << ": " << fault;
        return out.str();
    }

    void print_counts()
    {
        RecordProperty("scenarios", std::to_string(runs_));
        std::cout << runs_ << " scenarios, " << recovered_ << " recovered\n";
    }

    Fake_Clock clock_;
    Log_Capture log_;
    Fault_Target target_;
    const std::string expected_ = expected_bytes(GetParam());
    std::uint64_t runs_ = 0;
    std::uint64_t recovered_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Of, Read_Exhaustion, testing::ValuesIn(cases),
                         [](const auto& instance) { return instance.param.name; });

std::vector<Fault> all_faults(bool retriable)
{
    std::vector<Fault> faults = {
        {Fault_Kind::nothing_done},     {Fault_Kind::part_done, 1},  {Fault_Kind::part_done, 4},
        {Fault_Kind::part_done, 7},     {Fault_Kind::done},          {Fault_Kind::connection_lost},
        {Fault_Kind::reopened_long, 3}, {Fault_Kind::short_read, 1}, {Fault_Kind::short_read, 4},
        {Fault_Kind::unknown_size},     {Fault_Kind::old_size},      {Fault_Kind::slow, 700},
    };
    for (Fault& fault : faults)
        fault.retriable = retriable;
    return faults;
}

TEST_P(Read_Exhaustion, WithoutAFaultTheBytesAreThoseOfTheFile)
{
    const Outcome outcome = run({});
    EXPECT_TRUE(outcome.all_succeeded) << outcome.error;
    check(outcome, {});
    EXPECT_EQ(clock_.time.count(), 0);
}

TEST_P(Read_Exhaustion, OneOrTwoRetriableFaultsAreSurvivedUnlessTheyHitASeek)
{
    const std::uint64_t operations = run({}).operations;
    const std::uint64_t most_of_a_recovery = 4;
    for (std::uint64_t first = 0; first < operations; ++first) {
        for (std::uint64_t second = first; second < operations + most_of_a_recovery; ++second) {
            for (const Fault& one : all_faults(true)) {
                for (const Fault& other : all_faults(true)) {
                    Faults faults = {{second, other}};
                    faults[first] = one;
                    const Outcome outcome = run(faults);
                    check(outcome, faults);
                    EXPECT_TRUE(outcome.all_succeeded || outcome.seek_failed)
                        << describe(faults) << ": " << outcome.error;
                    if (HasFailure())
                        return;
                    if (first == second)
                        break;
                }
            }
        }
    }
    EXPECT_GT(recovered_, runs_ / 3);
    print_counts();
}

TEST_P(Read_Exhaustion, AFaultThatIsNotRetriableIsReportedAlsoInARetry)
{
    const std::uint64_t operations = run({}).operations;
    for (std::uint64_t index = 0; index < operations; ++index) {
        for (const Fault& fault : all_faults(false)) {
            const bool fails = fault.kind < Fault_Kind::short_read;
            const Faults alone = {{index, fault}};
            const Outcome outcome = run(alone);
            check(outcome, alone);
            // A failed connect is retried whatever the failure, a failed close is nothing that the
            // reader has to know.
            const bool hidden = index == 0 || index == operations - 1;
            if (fails && !hidden) {
                EXPECT_FALSE(outcome.all_succeeded) << describe(alone);
            }
            for (std::uint64_t before = 0; before < index; ++before) {
                const Faults pair = {{before, {Fault_Kind::connection_lost}}, {index, fault}};
                check(run(pair), pair);
            }
            if (HasFailure())
                return;
        }
    }
    print_counts();
}

} // namespace
