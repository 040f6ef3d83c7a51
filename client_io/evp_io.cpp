#include "client_io/evp_io.h"

#include "platform/runtime/format.h"
#include "platform/runtime/ssl_errors.h"
#include "platform/runtime/unexpected.h"

#include <algorithm>
#include <cstring>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <utility>

EVP_IO::EVP_IO(std::unique_ptr<Client_IO_Base> io, const char* cipher, const unsigned char* key,
               std::uint32_t key_len, const unsigned char* iv, std::uint32_t iv_len)
    : Codec_IO(std::move(io)), key_len_(key_len), iv_len_(iv_len), context_(EVP_CIPHER_CTX_new())
{
    init_ = check_arguments(cipher, key, iv);
    if (!init_)
        return;
    std::memcpy(key_, key, key_len_);
    std::memcpy(iv_, iv, iv_len_);
}

EVP_IO::~EVP_IO()
{
    OPENSSL_cleanse(key_, sizeof key_);
    OPENSSL_cleanse(iv_, sizeof iv_);
    OPENSSL_cleanse(out_buf_, sizeof out_buf_);
}

bool EVP_IO::check_arguments(const char* cipher, const unsigned char* key, const unsigned char* iv)
{
    cipher_ = cipher == nullptr ? nullptr : EVP_get_cipherbyname(cipher);
    if (cipher_ == nullptr) {
        log_unexpected("Unexpected error in %N:%l, cipher_ is NULL:\n%?\n");
        return false;
    }
    if (key == nullptr) {
        log_unexpected("Unexpected error in %N:%l, key is NULL:\n%?\n");
        return false;
    }
    if (iv == nullptr) {
        log_unexpected("Unexpected error in %N:%l, iv is NULL:\n%?\n");
        return false;
    }
    const auto value = [](long long number) { return "=" + std::to_string(number); };
    const int key_length = EVP_CIPHER_key_length(cipher_);
    if (static_cast<std::uint32_t>(key_length) != key_len_) {
        log_unexpected_values(
            "Unexpected error in %N:%l, EVP_CIPHER_key_length(cipher_)%s != key_len_%s:\n%?\n",
            value(key_length).c_str(), value(key_len_).c_str());
        return false;
    }
    const int iv_length = EVP_CIPHER_iv_length(cipher_);
    if (static_cast<std::uint32_t>(iv_length) != iv_len_) {
        log_unexpected_values(
            "Unexpected error in %N:%l, EVP_CIPHER_iv_length(cipher_)%s != iv_len_%s:\n%?\n",
            value(iv_length).c_str(), value(iv_len_).c_str());
        return false;
    }
    return context_ != nullptr;
}

bool EVP_IO::ready(bool for_reading)
{
    if (_io == nullptr) {
        log_unexpected("Unexpected error in %N:%l, _io is NULL:\n%?\n");
        return false;
    }
    if (for_reading && init_ && io_buf_ == nullptr) {
        log_unexpected("Unexpected error in %N:%l, io_buf_ is NULL:\n%?\n");
        return check(false); // fails: it was never opened for reading
    }
    if (!init_) {
        log_unexpected("Unexpected error in %N:%l, init_ is false:\n%?\n");
        error_ = "The encryption key or IV does not suit the cipher";
        return false;
    }
    return true;
}

bool EVP_IO::begin()
{
    ERR_clear_error(); // what is left from others is not about this
    if (EVP_CipherInit_ex(context_.get(), cipher_, nullptr, key_, iv_, writing() ? 1 : 0) != 1)
        return fail("Failed to init cipher" + SSL_Errors().str());
    if (!writing() && !io_buf_)
        io_buf_ = std::make_unique_for_overwrite<unsigned char[]>(chunk_size);
    input_ended_ = false;
    in_count_ = 0;
    out_count_ = 0;
    return true;
}

bool EVP_IO::encode(const void* data, std::uint64_t size)
{
    const auto* in = static_cast<const unsigned char*>(data);
    while (size != 0) {
        const std::uint64_t part = std::min<std::uint64_t>(size, chunk_size);
        int out_len = 0;
        if (!update(out_buf_, out_len, in, part, "Failed to update encryption"))
            return false;
        if (out_len > 0 && !write_lower(out_buf_, static_cast<std::uint64_t>(out_len)))
            return false;
        in += part;
        size -= part;
    }
    return true;
}

