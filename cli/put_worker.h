#pragma once

#include "cli/resume.h"
#include "cli/transfer.h"
#include "platform/runtime/file_system.h"

namespace cio
{

/// One file (or empty directory) to store.
struct Put_Job
{
    std::string local;
    std::string remote;
    bool directory = false;
    std::optional<Partial_File> existing; ///< what a resumed transfer found at the target

    std::size_t weight() const { return local.size() + remote.size(); }
};

/// Stores local files in a target, over a connection of its own.
class Put_Worker
{
public:
    /// @param workers  how many share the transfer's limit
    explicit Put_Worker(Transfer& transfer, unsigned workers = 1)
        : transfer_(transfer), connection_(transfer.target, workers)
    {}

    void run(const Put_Job& job);
    /// Stores what standard input brings.
    void run_standard_input(const std::string& remote);

private:
    void put(Client_IO& io, const Put_Job& job);
    /// Whether a file that stands at the destination is written over.
    bool replaces(const Put_Job& job) const
    {
        return transfer_.overwrite || (transfer_.resume && job.existing);
    }
    std::uint64_t find_start(Client_IO& io, const Put_Job& job, const file_system::Status& status);
    std::string obstacle(const Put_Job& job, const file_system::Status& status, bool transforms,
                         const std::optional<Source_Version>& record);
    bool same_bytes(Client_IO& io, const Put_Job& job, std::uint64_t at, std::uint64_t end,
                    bool whole);
    bool open_remote(Client_IO& io, const Put_Job& job, unsigned mode, std::uint64_t start);
    bool move(Client_IO& io, const Put_Job& job, const file_system::Status& status,
              std::uint64_t start);
    void stop(Client_IO& io, const Put_Job& job, std::uint64_t position,
              const Resume_Record* record);
    void abandon(Client_IO& io, const Put_Job& job, Failure failure, std::uint64_t position);
    void fail(const std::string& path, const Failure& failure)
    {
        transfer_.report.error(path, failure);
    }

    Transfer& transfer_;
    Connection connection_;
    File_Reader reader_;
    char* data_ = nullptr; // the block that was read last
    std::int64_t size_ = 0;
};

} // namespace cio
