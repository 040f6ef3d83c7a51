#include "client_io/evp_io.h"
#include "client_io/file_io.h"
#include "client_io/lzop_io.h"
#include "client_io/rate_control_io.h"
#include "client_io/resumption_io.h"
#include "client_io/zstd_io.h"

#include <ace/Log_Msg.h>
#include <cstdio>
#include <cstring>
#include <ctime>

// Runs a file through a stack of transforms, memory to memory, and prints what that took:
//
//     transform_rate STACK encode|decode|decode-hollow FILE [PASSES [BLOCK]]
//     transform_rate STACK store FILE DIRECTORY
//
// STACK names the layers from the top, joined by `+`: zstd:LEVEL, lzop:LEVEL, a cipher by its
// OpenSSL name, rate (a limit that is never reached), resume (a buffer of 10 MiB), null (none).
// encode writes FILE through them into nothing; decode reads FILE, which they must have made, into
// nothing. FILE is read in blocks of 256 KiB, as other programs would; with PASSES it is read into
// memory first, which does not count, and taken so many times over in one stream, so that a small
// one stays in the processor's cache. decode-hollow is for ciphers: the lowest layer leaves the
// buffer as it is and never ends, so that only the transform's own work counts, as in
// `openssl speed`. store writes FILE through the layers into a file of DIRECTORY. Prints: bytes of
// plain data, CPU seconds, bytes that the lowest layer saw.

namespace
{

using Layer = std::unique_ptr<Client_IO_Base>;

constexpr std::size_t block_size = 262144;

/// The bytes of a file, from the file or many times over from memory.
class Input
{
public:
    bool open(const char* path, int passes)
    {
        file_.reset(std::fopen(path, "rb"));
        if (!file_ || std::setvbuf(file_.get(), nullptr, _IONBF, 0) != 0)
            return false;
        passes_ = passes;
        if (passes == 0)
            return true;
        std::size_t n = 0;
        do {
            memory_.resize(memory_.size() + block_size);
            n = std::fread(memory_.data() + memory_.size() - block_size, 1, block_size,
                           file_.get());
            memory_.resize(memory_.size() - block_size + n);
        } while (n != 0);
        return !memory_.empty();
    }

    std::uint64_t loaded() const { return memory_.size(); }

    /// Copies, like read(2).
    std::size_t read(void* buf, std::size_t size)
    {
        if (passes_ == 0)
            return std::fread(buf, 1, size, file_.get());
        std::size_t filled = 0;
        for (std::size_t n = 1; n != 0 && filled < size; filled += n) {
            const void* data = nullptr;
            n = lend(data, size - filled);
            std::memcpy(static_cast<char*>(buf) + filled, data, n);
        }
        return filled;
    }

    /// Without copying where the bytes are in memory.
    std::size_t lend(const void*& data, std::size_t most)
    {
        if (passes_ == 0) {
            block_.resize(block_size);
            data = block_.data();
            return read(block_.data(), std::min(most, block_size));
        }
        if (position_ == memory_.size() && pass_ + 1 < passes_) {
            position_ = 0;
            ++pass_;
        }
        const std::size_t n = std::min(most, memory_.size() - position_);
        data = memory_.data() + position_;
        position_ += n;
        return n;
    }

private:
    struct Close
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Close> file_;
    std::vector<char> memory_;
    std::vector<char> block_;
    std::size_t position_ = 0;
    int passes_ = 0; ///< 0: from the file
    int pass_ = 0;
};

/// The lowest layer: reads from an Input, and what is written goes nowhere.
class Input_IO : public Client_IO_Base
{
public:
    Input_IO(Input& input, bool hollow) : input_(input), hollow_(hollow) {}

    using Client_IO_Base::open;

    std::int64_t read(void* buf, std::uint64_t size) override
    {
        const std::uint64_t n = hollow_ ? size : input_.read(buf, size);
        passed += n;
        return static_cast<std::int64_t>(n);
    }
    bool write(const void*, std::uint64_t size) override
    {
        passed += size;
        return true;
    }
    std::uint64_t size() const override { return 0; }
    bool connect(const URI&, const Options&) override { return true; }
    bool reconnect() override { return true; }
    bool is_connected() const override { return true; }
    void disconnect() override {}
    bool open(const char*, unsigned, std::uint64_t, std::uint64_t) override { return true; }
    bool is_open() const override { return true; }
    bool close() override { return true; }
    bool read(const void*& data, std::uint64_t& size) override
    {
        size = input_.lend(data, block_size);
        passed += size;
        return true;
    }
    bool flush() override { return true; }
    std::uint64_t size(const char*) override { return passed; }
    bool get_dir(const char*, std::vector<Directory_Entry>&) override { return false; }
    bool make_dir(const char*, unsigned short) override { return false; }
    bool remove(const char*) override { return false; }

