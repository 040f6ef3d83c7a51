#include "bench/scratch.h"
#include "client_io/client_io.h"
#include "platform/runtime/directory_reader.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr int entry_count = 10'000;

void make_entries(const Scratch_Directory& scratch)
{
    for (int i = 0; i < entry_count; ++i)
        scratch.make_file("entry-" + std::to_string(i) + ".dat", 0);
}

/// Every entry of a directory of empty files. Items are entries.
void directory_reader(benchmark::State& state)
{
    const Scratch_Directory scratch;
    make_entries(scratch);
    const std::string path = scratch.path("");
    Directory_Reader reader;
    Directory_Reader::Entry entry;
    for (auto _ : state) {
        int count = 0;
        int result = reader.open(path.c_str(), false, 0) ? 1 : -1;
        while (result > 0 && (result = reader.read(entry)) > 0)
            ++count;
        if (result < 0 || count != entry_count) {
            state.SkipWithError("the directory was not read");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * entry_count);
}
BENCHMARK(directory_reader);

/// The same as a listing through the facade, which keeps all entries.
void facade_get_dir(benchmark::State& state)
{
    const Scratch_Directory scratch;
    make_entries(scratch);
    Client_IO io(scratch.uri().c_str(), {});
    for (auto _ : state) {
        std::vector<Client_IO_Base::Directory_Entry> entries;
        if (!io.get_dir("", entries) || entries.size() != entry_count) {
            state.SkipWithError("the directory was not listed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * entry_count);
}
BENCHMARK(facade_get_dir);

} // namespace