/// A partial block waits for more bytes or for the end.
bool EVP_IO::encode_flush()
{
    return true;
}

bool EVP_IO::encode_end()
{
    if (!finalize("Failed to finalize encryption"))
        return false;
    const auto count = static_cast<std::uint64_t>(std::exchange(out_count_, 0));
    return count == 0 || write_lower(out_buf_, count);
}

std::int64_t EVP_IO::decode(void* buf, std::uint64_t size)
{
    // What surely fits is decrypted where the caller wants it. The rest of a large request is
    // little; for small ones more is decrypted at once and kept.
    constexpr std::uint64_t large = 4096;
    constexpr std::uint64_t two_blocks = std::uint64_t{2} * EVP_MAX_BLOCK_LENGTH;
    const std::uint64_t piece = size < large ? 4 * large : two_blocks;
    auto* out = static_cast<unsigned char*>(buf);
    std::uint64_t filled = deliver(out, size);
    while (filled < size && (in_count_ != 0 || !input_ended_)) {
        if (in_count_ == 0 && !read_chunk())
            return -1;
        const std::uint64_t room = size - filled;
        if (size >= large && room > EVP_MAX_BLOCK_LENGTH) {
            int out_len = 0;
            if (!decrypt(out + filled, out_len, room - EVP_MAX_BLOCK_LENGTH))
                return -1;
            filled += static_cast<std::uint64_t>(out_len);
        } else if (in_count_ != 0) {
            if (!decrypt(out_buf_, out_count_, piece))
                return -1;
            cursor_ = out_buf_;
        }
        filled += deliver(out + filled, size - filled);
    }
    return static_cast<std::int64_t>(filled);
}

bool EVP_IO::decode(const void*& data, std::uint64_t& size)
{
    while (out_count_ == 0 && (in_count_ != 0 || !input_ended_)) {
        if (in_count_ == 0 && !read_chunk())
            return false;
        if (in_count_ != 0) {
            if (!decrypt(out_buf_, out_count_, chunk_size))
                return false;
            cursor_ = out_buf_;
        }
    }
    data = cursor_;
    size = static_cast<std::uint64_t>(std::exchange(out_count_, 0));
    return true;
}

bool EVP_IO::update(unsigned char* out, int& out_len, const unsigned char* in, std::uint64_t in_len,
                    const char* failure)
{
    out_len = 0;
    ERR_clear_error();
    return in_len == 0 ||
           EVP_CipherUpdate(context_.get(), out, &out_len, in, static_cast<int>(in_len)) == 1 ||
           fail(failure + SSL_Errors().str());
}

/// Decrypts at most so many of the bytes in io_buf_.
bool EVP_IO::decrypt(unsigned char* out, int& out_len, std::uint64_t most)
{
    const std::uint64_t n = std::min<std::uint64_t>(most, in_count_);
    if (!update(out, out_len, in_cursor_, n, "Failed to update decryption"))
        return false;
    in_cursor_ += n;
    in_count_ -= static_cast<std::uint32_t>(n);
    return true;
}

/// Puts the cipher's last bytes into the output buffer.
bool EVP_IO::finalize(const char* failure)
{
    out_count_ = 0;
    cursor_ = out_buf_;
    ERR_clear_error();
    return EVP_CipherFinal_ex(context_.get(), out_buf_, &out_count_) == 1 ||
           fail(failure + SSL_Errors().str());
}

/// Reads ciphertext into io_buf_; at its end the last plain bytes stand in the output buffer.
bool EVP_IO::read_chunk()
{
    const std::int64_t n = read_lower(io_buf_.get(), chunk_size);
    if (n < 0)
        return false;
    in_cursor_ = io_buf_.get();
    in_count_ = static_cast<std::uint32_t>(n);
    input_ended_ = n == 0;
    return !input_ended_ || finalize("Failed to finalize decryption");
}

/// Copies output that waits to be delivered.
std::uint64_t EVP_IO::deliver(unsigned char* out, std::uint64_t room)
{
    const std::uint64_t n = std::min<std::uint64_t>(room, static_cast<std::uint64_t>(out_count_));
    std::memcpy(out, cursor_, n);
    cursor_ += n;
    out_count_ -= static_cast<std::int32_t>(n);
    return n;
}
