#pragma once

#include "cli/transfer.h"

namespace cio
{

/// One pair of files to compare.
struct Verify_Job
{
    std::string local;
    std::string remote;

    std::size_t weight() const { return local.size() + remote.size(); }
};

/// Compares local files with those of a target, over a connection of its own.
class Verify_Worker
{
public:
    /// @param workers  how many share the target's limit
    Verify_Worker(const Target& target, Reporter& report, unsigned workers)
        : connection_(target, workers), report_(report)
    {}

    void run(const Verify_Job& job);

private:
    void compare(Client_IO& io, const Verify_Job& job);

    Connection connection_;
    Reporter& report_;
    File_Reader reader_;
};

} // namespace cio
