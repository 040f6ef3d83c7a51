#pragma once

#include "client_io/pipe_io.h"
#include "tests/fuzz/bytes_io.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

/// What the read path of a transform makes of a damaged file, checked in ways that hold for every
/// input. Ends the process when one does not.
class Read_Both_Ways
{
public:
    using Make = std::function<std::unique_ptr<Client_IO_Base>(std::unique_ptr<Client_IO_Base>)>;

    explicit Read_Both_Ways(Make make) : make_(std::move(make)) {}

    /// The first byte of the input chooses lengths, the rest is the file.
    void operator()(const std::uint8_t* data, std::size_t size) const
    {
        if (size == 0)
            return;
        const std::size_t piece = 1 + std::size_t{data[0]} * data[0];
        const Outcome copied = copying(data + 1, size - 1, piece);
        const Outcome lent = zero_copy(data + 1, size - 1, piece);
        expect(copied.failed == lent.failed, "both forms of reading fail or neither does");
        if (!copied.failed)
            expect(copied.bytes == lent.bytes, "both forms of reading give the same bytes");
    }

private:
    /// Enough to go through many blocks, little enough for a bomb to end soon.
    static constexpr std::size_t most_bytes = 1U << 20U;

    struct Outcome
    {
        std::string bytes;
        bool failed = false;
    };

    static void expect(bool holds, const char* what)
    {
        if (holds)
            return;
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }

    std::unique_ptr<Client_IO_Base> opened(const std::uint8_t* data, std::size_t size,
                                           std::size_t piece) const
    {
        auto io = make_(std::make_unique<Bytes_IO>(data, size, piece));
        expect(io->open("file", Client_IO_Base::mode_read, 0, 0), "opening succeeds");
        return io;
    }

    Outcome copying(const std::uint8_t* data, std::size_t size, std::size_t piece) const
    {
        const auto io = opened(data, size, piece);
        Outcome outcome;
        // Of its exact size, so that a sanitizer sees writes behind it.
        std::vector<char> buffer(piece);
        while (outcome.bytes.size() < most_bytes) {
            const std::int64_t n = io->read(buffer.data(), buffer.size());
            outcome.failed = n < 0;
            if (n <= 0) {
                expect(n >= 0 || !io->error().empty(), "a failure has a text");
                expect(io->read(buffer.data(), buffer.size()) == n, "an end or a failure stays");
                break;
            }
            expect(static_cast<std::size_t>(n) <= buffer.size(), "no more bytes than asked for");
            outcome.bytes.append(buffer.data(), static_cast<std::size_t>(n));
        }
        cut(outcome);
        return outcome;
    }

    Outcome zero_copy(const std::uint8_t* data, std::size_t size, std::size_t piece) const
    {
        const auto io = opened(data, size, piece);
        Outcome outcome;
        while (outcome.bytes.size() < most_bytes) {
            const void* block = nullptr;
            std::uint64_t n = 0;
            outcome.failed = !io->read(block, n);
            if (outcome.failed || n == 0) {
                expect(io->read(block, n) != outcome.failed, "an end or a failure stays");
                break;
            }
            outcome.bytes.append(static_cast<const char*>(block), n);
        }
        cut(outcome);
        return outcome;
    }

    /// Where the bytes were too many, the two forms stop at different places, perhaps before a
    /// failure.
    static void cut(Outcome& outcome)
    {
        if (outcome.bytes.size() < most_bytes / 2)
            return;
        outcome.bytes.clear();
        outcome.failed = false;
    }

    Make make_;
};
