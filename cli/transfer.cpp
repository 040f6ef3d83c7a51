#include "cli/transfer.h"

#include "cli/interrupt.h"
#include "cli/resume.h"
#include "platform/runtime/file_system.h"

namespace cio
{

bool shall_stop(std::uint64_t position, std::uint64_t size)
{
    if (!interrupt::requested())
        return false;
    const bool nearly_done = size != Client_IO_Base::size_unknown && position <= size &&
                             size - position < worth_continuing;
    return !nearly_done;
}

std::string changed_text(std::uint64_t kept)
{
    return "changed while it was read (" + std::to_string(kept) + " bytes of it stay there)";
}

bool open_for_writing(Client_IO& io, const std::string& path, unsigned mode, std::uint64_t start,
                      Failure& failure)
{
    if (io.open(path.c_str(), mode, start, 0))
        return true;
    failure = target_failure(io);
    // Backends need not give a number for this refusal, so the target is asked.
    if ((mode & Client_IO_Base::mode_overwrite) == 0 &&
        io.size(path.c_str()) != Client_IO_Base::size_unknown)
        failure.code = exit_exists;
    else if (failure.code == exit_exists || failure.code == exit_not_found)
        failure.code = exit_failed; // it is about what stands in the way, not about the file
    return false;
}

bool remove_unfinished(Client_IO& io, const Target& target, const std::string& path, bool replaces)
{
    const std::optional<std::string> local = target.local_path(path);
    file_system::Status status;
    if (local ? !file_system::status(local->c_str(), false, status) || !status.is_file() : replaces)
        return false;
    return io.remove(path.c_str());
}

std::string kept_text(std::uint64_t kept, const Target& target, const std::string& path,
                      bool replaces)
{
    const std::string bytes = std::to_string(kept) + " bytes of it";
    return replaces && !target.local_path(path)
               ? " (" + bytes + " may stay there, or what was there before)"
               : " (" + bytes + " stay there)";
}

} // namespace cio
