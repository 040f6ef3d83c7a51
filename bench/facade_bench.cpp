#include "bench/scratch.h"
#include "client_io/client_io.h"

#include <benchmark/benchmark.h>
#include <vector>

namespace
{

// Below the window from which the local backend takes data out of the page cache, so that every
// read finds it there.
constexpr std::uint64_t file_size = 16U << 20U;

constexpr Client_IO_Base::Open_Mode read_mode = Client_IO_Base::mode_read;
constexpr unsigned replace_mode = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;

std::vector<char> piece_of(const benchmark::State& state)
{
    return std::vector<char>(static_cast<std::size_t>(state.range(0)), 'x');
}

/// Copying reads of range(0) bytes through the facade. Items are calls.
void facade_read(benchmark::State& state)
{
    const Scratch_Directory scratch;
    scratch.make_file("data", file_size);
    std::vector<char> piece = piece_of(state);
    Client_IO io(scratch.uri().c_str(), {});
    bool ok = io.open("data", read_mode, 0, 0);
    std::uint64_t left = file_size;
    for (auto _ : state) {
        if (left < piece.size()) {
            ok = ok && io.seek(0, 0);
            left = file_size;
        }
        ok = ok && io.read(piece.data(), piece.size()) == state.range(0);
        left -= piece.size();
        if (!ok) {
            state.SkipWithError(io.error().c_str());
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(facade_read)->Arg(16)->Arg(512)->Arg(4 << 10)->Arg(64 << 10);

/// Reads that hand out the backend's own buffer. Items are calls.
void facade_read_without_copy(benchmark::State& state)
{
    const Scratch_Directory scratch;
    scratch.make_file("data", file_size);
    Client_IO io(scratch.uri().c_str(), {});
    bool ok = io.open("data", read_mode, 0, 0);
    std::int64_t total = 0;
    for (auto _ : state) {
        const void* data = nullptr;
        std::uint64_t size = 0;
        ok = ok && io.read(data, size);
        if (ok && size == 0)
            ok = io.seek(0, 0) && io.read(data, size) && size != 0;
        if (!ok) {
            state.SkipWithError("nothing was read");
            break;
        }
        total += static_cast<std::int64_t>(size);
    }
    state.SetBytesProcessed(total);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(facade_read_without_copy);

/// Writes of range(0) bytes through the facade; the file starts again when it is full.
void facade_write(benchmark::State& state)
{
    const Scratch_Directory scratch;
    const std::vector<char> piece = piece_of(state);
    Client_IO io(scratch.uri().c_str(), {});
    bool ok = io.open("data", replace_mode, 0, 0);
    std::uint64_t written = 0;
    for (auto _ : state) {
        if (written >= file_size) {
            ok = ok && io.seek(0, 0);
            written = 0;
        }
        ok = ok && io.write(piece.data(), piece.size());
        written += piece.size();
        if (!ok) {
            state.SkipWithError(io.error().c_str());
            break;
        }
    }
    if (ok && !io.close())
        state.SkipWithError(io.error().c_str());
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(facade_write)->Arg(16)->Arg(512)->Arg(4 << 10)->Arg(64 << 10);

/// What one small file costs: open, one write or read, close. Items are files, which are removed
/// again at once: some file systems wait for the disk when a file is replaced by truncating it.
void facade_put_small_file(benchmark::State& state)
{
    const Scratch_Directory scratch;
    const std::string content(static_cast<std::size_t>(state.range(0)), 'x');
    Client_IO io(scratch.uri().c_str(), {});
    for (auto _ : state) {
        if (!io.put_contents("data", content, false) || !io.remove("data")) {
            state.SkipWithError(io.error().c_str());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(facade_put_small_file)->Arg(0)->Arg(8 << 10);

void facade_get_small_file(benchmark::State& state)
{
    const Scratch_Directory scratch;
    scratch.make_file("data", static_cast<std::uint64_t>(state.range(0)));
    Client_IO io(scratch.uri().c_str(), {});
    std::string content;
    for (auto _ : state) {
        if (!io.get_contents("data", content)) {
            state.SkipWithError(io.error().c_str());
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(facade_get_small_file)->Arg(0)->Arg(8 << 10);

} // namespace
