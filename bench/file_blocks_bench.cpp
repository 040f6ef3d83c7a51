#include "bench/scratch.h"
#include "platform/runtime/file_system.h"
#include "platform/runtime/fixed_block_file.h"

#include <ace/OS_NS_unistd.h>

#include <benchmark/benchmark.h>
#include <vector>

namespace
{

constexpr std::uint64_t file_size = 64U << 20U;

File_Options with_block(const benchmark::State& state)
{
    File_Options options;
    options.block_size = static_cast<std::uint64_t>(state.range(0));
    return options;
}

/// A file in the page cache, read once an iteration in blocks of range(0) bytes.
void reader_blocks(benchmark::State& state)
{
    const Scratch_Directory scratch;
    scratch.make_file("data", file_size);
    const std::string path = scratch.path("data");
    File_Reader reader;
    for (auto _ : state) {
        std::uint64_t total = 0;
        char* data = nullptr;
        std::int64_t size = 0;
        bool ok = reader.open(path.c_str(), 0, with_block(state), file_system::share_all, false);
        while (ok && (ok = reader.read(data, size)) && size > 0)
            total += static_cast<std::uint64_t>(size);
        if (!ok || total != file_size) {
            state.SkipWithError("the file was not read");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(file_size));
}
BENCHMARK(reader_blocks)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

/// A new file an iteration, written in calls of `piece` bytes and removed before the system stores
/// it, so that the disk has no part in it.
void write_file(benchmark::State& state, const File_Options& options, std::uint64_t piece,
                bool buffered)
{
    const Scratch_Directory scratch;
    const std::string path = scratch.path("data");
    const std::vector<char> data(piece, 'x');
    constexpr std::uint64_t written = 16U << 20U;
    File_Writer writer;
    for (auto _ : state) {
        bool ok =
            writer.open(path.c_str(), O_CREAT | O_EXCL, buffered, file_system::share_all, options);
        for (std::uint64_t done = 0; ok && done < written; done += piece)
            ok = writer.write(data.data(), piece, nullptr);
        if (!ok || !writer.close() || ACE_OS::unlink(path.c_str()) != 0) {
            state.SkipWithError("the file was not written");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(written));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(written / piece));
}

void writer_blocks(benchmark::State& state)
{
    write_file(state, with_block(state), static_cast<std::uint64_t>(state.range(0)), true);
}
BENCHMARK(writer_blocks)->Arg(4 << 10)->Arg(64 << 10)->Arg(1 << 20);

/// Small writes: gathered into blocks, and each handed to the system for comparison.
void writer_small_writes(benchmark::State& state)
{
    write_file(state, {}, static_cast<std::uint64_t>(state.range(0)), true);
}
BENCHMARK(writer_small_writes)->Arg(16)->Arg(128)->Arg(1024);

void writer_small_writes_unbuffered(benchmark::State& state)
{
    write_file(state, {}, static_cast<std::uint64_t>(state.range(0)), false);
}
BENCHMARK(writer_small_writes_unbuffered)->Arg(128)->Arg(1024);

} // namespace
