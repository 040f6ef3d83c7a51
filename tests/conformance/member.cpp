#include "tests/conformance/member.h"

#include "client_io/file_io.h"
#include "client_io/pipe_io.h"
#include "tests/support/memory_io.h"
#include "tests/support/open_facade.h"
#include "tests/support/temp_directory.h"

#include <algorithm>

namespace
{

using Layer = std::unique_ptr<Client_IO_Base>;
using Wrap = std::function<Layer(Layer)>;

Client_IO_Base::Options plain_options()
{
    Client_IO_Base::Options options;
    options.max_retry = 0;
    return options;
}

Layer bare(Layer layer)
{
    return layer;
}

Layer through_pipe(Layer layer)
{
    return std::make_unique<Pipe_IO>(std::move(layer));
}

/// A place that a function turns into an unconnected backend.
class Backend_Target : public Target
{
public:
    explicit Backend_Target(Wrap wrap) : wrap_(std::move(wrap)) {}

    Layer connect() override
    {
        Layer layer = wrap_(backend());
        EXPECT_TRUE(layer->connect(uri(), plain_options())) << layer->error();
        return layer;
    }

protected:
    virtual Layer backend() = 0;
    virtual URI uri() const = 0;

private:
    Wrap wrap_;
};

class Memory_Target : public Backend_Target
{
public:
    using Backend_Target::Backend_Target;

protected:
    Layer backend() override { return std::make_unique<Memory_IO>(files_); }
    URI uri() const override { return {}; }

private:
    std::shared_ptr<Memory_File_System> files_ = std::make_shared<Memory_File_System>();
};

class File_Target : public Backend_Target
{
public:
    using Backend_Target::Backend_Target;

protected:
    Layer backend() override { return std::make_unique<File_IO>(); }
    URI uri() const override
    {
        URI uri;
        uri.scheme("file");
        uri.path(directory_ / "target", false);
        return uri;
    }

private:
    Temp_Directory directory_;
};

/// The facade over a layer that another target connects.
template <class Inner>
class Facade_Target : public Inner
{
public:
    using Inner::Inner;

    Layer connect() override
    {
        auto facade = std::make_unique<Open_Facade>();
        Layer inner = Inner::connect();
        inner->disconnect();
        EXPECT_TRUE(facade->connect_plain(std::move(inner), Client_IO::PROTOCOL_FILE, Inner::uri()))
            << facade->error();
        return facade;
    }
};

/// The facade as applications connect it.
class File_URI_Target : public File_Target
{
public:
    File_URI_Target() : File_Target(bare) {}

    Layer connect() override
    {
        auto facade = std::make_unique<Client_IO>();
        EXPECT_TRUE(facade->connect(("file://" + uri().path(true)).c_str(), Client_IO::Options{}))
            << facade->error();
        return facade;
    }
};

template <class Kind>
std::function<std::unique_ptr<Target>()> target(Wrap wrap)
{
    return [wrap = std::move(wrap)] { return std::make_unique<Kind>(wrap); };
}

const std::set<Deviation> file_deviations = {
    Deviation::append_size_counts_from_open, Deviation::disconnect_forgets_target,
    Deviation::disconnect_leaves_file_open,  Deviation::seek_length_limits_reading,
    Deviation::closing_nothing_succeeds,     Deviation::size_without_file_is_known,
};

/// The facade refuses to close nothing, knows no size without a file and closes files itself.
const std::set<Deviation> file_deviations_beneath_facade = {
    Deviation::append_size_counts_from_open,
    Deviation::disconnect_forgets_target,
    Deviation::seek_length_limits_reading,
};

Member backend_member(const char* name, std::function<std::unique_ptr<Target>()> make_target,
                      std::set<Deviation> deviations)
{
    return {name,  std::move(make_target),    std::move(deviations),
            false, "Operation not permitted", "Operation not permitted"};
}

Member facade_member(const char* name, std::function<std::unique_ptr<Target>()> make_target,
                     std::set<Deviation> deviations)
{
    return {name,
            std::move(make_target),
            std::move(deviations),
            true,
            "Operation not permitted in write mode",
            "Operation not permitted in read mode"};
}

} // namespace

std::ostream& operator<<(std::ostream& out, const Member& member)
{
    return out << member.name;
}

const std::vector<Member>& members()
{
    static const std::vector<Member> all = {
        backend_member("Memory", target<Memory_Target>(bare), {}),
        backend_member("MemoryThroughPipe", target<Memory_Target>(through_pipe), {}),
        facade_member("MemoryBeneathFacade", target<Facade_Target<Memory_Target>>(bare), {}),
        backend_member("File", target<File_Target>(bare), file_deviations),
        backend_member("FileThroughPipe", target<File_Target>(through_pipe), file_deviations),
        facade_member("FileThroughPipeBeneathFacade",
                      target<Facade_Target<File_Target>>(through_pipe),
                      file_deviations_beneath_facade),
        facade_member(
            "FileURI", [] { return std::make_unique<File_URI_Target>(); },
            file_deviations_beneath_facade),
    };
    return all;
}

void Conformance::SetUp()
{
    target_ = GetParam().make_target();
    io_ = target_->connect();
    ASSERT_TRUE(io_->is_connected());
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
    const std::string data = read_rest(*io);
    EXPECT_TRUE(io->close()) << io->error();
    return data;
}

std::uint64_t Conformance::stored_size(const std::string& path)
{
    return target_->connect()->size(path.c_str());
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

std::vector<std::string> Conformance::names(const std::string& path)
{
    std::vector<Client_IO_Base::Directory_Entry> entries;
    EXPECT_TRUE(io_->get_dir(path.c_str(), entries)) << io_->error();
    std::vector<std::string> result;
    for (const auto& entry : entries)
        result.push_back(entry.name + (entry.is_dir ? "/" : ""));
    std::sort(result.begin(), result.end());
    return result;
}
