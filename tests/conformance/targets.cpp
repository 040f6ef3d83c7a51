#include "tests/conformance/targets.h"

#include "client_io/file_io.h"
#include "tests/conformance/backend_target.h"
#include "tests/support/memory_io.h"
#include "tests/support/temp_directory.h"

#include <utility>

namespace
{

class Memory_Target : public Backend_Target
{
public:
    using Backend_Target::Backend_Target;

    std::vector<std::string> violations() const override { return *violations_; }

protected:
    Stack::Layer storage() override { return std::make_unique<Memory_IO>(files_, violations_); }
    URI uri() const override { return {}; }

    const std::shared_ptr<Memory_File_System> files_ = std::make_shared<Memory_File_System>();

private:
    const std::shared_ptr<Memory_IO::Violations> violations_ =
        std::make_shared<Memory_IO::Violations>();
};

class Faulty_Memory_Target : public Memory_Target
{
public:
    using Memory_Target::Memory_Target;

    Fault_Counts faults() const override { return *counts_; }

protected:
    Stack::Layer backend() override
    {
        // Enough that nearly every test meets some, and every connection others than the last.
        Fault_Plan plan = random_faults({.seed = seed_ + connections_++, .probability = 0.25});
        return std::make_unique<Fault_IO>(
            storage(),
            [plan = std::move(plan), counts = counts_](const Fault_Point& point) {
                const std::optional<Fault> fault = plan(point);
                if (fault && fault->kind != Fault_Kind::short_read)
                    ++(*counts)[point.operation];
                return fault;
            },
            files_);
    }

private:
    const std::uint64_t seed_ = seed_of_faults();
    std::uint64_t connections_ = 0;
    const std::shared_ptr<Fault_Counts> counts_ = std::make_shared<Fault_Counts>();
};

class File_Target : public Backend_Target
{
public:
    using Backend_Target::Backend_Target;

protected:
    Stack::Layer storage() override { return std::make_unique<File_IO>(); }
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

class File_URI_Target : public File_Target
{
public:
    explicit File_URI_Target(const Client_IO_Base::Options& options)
        : File_Target(Stack()), options_(options)
    {}

    Stack::Layer connect() override
    {
        auto facade = std::make_unique<Client_IO>();
        EXPECT_TRUE(facade->connect(("file://" + uri().path(true)).c_str(), options_))
            << facade->error();
        return facade;
    }

private:
    Client_IO_Base::Options options_;
};

template <class Kind, class Setting>
Make_Target target(const Setting& setting)
{
    return [setting] { return std::make_unique<Kind>(setting); };
}

} // namespace

Make_Target memory_target(const Stack& stack)
{
    return target<Memory_Target>(stack);
}

Make_Target faulty_memory_target(const Stack& stack)
{
    return target<Faulty_Memory_Target>(stack);
}

Make_Target file_target(const Stack& stack)
{
    return target<File_Target>(stack);
}

Make_Target file_uri_target(const Client_IO_Base::Options& options)
{
    return target<File_URI_Target>(options);
}
