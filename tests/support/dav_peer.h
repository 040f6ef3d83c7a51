#pragma once

#include "tests/support/temp_directory.h"

#include <string>
#include <sys/types.h>

/// A WebDAV server that others wrote, over a folder of its own: one of the scripts in
/// tests/interop/. Ends when the object goes, and when the test is killed. One that does not start
/// fails the test.
class Dav_Peer
{
public:
    /// @param program  "nginx" or "apache"
    /// @param user     who may come in; "" = everybody
    explicit Dav_Peer(const std::string& program, const std::string& user = {},
                      const std::string& password = {});
    ~Dav_Peer();
    Dav_Peer(const Dav_Peer&) = delete;
    Dav_Peer& operator=(const Dav_Peer&) = delete;

    /// "http://127.0.0.1:PORT", or https, with @p path behind it.
    std::string uri(bool tls, const std::string& path = "/") const;
    /// Where a path of the server lies.
    std::string file(const std::string& path) const { return directory_ / ("files/" + path); }
    /// The file of the certificate that it shows.
    std::string certificate_file() const { return directory_ / "certificate.pem"; }

private:
    void start(const std::string& program, const std::string& user, const std::string& password);

    Temp_Directory directory_;
    pid_t pid_ = -1;
    int in_ = -1; ///< the script's standard input, whose end ends it
    std::string uri_;
    std::string tls_uri_;
};
