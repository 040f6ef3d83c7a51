#include "tests/conformance/member.h"

#include "tests/support/this_system.h"

#include <ace/Log_Priority.h>
#include <algorithm>
#include <cerrno>

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
    const std::size_t slash = path.rfind('/');
    if (deviates(Deviation::makes_no_parents) && slash != std::string::npos) {
        ASSERT_TRUE(io->make_dir(path.substr(0, slash).c_str(), 0750)) << io->error();
    }
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
    const std::uint64_t limit = io->size(path.c_str()) == 0 ? 0 : 65536;
    return io->open(path.c_str(), Client_IO_Base::mode_read, 0, limit) ? read_rest(*io)
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

void Conformance::expect_write_refused(const char* path, unsigned mode)
{
    if (io_->open(path, mode, 0, 0)) {
        EXPECT_TRUE(deviates(Deviation::refusals_show_at_close)) << path << ' ' << mode;
        EXPECT_FALSE(io_->close()) << path << ' ' << mode;
    }
    EXPECT_FALSE(io_->error().empty());
    EXPECT_FALSE(io_->is_open());
}

int Conformance::number_shown(int number) const
{
    constexpr int not_empty = 41;
    constexpr int protocol_error = 121;
    if (!deviates(Deviation::numbers_of_statuses))
        return number;
    if (number == this_system::errors.below_a_file)
        return EEXIST; // a conflict, as when something is there already
    return number == this_system::errors.directory_not_empty ? not_empty : protocol_error;
}

std::string Conformance::name_shown(const std::string& name) const
{
    if (!deviates(Deviation::names_are_listed_as_utf8))
        return name;
    // What is in no character of UTF-8 is shown as U+F700 and the byte.
    std::string shown;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0xF8)
            shown += c;
        else
            shown += {'\xEF', '\x9F', static_cast<char>(0x80U | (byte & 0x3FU))};
    }
    return shown;
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
    EXPECT_TRUE(get_dir(path, entries, io)) << io.error();
    std::vector<std::string> result;
    for (const auto& entry : entries)
        result.push_back(entry.name + (entry.is_dir ? "/" : ""));
    std::sort(result.begin(), result.end());
    return result;
}

bool Conformance::get_dir(const std::string& path,
                          std::vector<Client_IO_Base::Directory_Entry>& entries, Client_IO_Base& io)
{
    if (!deviates(Deviation::lists_nothing))
        return io.get_dir(path.c_str(), entries);
    EXPECT_FALSE(io.get_dir(path.c_str(), entries));
    EXPECT_EQ(io.error(), GetParam().unsupported);
    return target_->connect_below()->get_dir(path.c_str(), entries);
}

bool Conformance::truncate(const std::string& path, std::uint64_t size)
{
    if (!deviates(Deviation::truncates_nothing))
        return io_->truncate(path.c_str(), size);
    EXPECT_FALSE(io_->truncate(path.c_str(), size));
    EXPECT_EQ(io_->error(), GetParam().unsupported);
    return target_->connect_below()->truncate(path.c_str(), size);
}

bool Conformance::refuses_to_write_within(const char* path, unsigned mode, std::uint64_t offset)
{
    if (deviates(Deviation::whole_files_only)) {
        expect_refused_open(path, mode, offset, GetParam().unsupported);
        return true;
    }
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
    if (deviates(Deviation::whole_files_only)) {
        expect_refused_open(path, Client_IO_Base::mode_append, 0, GetParam().unsupported);
        return true;
    }
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
