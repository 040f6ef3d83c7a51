#include "client_io/client_io.h"
#include "platform/runtime/base64.h"
#include "tests/support/dav_peer.h"
#include "tests/support/run_program.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace
{

using testing::HasSubstr;
using Options = Client_IO_Base::Options;

constexpr unsigned reading = Client_IO_Base::mode_read;
constexpr unsigned writing = Client_IO_Base::mode_write;
constexpr unsigned overwriting = Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite;
constexpr unsigned appending = Client_IO_Base::mode_append;
constexpr unsigned random_writing = Client_IO_Base::mode_random_write;

const char* const not_in_dialect = "Not supported by the dialect webdav";

/// Without retries, which would only repeat what is meant to fail.
Options options_of_dialect()
{
    Options options;
    options.max_retry = 0;
    options.set_extra_option("HTTP_DIALECT", "webdav");
    return options;
}

std::string basic(const std::string& credentials)
{
    return "Basic " + Base64_Encoder::encode(credentials.data(), credentials.size());
}

std::string read_rest(Client_IO& io)
{
    std::string data(1000000, '\0');
    const std::int64_t size = io.read(data.data(), data.size());
    EXPECT_GE(size, 0) << io.error();
    data.resize(static_cast<std::size_t>(std::max<std::int64_t>(size, 0)));
    return data;
}

/// Every server, with and without TLS.
class Dav_Peers : public testing::TestWithParam<std::tuple<const char*, bool>>
{
protected:
    Dav_Peers()
    {
        Options options = options_of_dialect();
        options.set_extra_option("TLS_CA_FILE", peer_.certificate_file());
        EXPECT_TRUE(io_.connect(peer_.uri(std::get<1>(GetParam())).c_str(), options))
            << io_.error();
    }

    std::string stored(const std::string& path) const { return read_local(peer_.file(path)); }
    bool is_stored(const std::string& path) const
    {
        return std::filesystem::exists(peer_.file(path));
    }
    void store(const std::string& path, const std::string& data) const
    {
        write_local(peer_.file(path), data);
    }

    const Dav_Peer peer_{std::get<0>(GetParam())};
    Client_IO io_;
};

INSTANTIATE_TEST_SUITE_P(Of, Dav_Peers,
                         testing::Combine(testing::Values("nginx", "apache"), testing::Bool()),
                         [](const auto& about) {
                             return std::string(std::get<0>(about.param)) +
                                    (std::get<1>(about.param) ? "_tls" : "");
                         });

TEST_P(Dav_Peers, KeepWhatIsWrittenAndGiveItBack)
{
    for (const std::size_t size : {0U, 1U, 65536U, 3000001U}) {
        SCOPED_TRACE(size);
        const std::string data = sample_bytes(size);
        ASSERT_TRUE(io_.open("file", overwriting, 0, 0)) << io_.error();
        for (std::size_t done = 0; done < size; done += 100000)
            ASSERT_TRUE(io_.write(data.data() + done, std::min<std::size_t>(100000, size - done)))
                << io_.error();
        ASSERT_TRUE(io_.close()) << io_.error();
        EXPECT_TRUE(stored("file") == data);
        EXPECT_EQ(io_.size("file"), size);
        std::string read;
        EXPECT_TRUE(io_.get_contents("file", read)) << io_.error();
        EXPECT_TRUE(read == data);
    }
}

TEST_P(Dav_Peers, AreReadFromAndToWhereItIsAsked)
{
    const std::string data = sample_bytes(300000);
    store("file", data);
    ASSERT_TRUE(io_.open("file", reading, 1000, 0)) << io_.error();
    EXPECT_EQ(io_.size(), data.size());
    EXPECT_TRUE(read_rest(io_) == data.substr(1000));
    ASSERT_TRUE(io_.open("file", reading, 100, 7)) << io_.error();
    EXPECT_EQ(read_rest(io_), data.substr(100, 7));
    ASSERT_TRUE(io_.open("file", reading, data.size() - 3, 100)) << io_.error();
    EXPECT_EQ(read_rest(io_), data.substr(data.size() - 3));

    ASSERT_TRUE(io_.open("file", reading, 0, 0)) << io_.error();
    ASSERT_TRUE(io_.seek(200000, 5)) << io_.error();
    EXPECT_EQ(read_rest(io_), data.substr(200000, 5));
    ASSERT_TRUE(io_.seek(3, 0)) << io_.error();
    EXPECT_TRUE(read_rest(io_) == data.substr(3));
    EXPECT_FALSE(io_.seek(data.size() + 1, 0));
    EXPECT_TRUE(io_.close());
}

TEST_P(Dav_Peers, DoNotReplaceAFileUnasked)
{
    store("file", "old");
    EXPECT_FALSE(io_.put_contents("file", "new", false));
    EXPECT_EQ(io_.error(), "File already exists");
    EXPECT_EQ(stored("file"), "old");
    EXPECT_TRUE(io_.put_contents("other", "new", false)) << io_.error();
    EXPECT_EQ(stored("other"), "new");
}

TEST_P(Dav_Peers, AppendToNothing)
{
    ASSERT_TRUE(io_.open("file", appending, 0, 0)) << io_.error();
    ASSERT_TRUE(io_.write("data", 4)) << io_.error();
    ASSERT_TRUE(io_.close()) << io_.error();
    EXPECT_EQ(stored("file"), "data");
}

TEST_P(Dav_Peers, CopyAndRenameFiles)
{
    store("file", "contents");
    store("other", "of the other");
    EXPECT_TRUE(io_.copy("file", "copy", false)) << io_.error();
    EXPECT_EQ(stored("copy"), "contents");
    EXPECT_TRUE(io_.copy("other", "copy", true)) << io_.error();
    EXPECT_EQ(stored("copy"), "of the other");

    EXPECT_TRUE(io_.rename("file", "renamed", false)) << io_.error();
    EXPECT_FALSE(is_stored("file"));
    EXPECT_EQ(stored("renamed"), "contents");
    EXPECT_TRUE(io_.rename("renamed", "other", true)) << io_.error();
    EXPECT_FALSE(is_stored("renamed"));
    EXPECT_EQ(stored("other"), "contents");
}

TEST_P(Dav_Peers, MakeFillCopyRenameAndRemoveDirectories)
{
    ASSERT_TRUE(io_.make_dir("dir/", 0755)) << io_.error();
    ASSERT_TRUE(io_.make_dir("dir/sub/", 0755)) << io_.error();
    ASSERT_TRUE(io_.put_contents("dir/sub/file", "data", false)) << io_.error();
    EXPECT_EQ(stored("dir/sub/file"), "data");
    EXPECT_TRUE(io_.copy("dir/", "copy/", false)) << io_.error();
    EXPECT_EQ(stored("copy/sub/file"), "data");
    EXPECT_TRUE(io_.rename("copy/", "renamed/", false)) << io_.error();
    EXPECT_EQ(stored("renamed/sub/file"), "data");
    EXPECT_FALSE(is_stored("copy"));
    EXPECT_TRUE(io_.remove("renamed/sub/file")) << io_.error();
    EXPECT_FALSE(is_stored("renamed/sub/file"));
    EXPECT_TRUE(is_stored("renamed/sub"));
}

TEST_P(Dav_Peers, SayThatAFileIsMissing)
{
    EXPECT_FALSE(io_.open("missing", reading, 0, 0));
    EXPECT_THAT(io_.error(), HasSubstr("/missing: status=404"));
    EXPECT_EQ(io_.errnum(), ENOENT);
    EXPECT_FALSE(io_.retriable());
    EXPECT_EQ(io_.size("missing"), Client_IO_Base::size_unknown);
    EXPECT_THAT(io_.error(), HasSubstr("/missing, status=404"));
    EXPECT_FALSE(io_.copy("missing", "copy", true));
    EXPECT_EQ(io_.errnum(), ENOENT);
    EXPECT_FALSE(io_.rename("missing", "renamed", true));
    EXPECT_EQ(io_.errnum(), ENOENT);
    EXPECT_TRUE(io_.remove("missing")) << io_.error();
    EXPECT_TRUE(std::filesystem::is_empty(peer_.file("")));
}

TEST_P(Dav_Peers, TakeNamesOfAllCharacters)
{
    for (const char* const name :
         {"a b", "100%", "a+b", "what?", "#1", "a&b=c;d", "\xC3\xBC\xE2\x82\xAC", "%41", "[x]"})
    {
        SCOPED_TRACE(name);
        EXPECT_TRUE(io_.put_contents(name, name, false)) << io_.error();
        EXPECT_EQ(stored(name), name);
        std::string read;
        EXPECT_TRUE(io_.get_contents(name, read)) << io_.error();
        EXPECT_EQ(read, name);
        EXPECT_TRUE(io_.rename(name, "renamed", false)) << io_.error();
        EXPECT_TRUE(io_.rename("renamed", name, false)) << io_.error();
        EXPECT_EQ(stored(name), name);
        EXPECT_TRUE(io_.remove(name)) << io_.error();
        EXPECT_FALSE(is_stored(name));
    }
}

/// An operation that does not do on these servers what the interface promises. There is a file
/// "file", another one, "spare", and a directory "dir" with a file in it.
struct Deviation
{
    const char* name;
    std::function<bool(Client_IO&)> operation;
    /// What error() holds then; "" = the operation succeeds.
    const char* nginx;
    const char* apache;
};

std::ostream& operator<<(std::ostream& out, const Deviation& deviation)
{
    return out << deviation.name;
}

bool open_and_close(Client_IO& io, const char* path, unsigned mode, std::uint64_t offset)
{
    return io.open(path, mode, offset, 0) && io.close();
}

const std::vector<Deviation>& deviations()
{
    static const std::vector<Deviation> all = {
        // What the dialect has no means for is not even tried.
        {"AppendIsRefused", [](Client_IO& io) { return open_and_close(io, "file", appending, 0); },
         not_in_dialect, not_in_dialect},
        {"RandomWriteIsRefused",
         [](Client_IO& io) { return open_and_close(io, "file", random_writing, 0); },
         not_in_dialect, not_in_dialect},
        {"WritingBehindTheStartIsRefused",
         [](Client_IO& io) { return open_and_close(io, "file", overwriting, 3); }, not_in_dialect,
         not_in_dialect},
        {"TruncateIsRefused", [](Client_IO& io) { return io.truncate("file", 0); }, not_in_dialect,
         not_in_dialect},
        {"ListingIsRefused",
         [](Client_IO& io) {
             std::vector<Client_IO_Base::Directory_Entry> entries;
             return io.get_dir("dir", entries);
         },
         not_in_dialect, not_in_dialect},

        // Missing parents of a file.
        {"FilesGetNoParents",
         [](Client_IO& io) { return io.put_contents("new/file", "data", false); }, "",
         "status=409"},
        {"CopiesGetNoParents", [](Client_IO& io) { return io.copy("file", "new/file", false); },
         "status=500", "status=409"},
        {"RenamedFilesGetNoParents",
         [](Client_IO& io) { return io.rename("spare", "new/file", false); }, "", "status=500"},

        // A directory goes with all that is in it, which is not asked for.
        {"DirectoriesAreNotRemoved", [](Client_IO& io) { return io.remove("dir"); }, "status=409",
         "status=301"},
        {"NorUnderTheirOwnName", [](Client_IO& io) { return io.remove("dir/"); }, "status=400",
         "status=400"},

        // Directories are other resources with a slash behind their names.
        {"DirectoriesAreCopiedWithASlash",
         [](Client_IO& io) { return io.copy("dir", "new", false); }, "status=400", "status=301"},
        {"DirectoriesAreRenamedWithASlash",
         [](Client_IO& io) { return io.rename("dir", "new", false); }, "status=400", "status=301"},
    };
    return all;
}

class Dav_Deviations : public testing::TestWithParam<std::tuple<const char*, Deviation>>
{
protected:
    Dav_Deviations()
    {
        EXPECT_TRUE(io_.connect(peer_.uri(false).c_str(), options_of_dialect()));
        EXPECT_TRUE(io_.put_contents("file", "contents", false)) << io_.error();
        EXPECT_TRUE(io_.put_contents("spare", "spare contents", false)) << io_.error();
        EXPECT_TRUE(io_.make_dir("dir/", 0755)) << io_.error();
        EXPECT_TRUE(io_.put_contents("dir/inner", "inner contents", false)) << io_.error();
    }

    const Dav_Peer peer_{std::get<0>(GetParam())};
    Client_IO io_;
};

INSTANTIATE_TEST_SUITE_P(Of, Dav_Deviations,
                         testing::Combine(testing::Values("nginx", "apache"),
                                          testing::ValuesIn(deviations())),
                         [](const auto& about) {
                             return std::string(std::get<0>(about.param)) + '_' +
                                    std::get<1>(about.param).name;
                         });

TEST_P(Dav_Deviations, AreTheseAndDoNoHarm)
{
    const auto& [program, deviation] = GetParam();
    const std::string expected =
        program == std::string("nginx") ? deviation.nginx : deviation.apache;
    const bool done = deviation.operation(io_);
    EXPECT_EQ(done, expected.empty()) << io_.error();
    if (!expected.empty()) {
        EXPECT_THAT(io_.error(), HasSubstr(expected));
        EXPECT_FALSE(std::filesystem::exists(peer_.file("new/file")));
        EXPECT_EQ(read_local(peer_.file("spare")), "spare contents");
    }
    EXPECT_EQ(read_local(peer_.file("file")), "contents");
    EXPECT_EQ(read_local(peer_.file("dir/inner")), "inner contents");
}

class Dav_Programs : public testing::TestWithParam<const char*>
{};

INSTANTIATE_TEST_SUITE_P(Of, Dav_Programs, testing::Values("nginx", "apache"));

TEST_P(Dav_Programs, MakeDirectoriesWithTheirParentsAndTellThemFromFiles)
{
    const Dav_Peer peer(GetParam());
    Client_IO io(peer.uri(false).c_str(), options_of_dialect());
    EXPECT_TRUE(io.make_dir("a/b/c", 0755)) << io.error();
    EXPECT_TRUE(std::filesystem::is_directory(peer.file("a/b/c")));
    EXPECT_TRUE(io.make_dir("a/b", 0755)) << io.error();
    EXPECT_EQ(io.size("a/b"), Client_IO_Base::size_of_directory);
    ASSERT_TRUE(io.put_contents("file", "data", false)) << io.error();
    EXPECT_FALSE(io.make_dir("file", 0755));
    EXPECT_THAT(io.error(), HasSubstr("Failed to MKCOL"));
    EXPECT_EQ(read_local(peer.file("file")), "data");
}

TEST_P(Dav_Programs, TellThatAFileExists)
{
    const Dav_Peer peer(GetParam());
    Client_IO io(peer.uri(false).c_str(), options_of_dialect());
    ASSERT_TRUE(io.put_contents("one", "1", false)) << io.error();
    ASSERT_TRUE(io.put_contents("other", "2", false)) << io.error();
    EXPECT_FALSE(io.copy("one", "other", false));
    EXPECT_EQ(io.errnum(), EEXIST);
    EXPECT_FALSE(io.rename("one", "other", false));
    EXPECT_EQ(io.errnum(), EEXIST);
    EXPECT_EQ(read_local(peer.file("other")), "2");
}

TEST_P(Dav_Programs, AreNotTakenForOurOwnKindOfServer)
{
    const Dav_Peer peer(GetParam());
    Options options;
    options.max_retry = 0;
    Client_IO io(peer.uri(false).c_str(), options);
    EXPECT_FALSE(io.put_contents("file", "data", true));
    EXPECT_THAT(io.error(), HasSubstr("status=201"));
    EXPECT_FALSE(io.put_contents("other", "data", false));
    EXPECT_FALSE(io.make_dir("dir/", 0755));
    EXPECT_THAT(io.error(), HasSubstr("status=201"));
}

TEST_P(Dav_Programs, LetInThoseWithTheRightPassword)
{
    const Dav_Peer peer(GetParam(), "me", "p w:");
    for (const bool tls : {false, true}) {
        SCOPED_TRACE(tls ? "https" : "http");
        Options options = options_of_dialect();
        options.set_extra_option("TLS_CA_FILE", peer.certificate_file());
        for (const char* const credentials : {"", "me:wrong"}) {
            if (*credentials != '\0')
                options.set_extra_option("Authorization", basic(credentials));
            Client_IO io;
            ASSERT_TRUE(io.connect(peer.uri(tls).c_str(), options)) << io.error();
            EXPECT_FALSE(io.put_contents("file", "data", true));
            EXPECT_THAT(io.error(), HasSubstr("status=401"));
            EXPECT_FALSE(io.retriable());
            EXPECT_FALSE(std::filesystem::exists(peer.file("file")));
        }
        options.set_extra_option("Authorization", basic("me:p w:"));
        Client_IO io;
        ASSERT_TRUE(io.connect(peer.uri(tls).c_str(), options)) << io.error();
        EXPECT_TRUE(io.put_contents("file", "data", true)) << io.error();
        std::string read;
        EXPECT_TRUE(io.get_contents("file", read)) << io.error();
        EXPECT_EQ(read, "data");
        EXPECT_TRUE(io.remove("file")) << io.error();
    }
}

/// The option of a connection that shall come about, or not.
struct Trust
{
    const char* option;
    std::string value;
    bool enough;
};

TEST_P(Dav_Programs, AreTrustedForACertificateOnly)
{
    const Dav_Peer peer(GetParam());
    const Dav_Peer other(GetParam());
    const std::string fingerprint = run_program({"openssl", "x509", "-in", peer.certificate_file(),
                                                 "-noout", "-fingerprint", "-sha256"})
                                        .out;
    std::string pin = fingerprint.substr(fingerprint.find('=') + 1);
    std::erase_if(pin, [](char c) { return c == ':' || c == '\n'; });
    ASSERT_EQ(pin.size(), 64U) << fingerprint;
    std::string wrong_pin = pin;
    wrong_pin[63] = pin[63] == '0' ? '1' : '0';

    for (const auto& [option, value, enough] : std::vector<Trust>{
             {nullptr, "", false},
             {"TLS_VERIFY", "full", false},
             {"TLS_CA_FILE", other.certificate_file(), false},
             {"TLS_PINNED_SHA256", wrong_pin, false},
             {"TLS_CA_FILE", peer.certificate_file(), true},
             {"TLS_PINNED_SHA256", pin, true},
             {"TLS_VERIFY", "none", true},
         })
    {
        SCOPED_TRACE(option != nullptr ? std::string(option) + '=' + value : "nothing");
        Options options = options_of_dialect();
        if (option != nullptr)
            options.set_extra_option(option, value);
        Client_IO io;
        const bool done =
            io.connect(peer.uri(true).c_str(), options) && io.put_contents("file", "data", true);
        EXPECT_EQ(done, enough) << io.error();
        if (!enough) {
            EXPECT_THAT(io.error(), HasSubstr("certificate"));
        }
        EXPECT_EQ(std::filesystem::exists(peer.file("file")), enough);
        if (enough) {
            EXPECT_TRUE(io.remove("file")) << io.error();
        }
    }
}

} // namespace
