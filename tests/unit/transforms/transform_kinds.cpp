#include "tests/unit/transforms/transform_kinds.h"

#include "client_io/evp_io.h"
#include "client_io/lzop_io.h"
#include "client_io/zstd_io.h"

#include <algorithm>
#include <openssl/evp.h>

namespace
{

Kind zstd_kind()
{
    return {"Zstd", [](auto io) { return std::make_unique<ZSTD_IO>(std::move(io), 3); }};
}

Kind lzop_kind()
{
    return {"Lzop", [](auto io) { return std::make_unique<Lzop_IO>(std::move(io), 3); }};
}

Kind cipher_kind(const std::string& cipher)
{
    std::string name = cipher;
    std::replace(name.begin(), name.end(), '-', '_');
    const bool padded = cipher.ends_with("-cbc");
    return {name,
            [cipher](auto io) {
                return make_cipher(std::move(io), cipher, test_key(key_length(cipher)), test_iv());
            },
            true, padded};
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Kind& kind)
{
    return out << kind.name;
}

std::ostream& operator<<(std::ostream& out, const Decoded& decoded)
{
    return out << decoded.plain.size() << " bytes"
               << (decoded.failed ? ", then: " + decoded.error : std::string());
}

const std::vector<Kind>& main_kinds()
{
    static const std::vector<Kind> kinds = {zstd_kind(), lzop_kind(), cipher_kind("aes-256-cbc"),
                                            cipher_kind("aes-128-ctr")};
    return kinds;
}

const std::vector<Kind>& all_kinds()
{
    static const std::vector<Kind> kinds = [] {
        std::vector<Kind> all = {zstd_kind(), lzop_kind()};
        for (const Encryption_Algorithm cipher : all_ciphers())
            all.push_back(cipher_kind(encryption_value_to_name(cipher, false)));
        return all;
    }();
    return kinds;
}

std::vector<Encryption_Algorithm> all_ciphers()
{
    std::vector<Encryption_Algorithm> ciphers;
    for (int number = 1; number < 256; ++number) {
        const auto algorithm = static_cast<Encryption_Algorithm>(number);
        if (encryption_value_to_name(algorithm, false) != nullptr)
            ciphers.push_back(algorithm);
    }
    return ciphers;
}

std::size_t key_length(const std::string& cipher)
{
    const EVP_CIPHER* const found = EVP_get_cipherbyname(cipher.c_str());
    return found == nullptr ? 0 : static_cast<std::size_t>(EVP_CIPHER_key_length(found));
}

std::string test_key(std::size_t size)
{
    std::string key;
    for (std::size_t i = 0; i < size; ++i)
        key += static_cast<char>(i * 37 + 11);
    return key;
}

std::string test_iv()
{
    std::string iv;
    for (std::size_t i = 0; i < 16; ++i)
        iv += static_cast<char>(i * 29 + 101);
    return iv;
}

std::string hex(const std::string& bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (const char c : bytes) {
        out += digits[static_cast<unsigned char>(c) >> 4U];
        out += digits[static_cast<unsigned char>(c) & 15U];
    }
    return out;
}

std::unique_ptr<Codec_IO> make_cipher(std::unique_ptr<Client_IO_Base> io, const std::string& cipher,
                                      const std::string& key, const std::string& iv)
{
    return std::make_unique<EVP_IO>(
        std::move(io), cipher.c_str(), reinterpret_cast<const unsigned char*>(key.data()),
        static_cast<std::uint32_t>(key.size()), reinterpret_cast<const unsigned char*>(iv.data()),
        static_cast<std::uint32_t>(iv.size()));
}

std::string encoded(const Kind& kind, const std::string& plain, std::size_t cut)
{
    Stacked stacked(kind);
    EXPECT_TRUE(stacked.io->open("a", Client_IO_Base::mode_write, 0, 0)) << stacked.io->error();
    if (cut == 0)
        cut = std::max<std::size_t>(plain.size(), 1);
    bool written = true;
    for (std::size_t done = 0; done < plain.size() && written; done += cut)
        written = stacked.io->write(plain.data() + done, std::min(cut, plain.size() - done));
    EXPECT_TRUE(written) << stacked.io->error();
    EXPECT_TRUE(stacked.io->close()) << stacked.io->error();
    return stacked.store->data;
}

Decoded read_to_end(Client_IO_Base& io, Form form, std::size_t cut)
{
    Decoded result;
    std::string buffer(cut == 0 ? 65536 : cut, '\0');
    for (;;) {
        const void* data = buffer.data();
        std::uint64_t size = 0;
        if (form == Form::copying) {
            const std::int64_t n = io.read(buffer.data(), buffer.size());
            result.failed = n < 0;
            size = n < 0 ? 0 : static_cast<std::uint64_t>(n);
        } else {
            result.failed = !io.read(data, size);
        }
        if (result.failed) {
            result.error = io.error();
            result.retriable = io.retriable();
            return result;
        }
        if (size == 0)
            return result;
        result.plain.append(static_cast<const char*>(data), size);
    }
}

Decoded decoded(const Kind& kind, const std::string& stored, Form form, std::size_t cut)
{
    Stacked stacked(kind);
    stacked.store->data = stored;
    stacked.store->retriable = true;
    if (cut != 0)
        stacked.store->piece = cut;
    EXPECT_TRUE(stacked.io->open("a", Client_IO_Base::mode_read, 0, 0)) << stacked.io->error();
    return read_to_end(*stacked.io, form, cut);
}

std::string sample_text(std::size_t size)
{
    std::string text;
    text.reserve(size + 64);
    for (std::uint32_t line = 1; text.size() < size; ++line)
        text += "line " + std::to_string(line * 2654435761U) + " of the sample, number " +
                std::to_string(line) + '\n';
    text.resize(size);
    return text;
}
