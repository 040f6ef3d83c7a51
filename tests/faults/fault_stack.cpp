#include "tests/faults/fault_stack.h"

#include <gtest/gtest.h>
#include <utility>

void Fault_Target::store(const std::string& contents)
{
    Memory_File_System::Node* node = nullptr;
    ASSERT_EQ(files->create_file(path, node), 0);
    files->begin_again(*node);
    node->bytes.write(0, contents.data(), contents.size());
}

std::string Fault_Target::contents() const
{
    const Memory_File_System::Node* node = files->find(path);
    if (node == nullptr)
        return "(missing)";
    std::string bytes(node->bytes.size(), '\0');
    node->bytes.read(0, bytes.data(), bytes.size());
    return bytes;
}

Fault_Stack::Fault_Stack(const Fault_Target& target, Fault_Plan plan, std::uint64_t buffer_size)
{
    auto layer = std::make_unique<Fault_IO>(std::make_unique<Memory_IO>(target.files, violations),
                                            std::move(plan), target.files);
    faults = layer.get();
    io = std::make_unique<Resumption_IO>(std::move(layer), buffer_size);
}

bool Fault_Stack::connect(std::uint64_t max_retry)
{
    Client_IO_Base::Options options;
    options.max_retry = max_retry;
    return io->connect(URI(), options);
}
