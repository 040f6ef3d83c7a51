#include "cli/transfer.h"

#include "cli/interrupt.h"
#include "cli/resume.h"

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

} // namespace cio
