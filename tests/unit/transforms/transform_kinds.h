#pragma once

#include "client_io/codec_io.h"
#include "platform/runtime/encryption_algorithm.h"
#include "tests/unit/transforms/store_io.h"

#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

/// A transform that changes what is stored.
struct Kind
{
    std::string name;
    std::function<std::unique_ptr<Codec_IO>(std::unique_ptr<Client_IO_Base>)> make;
    bool is_cipher = false;
    bool notices_damage = true; ///< a stream that was cut or changed is refused
};

std::ostream& operator<<(std::ostream& out, const Kind& kind);

inline std::string kind_name(const testing::TestParamInfo<Kind>& info)
{
    return info.param.name;
}

/// One of each sort: zstd, lzop, a block cipher with padding, a stream cipher.
const std::vector<Kind>& main_kinds();
/// zstd, lzop, and every cipher there is.
const std::vector<Kind>& all_kinds();

/// Every cipher there is, from the numbers of the interface.
std::vector<Encryption_Algorithm> all_ciphers();
std::size_t key_length(const std::string& cipher);
/// Keys and IVs of the tests: different bytes, the same at every call.
std::string test_key(std::size_t size);
std::string test_iv();
/// Two digits for each byte.
std::string hex(const std::string& bytes);
std::unique_ptr<Codec_IO> make_cipher(std::unique_ptr<Client_IO_Base> io, const std::string& cipher,
                                      const std::string& key, const std::string& iv);

/// Whether reads copy.
enum class Form
{
    copying,
    zero_copy
};

/// A transform of a kind over a store.
struct Stacked
{
    explicit Stacked(const Kind& kind) : io(kind.make(std::make_unique<Store_IO>(store))) {}

    std::shared_ptr<Store> store = std::make_shared<Store>();
    std::unique_ptr<Codec_IO> io;
};

/// What is stored when @p plain is written in parts of @p cut bytes (0: in one). Fails the test
/// when that fails.
std::string encoded(const Kind& kind, const std::string& plain, std::size_t cut = 0);

/// What reading to the end gave.
struct Decoded
{
    bool failed = false;
    std::string plain; ///< before the failure
    std::string error;
    bool retriable = false;

    bool operator==(const std::string& other) const { return !failed && plain == other; }
};
std::ostream& operator<<(std::ostream& out, const Decoded& decoded);

/// Reads the open file to its end with a buffer of @p cut bytes (0: 65536).
Decoded read_to_end(Client_IO_Base& io, Form form, std::size_t cut = 0);
/// Reads @p stored, of which the lower layer brings @p cut bytes at a time (0: all).
Decoded decoded(const Kind& kind, const std::string& stored, Form form, std::size_t cut = 0);

/// Text that compresses, with no two equal blocks.
std::string sample_text(std::size_t size);
