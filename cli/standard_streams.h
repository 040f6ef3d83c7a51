#pragma once

namespace cio
{

/// Gives a standard stream that the caller has closed to something harmless: the next file that is
/// opened would otherwise take its place, and messages would be written into somebody's data. Using
/// such a stream fails, as it would without this. To be called before anything is opened.
void occupy_standard_streams() noexcept;

} // namespace cio
