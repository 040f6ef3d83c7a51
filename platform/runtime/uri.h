#pragma once

#include "platform/runtime/export.h"

#include <string>

/// The address of a target: scheme, host, port and path.
///
/// Host and path have two forms: plain, and percent-encoded as they stand in the text of a URI.
/// They are kept plain; the flag of their setters and getters asks for the encoded form.
/// A plain path may hold any byte. One object serves one thread.
class CLIENT_IO_EXPORT URI
{
public:
    /// The scheme as it was written: schemes are compared exactly, so "HTTP" is not "http".
    const std::string& scheme() const { return scheme_; }
    void scheme(const std::string& value) { scheme_ = value; }

    /// @param encoded  true: percent-encoded form, false: plain form.
    /// An IPv6 address has no brackets in the plain form and has them in the encoded one.
    std::string host(bool encoded) const;
    /// @param value  NULL is an empty host
    void host(const char* value, bool encoded);

    /// 0 when the URI names no port.
    unsigned short port() const { return port_; }
    void port(unsigned short value) { port_ = value; }

    /// @param encoded  true: percent-encoded form, false: plain form.
    /// On Windows the plain path of "file:///C:/x" is "C:/x", without the leading slash, and that
    /// of "file://server/share/x" is "//server/share/x".
    std::string path(bool encoded) const;
    void path(const std::string& value, bool encoded);

    /// Whether the scheme is the secure form of its protocol ("https", "dedups", "osss", ...).
    bool ssl() const;

private:
    std::string scheme_;
    std::string host_;
    std::string path_;
    unsigned short port_ = 0;
};

/// Reads URIs written as text.
class CLIENT_IO_EXPORT URI_Parser
{
public:
    /// Parses an absolute URI: SCHEME://[HOST[:PORT]]PATH.
    ///
    /// Refused: anything that RFC 3986 does not allow, a port above 65535, and parts that this
    /// system has no use for and would silently lose or leak: user name or password, query,
    /// fragment, and percent-encoded NUL bytes.
    /// @return false and leaves @p uri alone when @p text is refused or NULL
    static bool parse(const char* text, URI& uri);
};
