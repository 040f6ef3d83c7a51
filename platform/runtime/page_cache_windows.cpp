#include "platform/runtime/page_cache.h"

// The system takes such hints only when a file is opened, for all of it.
namespace page_cache
{

void expect_sequential(ACE_HANDLE /*handle*/) {}
void fetch(ACE_HANDLE /*handle*/, std::uint64_t /*offset*/, std::uint64_t /*size*/) {}
void store(ACE_HANDLE /*handle*/, std::uint64_t /*offset*/, std::uint64_t /*size*/) {}
void forget(ACE_HANDLE /*handle*/, std::uint64_t /*offset*/, std::uint64_t /*size*/) {}

} // namespace page_cache
