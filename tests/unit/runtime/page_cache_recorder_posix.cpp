#include "tests/unit/runtime/page_cache_recorder.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace
{

Page_Cache_Recorder* recorder = nullptr;

} // namespace

Page_Cache_Recorder::Page_Cache_Recorder()
{
    recorder = this;
}

Page_Cache_Recorder::~Page_Cache_Recorder()
{
    recorder = nullptr;
}

std::vector<Page_Cache_Recorder::Call> Page_Cache_Recorder::calls(Hint hint) const
{
    std::vector<Call> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [hint](const Call& call) { return call.hint == hint; });
    return found;
}

void Page_Cache_Recorder::add(Hint hint, std::int64_t offset, std::int64_t size)
{
    calls_.push_back({hint, static_cast<std::uint64_t>(offset), static_cast<std::uint64_t>(size)});
}

int posix_fadvise(int /*handle*/, off_t offset, off_t size, int advice) noexcept
{
    if (recorder == nullptr)
        return 0;
    recorder->add(advice == POSIX_FADV_SEQUENTIAL ? Page_Cache_Recorder::Hint::sequential
                  : advice == POSIX_FADV_WILLNEED ? Page_Cache_Recorder::Hint::fetch
                                                  : Page_Cache_Recorder::Hint::forget,
                  offset, size);
    return recorder->result();
}

int sync_file_range(int /*handle*/, off64_t offset, off64_t size, unsigned /*flags*/)
{
    if (recorder == nullptr)
        return 0;
    recorder->add(Page_Cache_Recorder::Hint::store, offset, size);
    if (recorder->result() == 0)
        return 0;
    errno = recorder->result();
    return -1;
}
