#include "servers/common/request_target.h"

#include <gtest/gtest.h>

namespace
{

std::string path_of(std::string_view target)
{
    std::string path;
    return parse_request_target(target, path) ? path : "(refused)";
}

} // namespace

TEST(Request_Target, IsDecodedAndItsSlashesAreJoined)
{
    EXPECT_EQ(path_of("/"), "");
    EXPECT_EQ(path_of("//"), "");
    EXPECT_EQ(path_of("/a"), "a");
    EXPECT_EQ(path_of("//a//b//"), "a/b");
    EXPECT_EQ(path_of("/a%20b/%C3%A9%3f%25"), "a b/\xC3\xA9?%");
    EXPECT_EQ(path_of("/a+b"), "a+b");
    EXPECT_EQ(path_of("/\xFF"), "\xFF");
    EXPECT_EQ(path_of("http://host:1/a/b"), "a/b");
    EXPECT_EQ(path_of("HTTPS://host"), "");
}

TEST(Request_Target, DotsStayForTheTreeToRefuse)
{
    EXPECT_EQ(path_of("/a/../b"), "a/../b");
    EXPECT_EQ(path_of("/%2e%2E/b"), "../b");
    EXPECT_EQ(path_of("/./b"), "./b");
}

TEST(Request_Target, WhatIsNoPathIsRefused)
{
    for (const std::string_view target :
         {"", "*", "a/b", "host:80", "ftp://host/a", "http://", "http:///a", "http:/a", "/a?b",
          "/a#b", "/%", "/%1", "/%1g", "/a%2fb", "/a%2Fb", "/a%00", "/%00", "http://host?a"})
        EXPECT_EQ(path_of(target), "(refused)") << target;
}

TEST(Request_Target, TheServersOwnPathsAreKnown)
{
    EXPECT_TRUE(is_server_path(".cio"));
    EXPECT_TRUE(is_server_path(".cio/health"));
    EXPECT_FALSE(is_server_path(".cio2"));
    EXPECT_FALSE(is_server_path("a/.cio"));
    EXPECT_FALSE(is_server_path(""));
}

TEST(Request_Target, AuthoritiesAreComparedWithoutCaseAndUsualPort)
{
    EXPECT_TRUE(same_authority("http", "Host", "host:80"));
    EXPECT_TRUE(same_authority("https", "host:443", "host"));
    EXPECT_TRUE(same_authority("http", "[::1]:8080", "[::1]:8080"));
    EXPECT_FALSE(same_authority("http", "host", "host:443"));
    EXPECT_FALSE(same_authority("http", "host", "other"));
    EXPECT_FALSE(same_authority("http", "host:8080", "host:80"));
}
