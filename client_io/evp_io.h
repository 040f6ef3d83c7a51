#pragma once

#include "client_io/codec_io.h"

#include <openssl/evp.h>

/// Encrypts what is written and decrypts what is read, with one symmetric cipher of OpenSSL.
///
/// A file is the bare ciphertext, with the cipher's padding where it has one (as of
/// `openssl enc -K -iv`). Every file begins anew with the same key and IV: docs/security.md tells
/// what that means and which ciphers it rules out. There is no authentication: block ciphers notice
/// a wrong key or a cut file by their padding (but for one case in 256), the others notice nothing.
///
/// Because a second stream behind the first could not be read back, a file that holds anything, or
/// of which that is not known, is not opened for append ("Invalid offset").
///
/// Key and IV are wiped when the object is destroyed, and so are the plain bytes in its buffer. The
/// error queue of OpenSSL on the calling thread is emptied by most operations.
class EVP_IO : public Codec_IO
{
public:
    /// Checks the cipher and the lengths; when they do not suit one another every operation fails
    /// with a log message at emergency priority, and open() with a text too.
    /// @param io       layer below; owned from now on
    /// @param cipher   OpenSSL's name of the cipher
    /// @param key_len  bytes, as the cipher wants it
    /// @param iv_len   likewise
    EVP_IO(std::unique_ptr<Client_IO_Base> io, const char* cipher, const unsigned char* key,
           std::uint32_t key_len, const unsigned char* iv, std::uint32_t iv_len);
    ~EVP_IO() override;

    using Codec_IO::open;

private:
    /// Bytes encrypted or decrypted in one step.
    static constexpr std::size_t chunk_size = 262144;

    struct Free_Context
    {
        void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
    };

    bool check_arguments(const char* cipher, const unsigned char* key, const unsigned char* iv);
    bool ready(bool for_reading) override;
    bool begin() override;
    bool encode(const void* data, std::uint64_t size) override;
    bool encode_flush() override;
    bool encode_end() override;
    std::int64_t decode(void* buf, std::uint64_t size) override;
    bool decode(const void*& data, std::uint64_t& size) override;
    bool can_append() const override { return false; }

    bool update(unsigned char* out, int& out_len, const unsigned char* in, std::uint64_t in_len,
                const char* failure);
    bool finalize(const char* failure);
    bool decrypt(unsigned char* out, int& out_len, std::uint64_t most);
    bool read_chunk();
    std::uint64_t deliver(unsigned char* out, std::uint64_t room);

    const EVP_CIPHER* cipher_ = nullptr;
    unsigned char key_[EVP_MAX_KEY_LENGTH] = {};
    std::uint32_t key_len_;
    unsigned char iv_[EVP_MAX_IV_LENGTH] = {};
    std::uint32_t iv_len_;
    bool init_ = false; ///< cipher, key and IV were accepted
    std::unique_ptr<EVP_CIPHER_CTX, Free_Context> context_;
    std::unique_ptr<unsigned char[]> io_buf_;  ///< ciphertext to decrypt; made when first needed
    const unsigned char* in_cursor_ = nullptr; ///< first byte of it not decrypted yet
    std::uint32_t in_count_ = 0;               ///< bytes of it
    const unsigned char* cursor_ = out_buf_;   ///< first byte of output not delivered yet
    std::int32_t out_count_ = 0;               ///< bytes of it
    bool input_ended_ = false;
    unsigned char out_buf_[chunk_size + EVP_MAX_BLOCK_LENGTH];
};
