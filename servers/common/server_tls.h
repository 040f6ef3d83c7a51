#pragma once

#include <memory>
#include <openssl/ssl.h>
#include <string>

/// What the server's TLS connections have in common: TLS 1.2 and 1.3 with forward secrecy,
/// HTTP/1.1.
/// @param certificate_file  the server's certificate and those that lead to a root, in PEM form
/// @return NULL when the files are of no use (@p error)
std::shared_ptr<SSL_CTX> make_server_tls(const std::string& certificate_file,
                                         const std::string& key_file, std::string& error);
