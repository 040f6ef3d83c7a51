#pragma once

#include "client_io/resumption_io.h"
#include "tests/support/fault_io.h"
#include "tests/support/memory_io.h"

#include <memory>
#include <string>

/// A target in memory with one file of interest.
class Fault_Target
{
public:
    static constexpr const char* path = "file";

    void store(const std::string& contents);
    /// @return what the file holds, "(missing)" when there is none
    std::string contents() const;

    std::shared_ptr<Memory_File_System> files = std::make_shared<Memory_File_System>();
};

/// Retries, above planned faults, above storage that watches the order of calls. Destroyed before
/// its target.
class Fault_Stack
{
public:
    static constexpr std::uint64_t retry_seconds = 600;

    Fault_Stack(const Fault_Target& target, Fault_Plan plan, std::uint64_t buffer_size);

    bool connect(std::uint64_t max_retry = retry_seconds);

    std::shared_ptr<Memory_IO::Violations> violations = std::make_shared<Memory_IO::Violations>();
    Fault_IO* faults = nullptr; ///< the middle layer
    std::unique_ptr<Resumption_IO> io;
};
