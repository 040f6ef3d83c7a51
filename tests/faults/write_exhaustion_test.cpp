#include "tests/faults/fault_stack.h"
#include "tests/support/fake_clock.h"
#include "tests/support/log_capture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <set>
#include <vector>

/// For a file written in pieces, every fault at every operation, alone and in pairs: the target
/// ends with exactly what was written, or some operation said that it failed. And what can be
/// recovered is recovered.

namespace
{

constexpr unsigned overwriting = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;

struct Step
{
    enum Kind
    {
        write,
        flush,
        seek,
    };
    Kind kind;
    std::uint64_t n = 0; ///< bytes of a write, offset of a seek
};

struct Write_Case
{
    const char* name;
    unsigned mode;
    std::uint64_t offset;
    std::optional<std::string> before; ///< what the file held
    std::vector<Step> steps;

    unsigned access() const { return mode & Client_IO_Base::mode_access; }
    bool is_random() const { return access() == Client_IO_Base::mode_random_write; }
};

constexpr auto old_contents = "01234567890123456789";

const std::vector<Write_Case> cases = {
    {"New",
     Client_IO_Base::mode_write,
     0,
     {},
     {{Step::write, 5}, {Step::write, 3}, {Step::write, 1}, {Step::write, 7}}},
    {"NewInOnePiece", Client_IO_Base::mode_write, 0, {}, {{Step::write, 8}}},
    {"NewAndEmpty", Client_IO_Base::mode_write, 0, {}, {}},
    {"NewWithFlushes",
     Client_IO_Base::mode_write,
     0,
     {},
     {{Step::write, 4},
      {Step::flush},
      {Step::write, 4},
      {Step::flush},
      {Step::write, 1},
      {Step::flush}}},
    {"Overwritten",
     overwriting,
     0,
     old_contents,
     {{Step::write, 5}, {Step::write, 6}, {Step::flush}, {Step::write, 3}}},
    {"OverwrittenFromAnOffset",
     overwriting,
     4,
     old_contents,
     {{Step::write, 3}, {Step::write, 9}, {Step::flush}, {Step::write, 8}}},
    {"OverwrittenFromItsEnd",
     overwriting,
     20,
     old_contents,
     {{Step::write, 3}, {Step::write, 5}, {Step::flush}}},
    {"Appended",
     Client_IO_Base::mode_append,
     0,
     old_contents,
     {{Step::write, 4}, {Step::write, 5}, {Step::flush}, {Step::write, 2}}},
    {"AppendedToNothing", Client_IO_Base::mode_append, 0, {}, {{Step::write, 4}, {Step::write, 5}}},
    {"Random",
     Client_IO_Base::mode_random_write,
     3,
     old_contents,
     {{Step::write, 5}, {Step::write, 6}, {Step::flush}, {Step::write, 2}}},
    {"RandomBeyondTheOldEnd",
     Client_IO_Base::mode_random_write,
     17,
     old_contents,
     {{Step::write, 2}, {Step::write, 6}, {Step::write, 2}}},
    {"RandomWithSeeks",
     Client_IO_Base::mode_random_write,
     0,
     "0123456789",
     {{Step::write, 4},
      {Step::seek, 8},
      {Step::write, 3},
      {Step::write, 3},
      {Step::seek, 2},
      {Step::write, 3},
      {Step::seek, 20},
      {Step::write, 2}}},
    {"NewWithSeeks",
     Client_IO_Base::mode_write,
     0,
     {},
     {{Step::write, 6},
      {Step::seek, 2},
      {Step::write, 2},
      {Step::seek, 6},
      {Step::write, 4},
      {Step::flush}}},
};

std::ostream& operator<<(std::ostream& out, const Write_Case& write_case)
{
    return out << write_case.name;
}

/// The n-th byte that is written; none of them stands in the old contents.
char byte_number(std::uint64_t n)
{
    return static_cast<char>('A' + n % 58);
}

std::string piece(std::uint64_t first, std::uint64_t size)
{
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return byte_number(first++); });
    return bytes;
}

/// What the file shall hold.
struct Model
{
    explicit Model(const Write_Case& write_case)
    {
        const bool begins_again =
            write_case.access() == Client_IO_Base::mode_write && write_case.offset == 0;
        bytes = begins_again ? "" : write_case.before.value_or("");
        std::uint64_t at =
            write_case.access() == Client_IO_Base::mode_append ? bytes.size() : write_case.offset;
        std::uint64_t count = 0;
        for (const Step& step : write_case.steps) {
            if (step.kind == Step::seek)
                at = step.n;
            if (step.kind != Step::write)
                continue;
            bytes.resize(std::max<std::uint64_t>(bytes.size(), at + step.n));
            for (const char c : piece(count, step.n)) {
                bytes[at] = c;
                written.insert(at++);
            }
            count += step.n;
        }
    }

