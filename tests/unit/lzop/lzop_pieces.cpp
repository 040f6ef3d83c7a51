#include "tests/unit/lzop/lzop_pieces.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <random>

#include "platform/lzop/lzop.h"

namespace
{

// Room for output when there is no limit: for most tests, everything at once.
std::size_t large_room(std::size_t data_size)
{
    return std::min<std::size_t>(1024 * 1024, 4096 + 16 * data_size);
}

template <typename Operation>
Lzop_Outcome run(Lzop_Stream& stream, const std::string& data, const Lzop_Pieces& in,
                 const Lzop_Pieces& out, bool end_behind, Operation operation)
{
    Lzop_Outcome outcome;
    std::unique_ptr<unsigned char[]> input;
    std::size_t given = 0;
    bool last = false;
    std::unique_ptr<unsigned char[]> room;
    std::size_t room_size = 0;
    stream.avail_in = 0;
    for (;;) {
        if (stream.avail_in == 0 && !last) {
            const std::size_t size = std::min(in(), data.size() - given);
            last = given + size == data.size() && (!end_behind || size == 0);
            input = std::make_unique_for_overwrite<unsigned char[]>(size);
            std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(given), size, input.get());
            given += size;
            stream.next_in = size > 0 ? input.get() : nullptr;
            stream.avail_in = size;
        }
        const std::size_t size = std::min(out(), large_room(data.size()));
        if (size != room_size) {
            room = std::make_unique_for_overwrite<unsigned char[]>(size);
            room_size = size;
        }
        stream.next_out = room.get();
        stream.avail_out = size;
        const std::size_t in_before = stream.avail_in;
        outcome.result = operation(stream, last);
        const std::size_t made = size - stream.avail_out;
        EXPECT_EQ(stream.next_out, room.get() + made);
        outcome.data.append(reinterpret_cast<const char*>(room.get()), made);
        if (outcome.result != LZOP_OK)
            return outcome;
        if (stream.avail_in > 0 && stream.avail_out > 0) {
            ADD_FAILURE() << "stopped with input and room left";
            return outcome;
        }
        if (last && made == 0 && stream.avail_in == in_before) {
            ADD_FAILURE() << "no progress at the end";
            return outcome;
        }
    }
}

} // namespace

Lzop_Pieces lzop_pieces_of(std::size_t size)
{
    return [size] { return size; };
}

Lzop_Outcome lzop_compress_whole(const std::string& data, int level, const Lzop_Pieces& in,
                                 const Lzop_Pieces& out)
{
    Lzop_Stream stream;
    EXPECT_EQ(lzop_compress_init(stream, level, 0), LZOP_OK);
    const Lzop_Outcome outcome = run(stream, data, in, out, true, lzop_compress);
    lzop_end(stream);
    return outcome;
}

Lzop_Outcome lzop_decompress_whole(const std::string& data, const Lzop_Pieces& in,
                                   const Lzop_Pieces& out, bool end_behind)
{
    Lzop_Stream stream;
    EXPECT_EQ(lzop_decompress_init(stream), LZOP_OK);
    const Lzop_Outcome outcome = run(stream, data, in, out, end_behind, lzop_decompress);
    lzop_end(stream);
    return outcome;
}

Lzop_Random::Lzop_Random()
{
    const char* const given = std::getenv("CLIENT_IO_SEED");
    seed_ = given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10))
                             : std::random_device()();
    std::cout << "CLIENT_IO_SEED=" << seed_ << '\n';
    state_ = seed_;
}

std::size_t Lzop_Random::below(std::size_t bound)
{
    // Knuth's linear generator; the upper bits are the random ones.
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<std::size_t>((state_ >> 33) % bound);
}

std::string Lzop_Random::data(std::size_t size)
{
    std::string data;
    data.reserve(size);
    while (data.size() < size) {
        const std::size_t n = std::min(1 + below(2000), size - data.size());
        switch (below(3)) {
        case 0:
            data.append(n, static_cast<char>(below(256)));
            break;
        case 1:
            for (std::size_t i = 0; i < n; ++i)
                data += static_cast<char>(below(256));
            break;
        default:
            if (!data.empty()) {
                const std::size_t from = below(data.size());
                data += data.substr(from, n);
            }
        }
    }
    return data;
}

std::string lzop_text(std::size_t size)
{
    std::string text;
    for (unsigned line = 0; text.size() < size; ++line)
        text += "line " + std::to_string(line * 7919 % 10007) + " of a text that compresses\n";
    text.resize(size);
    return text;
}
