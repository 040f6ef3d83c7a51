#pragma once

#include <string>

/// A key and a certificate that it signed itself, made in memory and valid for one day. Valid for
/// 127.0.0.1 and ::1 too when it names "localhost".
class Test_Certificate
{
public:
    explicit Test_Certificate(const std::string& host = "localhost");

    /// The certificate, as a file of certification authorities or of a server holds it.
    const std::string& pem() const { return pem_; }
    const std::string& key_pem() const { return key_pem_; }
    /// SHA-256 of the certificate's DER form, 64 hexadecimal digits in lower case.
    const std::string& sha256() const { return sha256_; }

private:
    std::string pem_;
    std::string key_pem_;
    std::string sha256_;
};