    std::string bytes;
    std::set<std::uint64_t> written;
};

using Faults = std::map<std::uint64_t, Fault>;

struct Outcome
{
    bool all_succeeded = false;
    std::string contents;
    std::vector<Fault_Operation> operations; ///< of the layer below, in order
    std::uint64_t failures = 0;              ///< that were injected
    std::optional<Step::Kind> failed;        ///< the step, if it was one
    std::string error;
    Memory_IO::Violations violations;
    std::uint64_t first_attempt = 0; ///< index of the caller's present operation in the layer below
};

/// The same caller every time: stops at the first operation that fails.
bool write_file(const Write_Case& write_case, Client_IO_Base& io, Outcome& outcome)
{
    const auto begin = [&] { outcome.first_attempt = outcome.operations.size(); };
    begin();
    if (!io.open(Fault_Target::path, write_case.mode, write_case.offset, 0))
        return false;
    std::uint64_t count = 0;
    for (const Step& step : write_case.steps) {
        bool ok = false;
        begin();
        switch (step.kind) {
        case Step::write:
            ok = io.write(piece(count, step.n).data(), step.n);
            count += step.n;
            break;
        case Step::flush:
            ok = io.flush();
            break;
        case Step::seek:
            ok = io.seek(step.n, 0);
            break;
        }
        if (!ok) {
            outcome.failed = step.kind;
            return false;
        }
    }
    begin();
    return io.close();
}

class Write_Exhaustion : public testing::TestWithParam<Write_Case>
{
protected:
    Outcome run(std::uint64_t buffer_size, const Faults& faults)
    {
        ++runs_;
        log_.clear();
        Outcome outcome;
        Fault_Target target;
        if (GetParam().before)
            target.store(*GetParam().before);
        const auto plan = [&](const Fault_Point& point) -> std::optional<Fault> {
            outcome.operations.push_back(point.operation);
            const auto found = faults.find(point.index);
            if (found == faults.end())
                return std::nullopt;
            // Foreign bytes within what is yet to be sent look like its beginning; a test of its
            // own shows that. Here they stand behind everything that was sent.
            if (found->second.kind == Fault_Kind::reopened_long &&
                point.index != outcome.first_attempt)
                return std::nullopt;
            return found->second;
        };
        Fault_Stack stack(target, plan, buffer_size);
        outcome.all_succeeded = stack.connect() && write_file(GetParam(), *stack.io, outcome);
        outcome.error = stack.io->error();
        outcome.failures = stack.faults->failures();
        if (stack.io->is_open())
            stack.io->close();
        outcome.contents = target.contents();
        outcome.violations = *stack.violations;
        return outcome;
    }

    /// What holds whatever happens.
    void check(const Outcome& outcome, const Faults& faults, std::uint64_t buffer_size)
    {
        bool right = true;
        if (outcome.all_succeeded)
            right = has_foreign_bytes(faults) && GetParam().is_random()
                        ? holds_what_was_written(outcome.contents)
                        : outcome.contents == model_.bytes;
        EXPECT_TRUE(right) << describe(faults, buffer_size) << "\ntarget " << outcome.contents
                           << "\nmodel  " << model_.bytes;
        EXPECT_TRUE(outcome.all_succeeded || !outcome.error.empty())
            << describe(faults, buffer_size);
        EXPECT_TRUE(outcome.violations.empty())
            << describe(faults, buffer_size) << ": " << outcome.violations.front();
        recovered_ += outcome.all_succeeded && outcome.failures > 0 ? 1 : 0;
    }

    static bool has_foreign_bytes(const Faults& faults)
    {
        return std::any_of(faults.begin(), faults.end(), [](const auto& fault) {
            return fault.second.kind == Fault_Kind::reopened_long;
        });
    }

    /// In random-write mode what stands outside the writes is somebody else's.
    bool holds_what_was_written(const std::string& contents) const
    {
        if (contents.size() < model_.bytes.size())
            return false;
        for (std::uint64_t at = 0; at < contents.size(); ++at) {
            const bool as_model = at < model_.bytes.size() && contents[at] == model_.bytes[at];
            if (!as_model && (model_.written.contains(at) || contents[at] != '#'))
                return false;
        }
        return true;
    }

