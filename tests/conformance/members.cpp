#include "client_io/evp_io.h"
#include "client_io/lzop_io.h"
#include "client_io/rate_control_io.h"
#include "client_io/resumption_io.h"
#include "client_io/zstd_io.h"
#include "tests/conformance/names.h"
#include "tests/conformance/targets.h"

#include <utility>

namespace
{

using Layer = Stack::Layer;
using Options = Client_IO_Base::Options;
using Deviations = std::set<Deviation>;

constexpr std::uint64_t buffer_size = 1048576;         // more than any test writes into one file
constexpr std::uint64_t far_above = 1'000'000'000'000; // bytes per second
constexpr int level = 1;
const std::string key = "0123456789abcdefghijklmnopqrstuv";
const std::string iv = "an initial value";

// --- layers

Layer bare(Layer layer)
{
    return layer;
}

Layer through_pipe(Layer layer)
{
    return std::make_unique<Pipe_IO>(std::move(layer));
}

Layer through_faults(Layer layer)
{
    return std::make_unique<Fault_IO>(std::move(layer));
}

Layer through_resumption(Layer layer)
{
    return std::make_unique<Resumption_IO>(std::move(layer), buffer_size);
}

Layer through_rate_control(Layer layer)
{
    return std::make_unique<Rate_Control_IO>(far_above, std::vector<Rate_Control_Entry>(),
                                             std::move(layer));
}

Layer encrypted(Layer layer, const char* cipher)
{
    const auto bytes = [](const std::string& text) {
        return reinterpret_cast<const unsigned char*>(text.data());
    };
    return std::make_unique<EVP_IO>(std::move(layer), cipher, bytes(key),
                                    static_cast<std::uint32_t>(key.size()), bytes(iv),
                                    static_cast<std::uint32_t>(iv.size()));
}

Layer through_cbc(Layer layer)
{
    return encrypted(std::move(layer), "aes-256-cbc");
}

Layer through_ctr(Layer layer)
{
    return encrypted(std::move(layer), "aes-256-ctr");
}

Layer through_zstd(Layer layer)
{
    return std::make_unique<ZSTD_IO>(std::move(layer), level);
}

Layer through_lzop(Layer layer)
{
    return std::make_unique<Lzop_IO>(std::move(layer), level);
}

Layer through_zstd_stack(Layer layer)
{
    return through_zstd(through_cbc(through_rate_control(through_resumption(std::move(layer)))));
}

Layer through_lzop_stack(Layer layer)
{
    return through_lzop(through_cbc(through_rate_control(through_resumption(std::move(layer)))));
}

// --- options

Options without_retries()
{
    Options options;
    options.max_retry = 0;
    return options;
}

Options with_retries()
{
    Options options;
    options.resumption_buffer_size = buffer_size;
    return options;
}

/// What makes the facade put every layer on top.
Options full_stack(Compression_Method compression)
{
    Options options = with_retries();
    options.max_bytes_per_second = far_above;
    options.compression = compression;
    options.compression_level = level;
    EXPECT_TRUE(options.set_encryption_from_binary(ENCRYPTION_AES_256_CBC, key, iv));
    return options;
}

// --- deviations

const Deviations of_memory = {Deviation::names_have_no_limit};

Deviations deviations_of_files()
{
    Deviations result = {
        Deviation::append_size_counts_from_open, Deviation::disconnect_forgets_target,
        Deviation::disconnect_leaves_file_open,  Deviation::seek_length_limits_reading,
        Deviation::closing_nothing_succeeds,     Deviation::size_without_file_is_known,
    };
    if (file_names_ignore_case)
        result.insert(Deviation::names_ignore_case);
    return result;
}

const Deviations of_files = deviations_of_files();

const Deviations of_resumption = {
    Deviation::closing_nothing_succeeds, // a failed close of what is not written is success
    Deviation::seek_length_limits_reading,
};

const Deviations of_compression = {
    Deviation::one_stream,
    Deviation::stored_size_differs,
    Deviation::disconnect_breaks_open_file,
};

const Deviations of_stream_ciphers = {
    Deviation::one_stream,
    Deviation::no_append_to_contents,
};

/// Without a connection nothing is open, whatever the last file was.
const Deviations of_http = {
    Deviation::closing_nothing_succeeds,
    Deviation::size_without_file_is_known,
    Deviation::seek_length_limits_reading,
    Deviation::disconnect_leaves_bytes_on_their_way,
    Deviation::refusals_show_at_close,
    Deviation::unknown_modes_write,
    Deviation::reading_starts_within_the_file,
    Deviation::names_are_listed_as_utf8,
    Deviation::numbers_of_statuses,
};

Deviations both(Deviations one, const Deviations& other)
{
    one.insert(other.begin(), other.end());
    // Such a file can still be closed, and then its stream is whole.
    if (one.contains(Deviation::disconnect_leaves_file_open))
        one.erase(Deviation::disconnect_breaks_open_file);
    // An offset then counts in what the stream holds, which is read from its start.
    if (one.contains(Deviation::one_stream))
        one.erase(Deviation::reading_starts_within_the_file);
    return one;
}

Deviations deviations_of_dav()
{
    Deviations result = both(of_http, {
                                          Deviation::whole_files_only,
                                          Deviation::lists_nothing,
                                          Deviation::truncates_nothing,
                                          Deviation::removes_no_directories,
                                          Deviation::moves_files_only,
                                      });
    result.erase(Deviation::names_are_listed_as_utf8);
    return result;
}

const Deviations of_dav = deviations_of_dav();

const Deviations of_block_ciphers = both(of_compression, of_stream_ciphers);
const Deviations of_full_stack = both(of_block_ciphers, of_resumption);

/// The facade refuses to close nothing, knows no size without a file and closes files itself.
Deviations beneath_facade(Deviations deviations)
{
    for (const Deviation absent :
         {Deviation::closing_nothing_succeeds, Deviation::size_without_file_is_known,
          Deviation::disconnect_leaves_file_open, Deviation::disconnect_breaks_open_file,
          Deviation::disconnect_leaves_bytes_on_their_way})
        deviations.erase(absent);
    return deviations;
}

// --- members

/// @param faulty  the storage is
Member layer_member(const std::string& name, const Make_Target& make_target,
                    const Deviations& deviations, bool faulty = false)
{
    return {name,
            make_target,
            deviations,
            false,
            faulty,
            "Operation not permitted",
            "Operation not permitted"};
}

Member facade_member(const std::string& name, const Make_Target& make_target,
                     const Deviations& deviations, bool faulty = false)
{
    return {name,
            make_target,
            beneath_facade(deviations),
            true,
            faulty,
            "Operation not permitted in write mode",
            "Operation not permitted in read mode"};
}

Member dav_member(const std::string& name, const std::string& program, const Deviations& deviations)
{
    Member member = layer_member(name, dav_target(program), deviations);
    member.unsupported = "Not supported by the dialect webdav";
    return member;
}

/// Layers that are put over every kind of storage.
struct Layers
{
    std::string name;
    Stack::Wrap wrap;
    Deviations deviations;
};

std::vector<Layers> layers()
{
    std::vector<Layers> result = {
        {"ThroughPipe", through_pipe, {}},
        {"ThroughFaultsThatDoNotHappen", through_faults, {}},
        // The library puts no retries over local files, which never ask for one, and whose size in
        // append mode would tell them nothing. Where nothing fails the layer holds there too.
        {"ThroughResumption", through_resumption, of_resumption},
        {"ThroughRateControl", through_rate_control, {}},
        {"ThroughBlockCipher", through_cbc, of_block_ciphers},
        {"ThroughStreamCipher", through_ctr, of_stream_ciphers},
        {"ThroughZSTD", through_zstd, of_compression},
        {"ThroughZSTDStack", through_zstd_stack, of_full_stack},
    };
    if (lzop_available()) {
        result.push_back({"ThroughLzop", through_lzop, of_compression});
        result.push_back({"ThroughLzopStack", through_lzop_stack, of_full_stack});
    }
    return result;
}

/// Options from which the facade builds its stack, as far as this build can.
std::vector<std::pair<std::string, Options>> full_stacks()
{
    std::vector<std::pair<std::string, Options>> result = {
        {"WithZSTDStack", full_stack(COMPRESSION_ZSTD)}};
    if (lzop_available())
        result.emplace_back("WithLzopStack", full_stack(COMPRESSION_LZOP));
    return result;
}

std::vector<Member> make_members()
{
    std::vector<Member> result = {
        layer_member("Memory", memory_target({bare, {}}), of_memory),
        layer_member("File", file_target({bare, {}}), of_files),
        facade_member("MemoryBeneathFacade", memory_target({bare, without_retries(), true}),
                      of_memory),
        facade_member("FileThroughPipeBeneathFacade",
                      file_target({through_pipe, without_retries(), true}), of_files),
        facade_member("FileURI", file_uri_target({}), of_files),
        layer_member("FaultyMemoryThroughResumption",
                     faulty_memory_target({through_resumption, with_retries()}),
                     both(of_memory, of_resumption), true),
        facade_member("FaultyMemoryBeneathFacade",
                      faulty_memory_target({bare, with_retries(), true}),
                      both(of_memory, of_resumption), true),
    };
    if (storage_server_runs_here) {
        result.push_back(dav_member("Nginx", "nginx", of_dav));
        result.push_back(
            dav_member("Apache", "apache", both(of_dav, {Deviation::makes_no_parents})));
        result.push_back(layer_member("HTTP", http_target({bare, {}}), of_http));
        result.push_back(
            facade_member("HTTPURI", http_uri_target({}), both(of_http, of_resumption)));
        result.push_back(
            facade_member("HTTPURIWithoutRetries", http_uri_target(without_retries()), of_http));
        for (const auto& [name, options] : full_stacks())
            result.push_back(facade_member("HTTPURI" + name, http_uri_target(options),
                                           both(of_http, of_full_stack)));
    }
    for (const Layers& above : layers()) {
        const Stack stack = {above.wrap, with_retries()};
        result.push_back(layer_member("Memory" + above.name, memory_target(stack),
                                      both(of_memory, above.deviations)));
        result.push_back(layer_member("File" + above.name, file_target(stack),
                                      both(of_files, above.deviations)));
    }
    for (const auto& [name, options] : full_stacks()) {
        const Stack stack = {bare, options, true};
        const Deviations over_memory = both(of_memory, of_full_stack);
        const Deviations over_files = both(of_files, of_full_stack);
        result.push_back(
            facade_member("MemoryBeneathFacade" + name, memory_target(stack), over_memory));
        result.push_back(facade_member("FaultyMemoryBeneathFacade" + name,
                                       faulty_memory_target(stack), over_memory, true));
        result.push_back(facade_member("FileBeneathFacade" + name, file_target(stack), over_files));
        result.push_back(facade_member("FileURI" + name, file_uri_target(options), over_files));
    }
    return result;
}

} // namespace

const std::vector<Member>& members()
{
    static const std::vector<Member> all = make_members();
    return all;
}
