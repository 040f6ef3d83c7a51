#include "platform/json/json_value.h"
#include "platform/runtime/uri.h"

#include <benchmark/benchmark.h>

namespace
{

constexpr const char* options_text = R"({
    "overwrite": true,
    "socket_timeout": 60,
    "max_retry": 600,
    "resumption_buffer_size": 10485760,
    "compression": "zstd",
    "compression_level": 3,
    "encryption": "aes-256-ctr",
    "key": "AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=",
    "iv": "AAECAwQFBgcICQoLDA0ODw==",
    "access_key": "backup",
    "secret_key": "not a secret",
    "rate_control": [
        {"start_time": 28800, "end_time": 64800, "max_bytes_per_second": 10485760}
    ],
    "extra_opts": {"region": "north", "vendor": "any"}
})";

/// Parses a typical text of connection options.
void json_options(benchmark::State& state)
{
    const std::string text = options_text;
    for (auto _ : state) {
        json_spirit::Value value;
        if (!loads_json(text, value)) {
            state.SkipWithError("the text was refused");
            break;
        }
        benchmark::DoNotOptimize(value);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(json_options);

void uri_parse(benchmark::State& state, const char* text)
{
    for (auto _ : state) {
        URI uri;
        if (!URI_Parser::parse(text, uri)) {
            state.SkipWithError("the URI was refused");
            break;
        }
        benchmark::DoNotOptimize(uri);
    }
}
BENCHMARK_CAPTURE(uri_parse, file, "file:///srv/backup/weekly%20sets/2026");
BENCHMARK_CAPTURE(uri_parse, server, "https://storage.example.org:8443/volumes/a");
BENCHMARK_CAPTURE(uri_parse, ipv6, "s3v4s://[2001:db8::17]:9000/bucket/prefix");

} // namespace