    static std::string describe(const Faults& faults, std::uint64_t buffer_size)
    {
        std::ostringstream out;
        out << GetParam().name << ", buffer " << buffer_size;
        for (const auto& [index, fault] : faults)
            out << ", operation " << index << ": " << fault;
        return out.str();
    }

    static std::vector<std::uint64_t> buffer_sizes()
    {
        std::set<std::uint64_t> sizes = {0, 1, 3, 7};
        std::uint64_t total = 0;
        for (const Step& step : GetParam().steps)
            total += step.kind == Step::write ? step.n : 0;
        if (!GetParam().steps.empty())
            sizes.insert(GetParam().steps.front().n);
        sizes.insert(everything);
        sizes.insert(total);
        return {sizes.begin(), sizes.end()};
    }

    /// Whether one fault has to be survived; nothing where either is right.
    static std::optional<bool> recoverable(std::uint64_t index, const Fault& fault,
                                           std::uint64_t buffer_size);

    /// Bytes that a lost connection can at most take away of any of the cases.
    static constexpr std::uint64_t everything = 100;

    Fake_Clock clock_;
    Log_Capture log_;
    Model model_{GetParam()};
    std::uint64_t runs_ = 0;
    std::uint64_t recovered_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Of, Write_Exhaustion, testing::ValuesIn(cases),
                         [](const auto& instance) { return instance.param.name; });

std::vector<Fault> all_faults()
{
    std::vector<Fault> faults = {{Fault_Kind::nothing_done},     {Fault_Kind::done},
                                 {Fault_Kind::unknown_size},     {Fault_Kind::old_size},
                                 {Fault_Kind::slow, 700},        {Fault_Kind::part_done, 0},
                                 {Fault_Kind::part_done, 1},     {Fault_Kind::part_done, 2},
                                 {Fault_Kind::part_done, 4},     {Fault_Kind::part_done, 6},
                                 {Fault_Kind::reopened_long, 1}, {Fault_Kind::reopened_long, 2},
                                 {Fault_Kind::reopened_long, 5}, {Fault_Kind::reopened_long, 100}};
    for (const unsigned lost : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 12U, 15U, 16U, 100U})
        faults.push_back({Fault_Kind::connection_lost, lost});
    const std::size_t count = faults.size();
    for (std::size_t i = 0; i < count; ++i) {
        faults.push_back(faults[i]);
        faults.back().retriable = false;
    }
    return faults;
}

bool fails_the_operation(const Fault& fault)
{
    return fault.kind < Fault_Kind::short_read;
}

std::optional<bool> Write_Exhaustion::recoverable(std::uint64_t index, const Fault& fault,
                                                  std::uint64_t buffer_size)
{
    const Write_Case& write_case = GetParam();
    const bool replacing = write_case.mode == overwriting && write_case.offset == 0;
    if (!fails_the_operation(fault) || index == 0) // connecting is retried whatever the failure
        return true;
    if (!fault.retriable)
        return false;
    if (index == 1) {
        if (fault.kind != Fault_Kind::done && fault.kind != Fault_Kind::reopened_long)
            return true;
        if (write_case.mode == Client_IO_Base::mode_write)
            return false; // finds its own file in the way
        return fault.kind == Fault_Kind::done || replacing;
    }

    bool sized = !write_case.is_random() &&
                 (write_case.offset == 0 || write_case.offset == write_case.before->size());
    std::uint64_t acknowledged = 0; // since the open or the last seek
    const std::uint64_t step_index = index - 2;
    for (std::uint64_t i = 0; i < step_index; ++i) {
        const Step& step = write_case.steps[i];
        if (step.kind == Step::write)
            acknowledged += step.n;
        if (step.kind == Step::seek) {
            acknowledged = 0;
            sized = false;
        }
    }
    const bool is_close = step_index == write_case.steps.size();
    if (!is_close && write_case.steps[step_index].kind == Step::seek)
        return false; // a seek is not retried
    const bool is_write = !is_close && write_case.steps[step_index].kind == Step::write;

    if (fault.kind == Fault_Kind::reopened_long && !write_case.is_random())
        return false;
    if (!sized)
        return acknowledged <= buffer_size;
    if (fault.kind != Fault_Kind::connection_lost)
        return true;
    const std::uint64_t sent = acknowledged + (is_write ? write_case.steps[step_index].n : 0);
    const std::uint64_t arrived = sent - std::min(fault.amount, sent);
    return acknowledged - std::min(acknowledged, arrived) <= std::min(buffer_size, acknowledged);
}

