#include "tests/conformance/member.h"

#include <ace/Log_Priority.h>
#include <algorithm>

std::ostream& operator<<(std::ostream& out, const Member& member)
{
    return out << member.name;
}

std::vector<Member> faulty_members()
{
    std::vector<Member> result;
    std::copy_if(members().begin(), members().end(), std::back_inserter(result),
                 [](const Member& member) { return member.is_faulty; });
    return result;
}

void Conformance::SetUp()
{
    target_ = GetParam().make_target();
    io_ = target_->connect();
    ASSERT_TRUE(io_->is_connected());
}

void Conformance::TearDown()
{
    io_.reset();
    // The one call that the facade lets through while a file is open.
    const std::string asking_for_a_size = "size while a file is open";
    const std::vector<std::string> violations = target_->violations();
    for (const std::string& call : violations) {
        const bool by_the_test = misuses_.contains(call);
        EXPECT_TRUE(by_the_test && (!GetParam().is_facade || call == asking_for_a_size)) << call;
    }
    if (GetParam().name == "Memory") {
        for (const std::string& call : misuses_)
            EXPECT_NE(std::find(violations.begin(), violations.end(), call), violations.end())
                << "not noted: " << call;
    }
    for (const Log_Capture::Message& message : log_.messages()) {
        const bool emergency = message.priority == static_cast<unsigned long>(LM_EMERGENCY);
        EXPECT_FALSE(emergency && (misuses_.empty() || GetParam().is_facade)) << message.text;
    }
    if (!GetParam().is_faulty) {
        EXPECT_LT(clock_.time, std::chrono::seconds(1));
    }
}

void Conformance::store(const std::string& path, const std::string& data)
{
    const auto io = target_->connect();
    ASSERT_TRUE(
        io->open(path.c_str(), Client_IO_Base::mode_write | Client_IO_Base::mode_overwrite, 0, 0))
        << io->error();
    ASSERT_TRUE(io->write(data.data(), data.size())) << io->error();
    ASSERT_TRUE(io->close()) << io->error();
}

std::string Conformance::stored(const std::string& path)
{
    const auto io = target_->connect();
    EXPECT_TRUE(io->open(path.c_str(), Client_IO_Base::mode_read, 0, 0)) << io->error();
    if (!io->is_open())
        return {};
    const std::string data = read_rest(*io);
    EXPECT_TRUE(io->close()) << io->error();
    return data;
}

std::uint64_t Conformance::stored_size(const std::string& path)
{
    return target_->connect()->size(path.c_str());
}

std::string Conformance::stored_below(const std::string& path)
{
    const auto io = target_->connect_below();
    return io->open(path.c_str(), Client_IO_Base::mode_read, 0, 65536) ? read_rest(*io)
                                                                       : "(missing)";
}

std::uint64_t Conformance::size_below(const std::string& path)
{
    return target_->connect_below()->size(path.c_str());
}

std::uint64_t Conformance::size_shown(const std::string& path, std::uint64_t plain)
{
    const std::uint64_t below = size_below(path);
    EXPECT_NE(below, Client_IO_Base::size_unknown) << path;
    EXPECT_EQ(below != plain, deviates(Deviation::stored_size_differs)) << path;
    return below;
}

std::string Conformance::read_rest(Client_IO_Base& io, std::size_t block)
{
    std::string data;
    std::string buffer(block, '\0');
    for (;;) {
        const std::int64_t n = io.read(buffer.data(), buffer.size());
        EXPECT_GE(n, 0) << io.error();
        if (n <= 0)
            return data;
        EXPECT_LE(static_cast<std::size_t>(n), block);
        data.append(buffer, 0, static_cast<std::size_t>(n));
    }
}

std::string Conformance::read_as_far_as_possible(const std::string& path, bool* failed)
{
    const auto io = target_->connect();
    EXPECT_TRUE(io->open(path.c_str(), Client_IO_Base::mode_read, 0, 0)) << io->error();
    std::string data;
    std::string buffer(4096, '\0');
    std::int64_t n = 0;
    while ((n = io->read(buffer.data(), buffer.size())) > 0)
        data.append(buffer, 0, static_cast<std::size_t>(n));
    if (n < 0) {
        EXPECT_FALSE(io->error().empty());
        EXPECT_FALSE(io->retriable());
        EXPECT_EQ(io->read(buffer.data(), buffer.size()), -1);
    }
    if (failed != nullptr)
        *failed = n < 0;
    return data;
}

std::string Conformance::read_damaged(const std::string& path)
{
    bool failed = false;
    std::string data = read_as_far_as_possible(path, &failed);
    EXPECT_TRUE(failed) << path << " is damaged and ends like a whole one";
    return data;
}

std::vector<std::string> Conformance::names(const std::string& path, Client_IO_Base& io)
{
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(io.get_dir(path.c_str(), entries)) << io.error();
    std::vector<std::string> result;
    for (const auto& entry : entries)
        result.push_back(entry.name + (entry.is_dir ? "/" : ""));
    std::sort(result.begin(), result.end());
    return result;
}

bool Conformance::refuses_to_write_within(const char* path, unsigned mode, std::uint64_t offset)
{
    if (!deviates(Deviation::one_stream))
        return false;
    const bool random = (mode & Client_IO_Base::mode_access) == Client_IO_Base::mode_random_write;
    // A layer looks at the offset first, the facade at the mode.
    expect_refused_open(path, mode, offset,
                        random && (offset == 0 || GetParam().is_facade)
                            ? "Random write mode is not supported with compression or encryption"
                            : "Invalid offset");
    return true;
}

bool Conformance::refuses_to_append(const char* path)
{
    if (!deviates(Deviation::no_append_to_contents))
        return false;
    expect_refused_open(path, Client_IO_Base::mode_append, 0, "Invalid offset");
    return true;
}

bool Conformance::refuses_to_seek(std::uint64_t offset, std::uint64_t length)
{
    if (!deviates(Deviation::one_stream))
        return false;
    EXPECT_FALSE(io_->seek(offset, length));
    EXPECT_EQ(io_->error(), "Not seekable");
    EXPECT_TRUE(io_->is_open());
    return true;
}

void Conformance::expect_refused_open(const char* path, unsigned mode, std::uint64_t offset,
                                      const std::string& text)
{
    const std::string before = stored_below(path);
    const std::uint64_t size_before = size_below(path);
    const std::vector<std::string> names_before = names("");
    EXPECT_FALSE(io_->open(path, mode, offset, 0));
    EXPECT_EQ(io_->error(), text);
    EXPECT_FALSE(io_->is_open());
    EXPECT_FALSE(io_->write("x", 1));
    EXPECT_EQ(names(""), names_before);
    EXPECT_EQ(size_below(path), size_before);
    EXPECT_TRUE(stored_below(path) == before);
}
