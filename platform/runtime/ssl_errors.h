#pragma once

#include <string>

/// What OpenSSL has to say about failures on this thread: takes its error queue and empties it.
///
/// The text is made to follow another one: ": " before each error, the oldest first; empty when
/// OpenSSL recorded nothing. It never holds key material.
class SSL_Errors
{
public:
    SSL_Errors();

    const std::string& str() const { return text_; }
    const char* c_str() const { return text_.c_str(); }

private:
    std::string text_;
};