/// Foreign bytes that stood there before an open succeeded are what is opened.
bool changes_the_old_contents(std::uint64_t index, const Fault& fault, const Write_Case& write_case)
{
    return index == 1 && fault.kind == Fault_Kind::reopened_long &&
           !(write_case.mode == overwriting && write_case.offset == 0);
}

TEST_P(Write_Exhaustion, WithoutAFaultTheTargetIsTheModelAndNothingIsSentTwice)
{
    for (const std::uint64_t buffer_size : buffer_sizes()) {
        const Outcome outcome = run(buffer_size, {});
        EXPECT_TRUE(outcome.all_succeeded);
        check(outcome, {}, buffer_size);
        EXPECT_EQ(outcome.operations.size(), GetParam().steps.size() + 3);
    }
    EXPECT_EQ(clock_.time.count(), 0);
}

TEST_P(Write_Exhaustion, OneFaultIsSurvivedWhereverItCanBeAndReportedElsewhere)
{
    const std::uint64_t operations = run(0, {}).operations.size();
    for (const std::uint64_t buffer_size : buffer_sizes()) {
        for (std::uint64_t index = 0; index < operations; ++index) {
            for (const Fault& fault : all_faults()) {
                if (changes_the_old_contents(index, fault, GetParam()))
                    continue;
                const Faults faults = {{index, fault}};
                const Outcome outcome = run(buffer_size, faults);
                check(outcome, faults, buffer_size);
                const std::optional<bool> expected = recoverable(index, fault, buffer_size);
                if (expected) {
                    EXPECT_EQ(outcome.all_succeeded, *expected)
                        << describe(faults, buffer_size) << ": " << outcome.error;
                }
                if (HasFailure())
                    return;
            }
        }
    }
    RecordProperty("scenarios", std::to_string(runs_));
    std::cout << runs_ << " scenarios, " << recovered_ << " recovered\n";
}

/// Every one of these leaves no file open, so that the next pass of the retry is made.
bool leaves_no_file_open(const Fault& fault, Fault_Operation operation)
{
    return fault.kind == Fault_Kind::connection_lost ||
           (fault.kind == Fault_Kind::nothing_done && fault.retriable &&
            (operation == Fault_Operation::reconnect || operation == Fault_Operation::open));
}

TEST_P(Write_Exhaustion, TwoFaultsLoseNothingInSilenceAndLostConnectionsAreSurvived)
{
    const std::vector<Fault> kinds = {
        {Fault_Kind::nothing_done},       {Fault_Kind::nothing_done, 0, false},
        {Fault_Kind::part_done, 1},       {Fault_Kind::done},
        {Fault_Kind::connection_lost, 0}, {Fault_Kind::connection_lost, 2},
        {Fault_Kind::connection_lost, 6}, {Fault_Kind::connection_lost, everything},
        {Fault_Kind::reopened_long, 2},   {Fault_Kind::unknown_size},
        {Fault_Kind::old_size},
    };
    const std::uint64_t most_of_a_recovery = 6;
    for (const std::uint64_t buffer_size : buffer_sizes()) {
        const std::uint64_t operations = run(0, {}).operations.size();
        for (std::uint64_t first = 0; first < operations; ++first) {
            for (std::uint64_t second = first + 1; second < operations + most_of_a_recovery;
                 ++second) {
                for (const Fault& one : kinds) {
                    for (const Fault& other : kinds) {
                        const Faults faults = {{first, one}, {second, other}};
                        if (changes_the_old_contents(first, one, GetParam()) ||
                            (first <= 1 && other.kind == Fault_Kind::reopened_long))
                            continue;
                        const Outcome outcome = run(buffer_size, faults);
                        check(outcome, faults, buffer_size);
                        if (buffer_size == everything && outcome.operations.size() > second &&
                            one.kind == Fault_Kind::connection_lost &&
                            leaves_no_file_open(other, outcome.operations[second]) &&
                            outcome.failed != Step::seek)
                        {
                            EXPECT_TRUE(outcome.all_succeeded)
                                << describe(faults, buffer_size) << ": " << outcome.error;
                        }
                        if (HasFailure())
                            return;
                    }
                }
            }
        }
    }
    EXPECT_GT(recovered_, runs_ / 4);
    RecordProperty("scenarios", std::to_string(runs_));
    std::cout << runs_ << " scenarios, " << recovered_ << " recovered\n";
}

} // namespace
