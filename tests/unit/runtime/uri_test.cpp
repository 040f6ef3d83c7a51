#include "platform/runtime/uri.h"

#include <gtest/gtest.h>

namespace
{

URI parsed(const char* text)
{
    URI uri;
    EXPECT_TRUE(URI_Parser::parse(text, uri)) << text;
    return uri;
}

void expect_refused(const std::string& text)
{
    URI uri;
    uri.scheme("kept");
    uri.host("kept", false);
    uri.port(7);
    uri.path("kept", false);
    EXPECT_FALSE(URI_Parser::parse(text.c_str(), uri)) << text;
    EXPECT_EQ(uri.scheme() + uri.host(false) + uri.path(false), "keptkeptkept") << text;
    EXPECT_EQ(uri.port(), 7) << text;
}

TEST(URI_Parser, PartsAreTakenApart)
{
    const URI uri = parsed("https://store.example.com:8443/backup/2026");
    EXPECT_EQ(uri.scheme(), "https");
    EXPECT_EQ(uri.host(false), "store.example.com");
    EXPECT_EQ(uri.port(), 8443);
    EXPECT_EQ(uri.path(false), "/backup/2026");
}

TEST(URI_Parser, PartsOfAnEarlierUriDoNotRemain)
{
    URI uri = parsed("https://h:1/long");
    ASSERT_TRUE(URI_Parser::parse("file:///", uri));
    EXPECT_EQ(uri.scheme(), "file");
    EXPECT_EQ(uri.host(false), "");
    EXPECT_EQ(uri.port(), 0);
    EXPECT_EQ(uri.path(false), "/");
}

TEST(URI_Parser, SchemeKeepsItsCase)
{
    EXPECT_EQ(parsed("HTTP://h/").scheme(), "HTTP");
    EXPECT_EQ(parsed("s3v4s://h/").scheme(), "s3v4s");
}

TEST(URI_Parser, HostKeepsItsCase)
{
    EXPECT_EQ(parsed("http://Host.Example/").host(false), "Host.Example");
}

TEST(URI_Parser, LocalFilesHaveNoHost)
{
    const URI uri = parsed("file:///a%20b/c");
    EXPECT_EQ(uri.host(false), "");
    EXPECT_EQ(uri.path(false), "/a b/c");
    EXPECT_EQ(uri.path(true), "/a%20b/c");
}

TEST(URI_Parser, APathMayFollowTheSchemeAtOnce)
{
    EXPECT_EQ(parsed("file:/a").path(false), "/a");
    EXPECT_EQ(parsed("file:/").path(false), "/");
}

TEST(URI_Parser, AHostMayStandAlone)
{
    const URI uri = parsed("http://host");
    EXPECT_EQ(uri.host(false), "host");
    EXPECT_EQ(uri.path(false), "");
    EXPECT_EQ(uri.path(true), "");
}

TEST(URI_Parser, PathsThatStartWithoutASlashAreRefused)
{
    for (const char* text : {"file:relative", "file:a/b", "mailto:someone@example.com",
                             "file:", "urn:isbn:0451450523", "http:"})
        expect_refused(text);
}

TEST(URI_Parser, WhatHasNoSchemeIsRefused)
{
    for (const char* text :
         {"", "/a/b", "//host/a", "a/b", "://host/", ":", "1http://h/", "ht_tp://h/", "C:\\backup"})
        expect_refused(text);
}

TEST(URI_Parser, NullIsRefused)
{
    URI uri;
    EXPECT_FALSE(URI_Parser::parse(nullptr, uri));
}

TEST(URI_Parser, PortsReachTo65535)
{
    EXPECT_EQ(parsed("http://h:1/").port(), 1);
    EXPECT_EQ(parsed("http://h:0/").port(), 0);
    EXPECT_EQ(parsed("http://h:65535/").port(), 65535);
    EXPECT_EQ(parsed("http://h:00080/").port(), 80);
    for (const char* text : {"http://h:65536/", "http://h:99999999999999999999/", "http://h:-1/",
                             "http://h:8a/", "http://h:+1/", "http://h:1:2/", "http://h: 1/"})
        expect_refused(text);
}

TEST(URI_Parser, AnAbsentOrEmptyPortIsZero)
{
    EXPECT_EQ(parsed("http://h/p").port(), 0);
    const URI uri = parsed("http://h:/p");
    EXPECT_EQ(uri.port(), 0);
    EXPECT_EQ(uri.host(false), "h");
    EXPECT_EQ(uri.path(false), "/p");
}

TEST(URI_Parser, Ipv6AddressesStandInBracketsInTheTextOnly)
{
    const URI uri = parsed("http://[2001:db8::1]:8080/p");
    EXPECT_EQ(uri.host(false), "2001:db8::1");
    EXPECT_EQ(uri.host(true), "[2001:db8::1]");
    EXPECT_EQ(uri.port(), 8080);
    EXPECT_EQ(parsed("http://[::]/").host(false), "::");
    EXPECT_EQ(parsed("http://[::ffff:192.0.2.1]/").host(true), "[::ffff:192.0.2.1]");
    for (const char* text : {"http://[::1/", "http://::1/", "http://[]/", "http://[::1]x/",
                             "http://[1:2:3]/", "http://[::g]/", "http://[v1.x]/"})
        expect_refused(text);
}

TEST(URI_Parser, Ipv4AddressesAreHosts)
{
    EXPECT_EQ(parsed("http://192.0.2.7:80/").host(false), "192.0.2.7");
    EXPECT_EQ(parsed("http://192.0.2.7/").host(true), "192.0.2.7");
}

TEST(URI_Parser, EncodedCharactersOfTheHostAreDecoded)
{
    const URI uri = parsed("http://a%20b%C3%A9/");
    EXPECT_EQ(uri.host(false), "a b\xC3\xA9");
    EXPECT_EQ(uri.host(true), "a%20b%C3%A9");
}

TEST(URI_Parser, EncodedSlashBecomesASlash)
{
    const URI uri = parsed("http://h/a%2Fb%2fc");
    EXPECT_EQ(uri.path(false), "/a/b/c");
    EXPECT_EQ(uri.path(true), "/a/b/c");
}

TEST(URI_Parser, EncodedDelimitersArePartOfThePath)
{
    const URI uri = parsed("http://h/a%3Fb%23c%25d%40e");
    EXPECT_EQ(uri.path(false), "/a?b#c%d@e");
    EXPECT_EQ(uri.path(true), "/a%3Fb%23c%25d@e");
}

TEST(URI_Parser, DotSegmentsStayAsTheyAre)
{
    EXPECT_EQ(parsed("file:///a/../b/./c//d").path(false), "/a/../b/./c//d");
}

TEST(URI_Parser, BrokenEscapesAreRefused)
{
    for (const char* text : {"http://h/%", "http://h/%2", "http://h/%zz", "http://h/a%2gb",
                             "http://h%/", "http://h%zz/", "http://h/% 20"})
        expect_refused(text);
}

TEST(URI_Parser, EncodedNulBytesAreRefused)
{
    for (const char* text : {"http://h/a%00b", "http://h%00/", "file:///%00"})
        expect_refused(text);
}

TEST(URI_Parser, CharactersThatNeedEncodingAreRefused)
{
    for (const char* text :
         {"http://h/a b", "http://h/\xC3\xA9", "http://h/a\"b", "http://h/a\\b", "http://h/<a>",
          "http://h/a|b", "http://h/a^b", "http://h/{a}", "http://h/a\x7f", "http://h/a\x01",
          "http://a b/", " http://h/", "http://h/ ", "http://h/\n", "http://h/[a]"})
        expect_refused(text);
}

TEST(URI_Parser, CredentialsAreRefused)
{
    for (const char* text :
         {"http://user@h/", "http://user:secret@h/", "http://@h/", "http://:@h/"})
        expect_refused(text);
}

TEST(URI_Parser, QueriesAndFragmentsAreRefused)
{
    for (const char* text : {"http://h/p?a=b", "http://h/p?", "http://h?x", "http://h/p#f",
                             "http://h/p#", "http://h#f", "file:///a?b#c"})
        expect_refused(text);
}

TEST(URI_Parser, LongTextsAreRead)
{
    const std::string path = "/" + std::string(1U << 20U, 'x');
    EXPECT_EQ(parsed(("http://h" + path).c_str()).path(false), path);
    expect_refused("http://h/" + std::string(1U << 20U, ' '));
}

TEST(URI, IsEmptyAtFirst)
{
    const URI uri;
    EXPECT_EQ(uri.scheme() + uri.host(false) + uri.host(true) + uri.path(false) + uri.path(true),
              "");
    EXPECT_EQ(uri.port(), 0);
    EXPECT_FALSE(uri.ssl());
}

TEST(URI, APlainPathIsEncodedWhereItMustBe)
{
    URI uri;
    uri.path("/a b/%41/?#[]\xC3\xA9\"\\~-._!$&'()*+,;=:@", false);
    EXPECT_EQ(uri.path(false), "/a b/%41/?#[]\xC3\xA9\"\\~-._!$&'()*+,;=:@");
    EXPECT_EQ(uri.path(true), "/a%20b/%2541/%3F%23%5B%5D%C3%A9%22%5C~-._!$&'()*+,;=:@");
}

TEST(URI, APlainPathMayHoldAnyByte)
{
    std::string bytes = "/";
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    URI uri;
    uri.path(bytes, false);
    EXPECT_EQ(uri.path(false), bytes);
    URI again;
    again.path(uri.path(true), true);
    EXPECT_EQ(again.path(false), bytes);
}

TEST(URI, AnEncodedPathIsDecoded)
{
    URI uri;
    uri.path("/a%20b%2fc", true);
    EXPECT_EQ(uri.path(false), "/a b/c");
}

TEST(URI, WhatIsNoEscapeStaysInASetPath)
{
    URI uri;
    uri.path("/100%/%zz/%4", true);
    EXPECT_EQ(uri.path(false), "/100%/%zz/%4");
    EXPECT_EQ(uri.path(true), "/100%25/%25zz/%254");
}

TEST(URI, HostsAreSetInBothForms)
{
    URI uri;
    uri.host("a b", false);
    EXPECT_EQ(uri.host(false), "a b");
    EXPECT_EQ(uri.host(true), "a%20b");
    uri.host("a%20b", true);
    EXPECT_EQ(uri.host(false), "a b");
    uri.host("a%20b", false);
    EXPECT_EQ(uri.host(false), "a%20b");
    uri.host(nullptr, false);
    EXPECT_EQ(uri.host(false), "");
    uri.host(nullptr, true);
    EXPECT_EQ(uri.host(true), "");
}

TEST(URI, BracketsOfAnIpv6AddressAreDroppedWhenItIsSet)
{
    URI uri;
    uri.host("::1", false);
    EXPECT_EQ(uri.host(true), "[::1]");
    uri.host("[::1]", true);
    EXPECT_EQ(uri.host(false), "::1");
    uri.host("[::1]", false);
    EXPECT_EQ(uri.host(false), "::1");
    uri.host("[x]", false);
    EXPECT_EQ(uri.host(false), "[x]");
}

TEST(URI, SecureSchemesAreKnown)
{
    for (const char* scheme : {"https", "realtimes", "sdfss", "dedups", "wss",  "d2ts",    "mtfs",
                               "s3s",   "osss",      "ksss",  "ufiles", "coss", "scss",    "blobs",
                               "s3v4s", "hbrs",      "obss",  "btrfss", "ftps", "lanfrees"})
    {
        URI uri;
        uri.scheme(scheme);
        EXPECT_TRUE(uri.ssl()) << scheme;
    }
}

TEST(URI, OtherSchemesAreNotSecure)
{
    for (const char* scheme :
         {"",      "http", "realtime", "sdfs", "dedup", "ws",     "d2t",  "mtf", "s3",
          "oss",   "kss",  "ufile",    "cos",  "scs",   "blob",   "s3v4", "hbr", "obs",
          "btrfs", "ftp",  "lanfree",  "file", "HTTPS", "https ", "s"})
    {
        URI uri;
        uri.scheme(scheme);
        EXPECT_FALSE(uri.ssl()) << scheme;
    }
}

} // namespace
