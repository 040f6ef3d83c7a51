#pragma once

#include "cli/resume.h"
#include "cli/transfer.h"
#include "platform/runtime/file_system.h"

namespace cio
{

/// One file to restore.
struct Get_Job
{
    std::string remote;
    std::string local;
    Source_Version source; ///< as the target listed it; used by a resumed transfer
    bool inside = false;   ///< below a directory that is being restored: links are not followed
    bool recorded = false; ///< the target was not asked: source is what the record says

    std::size_t weight() const { return local.size() + remote.size(); }
};

/// Restores files of a target, over a connection of its own.
class Get_Worker
{
public:
    /// @param workers  how many share the transfer's limit
    explicit Get_Worker(Transfer& transfer, unsigned workers = 1)
        : transfer_(transfer), connection_(transfer.target, workers)
    {}

    void run(const Get_Job& job);

private:
    void get(Client_IO& io, const Get_Job& job);
    bool check_local(const Get_Job& job, const file_system::Status& there);
    std::uint64_t find_start(const Get_Job& job, const file_system::Status& there,
                             std::uint64_t& compare_from);
    bool open_remote(Client_IO& io, const Get_Job& job, std::uint64_t& start,
                     std::uint64_t compare_from, Source_Version& source);
    std::optional<bool> same_bytes(Client_IO& io, const Get_Job& job, std::uint64_t at,
                                   std::uint64_t end);
    bool next_block(Client_IO& io);
    bool open_local(Client_IO& io, const Get_Job& job, bool exists, std::uint64_t start);
    bool move(Client_IO& io, const Get_Job& job, std::uint64_t start, std::uint64_t expected);
    void stop(const Get_Job& job, std::uint64_t position);
    void abandon(Client_IO& io, const Get_Job& job, Failure failure, std::uint64_t position);
    void abandon_damaged(Client_IO& io, const Get_Job& job, std::uint64_t position);
    void fail(const std::string& path, const Failure& failure)
    {
        transfer_.report.error(path, failure);
    }

    Transfer& transfer_;
    Connection connection_;
    File_Writer writer_;
    const char* data_ = nullptr; // the block that was read last
    std::uint64_t size_ = 0;
};

} // namespace cio