    std::uint64_t passed = 0;

private:
    Input& input_;
    bool hollow_;
};

Layer add_layer(Layer io, const std::string& name)
{
    const std::size_t colon = name.find(':');
    const std::string kind = name.substr(0, colon);
    const int level = colon == std::string::npos ? 1 : std::atoi(name.c_str() + colon + 1);
    if (kind == "null")
        return io;
    if (kind == "zstd")
        return std::make_unique<ZSTD_IO>(std::move(io), level);
    if (kind == "lzop")
        return std::make_unique<Lzop_IO>(std::move(io), level);
    if (kind == "rate")
        return std::make_unique<Rate_Control_IO>(1ULL << 50U, std::vector<Rate_Control_Entry>(),
                                                 std::move(io));
    if (kind == "resume")
        return std::make_unique<Resumption_IO>(std::move(io), 10485760);
    const EVP_CIPHER* cipher = EVP_get_cipherbyname(kind.c_str());
    if (cipher == nullptr)
        return nullptr;
    static constexpr unsigned char zeros[64] = {};
    return std::make_unique<EVP_IO>(std::move(io), kind.c_str(), zeros,
                                    static_cast<std::uint32_t>(EVP_CIPHER_key_length(cipher)),
                                    zeros,
                                    static_cast<std::uint32_t>(EVP_CIPHER_iv_length(cipher)));
}

/// @param stack  layers from the top
Layer make_stack(Layer io, const std::string& stack)
{
    std::size_t end = stack.size();
    while (io) {
        const std::size_t plus = stack.rfind('+', end == 0 ? 0 : end - 1);
        const std::size_t start = plus == std::string::npos ? 0 : plus + 1;
        io = add_layer(std::move(io), stack.substr(start, end - start));
        if (plus == std::string::npos)
            break;
        end = plus;
    }
    return io;
}

double cpu_seconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

bool encode(Client_IO_Base& io, Input& input, std::size_t block, std::uint64_t& bytes)
{
    if (!io.open("file", Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite, 0, 0))
        return false;
    const void* data = nullptr;
    while (const std::size_t n = input.lend(data, block)) {
        if (!io.write(data, n))
            return false;
        bytes += n;
    }
    return io.close();
}

/// @param limit  bytes to read at most, 0 = to the end
bool decode(Client_IO_Base& io, std::size_t block, std::uint64_t limit, std::uint64_t& bytes)
{
    std::vector<char> buffer(block);
    std::int64_t n = io.open("file", Client_IO_Base::mode_read, 0, limit) ? 1 : -1;
    while (n > 0) {
        n = io.read(buffer.data(), buffer.size());
        bytes += n > 0 ? static_cast<std::uint64_t>(n) : 0;
    }
    return n == 0 && io.close();
}

int usage()
{
    std::fprintf(stderr, "usage: transform_rate STACK encode|decode|decode-hollow FILE "
                         "[PASSES [BLOCK]]\n"
                         "       transform_rate STACK store FILE DIRECTORY\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    if (argc < 4)
        return usage();
    const std::string direction = argv[2];
    const bool storing = direction == "store" && argc == 5;
    const bool hollow = direction == "decode-hollow";
    if (!storing && !hollow && direction != "encode" && direction != "decode")
        return usage();
    const int passes = argc > 4 && !storing ? std::atoi(argv[4]) : 0;
    const std::size_t block = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : block_size;
    Input input;
    if (!input.open(argv[3], passes)) {
        std::fprintf(stderr, "%s: cannot be read\n", argv[3]);
        return 1;
    }
    URI uri;
    uri.scheme("file");
    uri.path(storing ? argv[4] : "/", false);
    const Layer io = make_stack(storing ? Layer(std::make_unique<File_IO>())
                                        : Layer(std::make_unique<Input_IO>(input, hollow)),
                                argv[1]);
    std::uint64_t bytes = 0;
    const double start = cpu_seconds();
    const bool done =
        io && io->connect(uri, Client_IO_Base::Options()) &&
        (direction == "encode" || storing
             ? encode(*io, input, block, bytes)
             : decode(*io, block, hollow ? input.loaded() * static_cast<std::uint64_t>(passes) : 0,
                      bytes));
    const double taken = cpu_seconds() - start;
    if (!done) {
        std::fprintf(stderr, "%s: %s\n", argv[1], io ? io->error().c_str() : "no such layer");
        return 1;
    }
    std::printf("%llu %.6f %llu\n", static_cast<unsigned long long>(bytes), taken,
                static_cast<unsigned long long>(io->size("file")));
    return 0;
}
