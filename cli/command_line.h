#pragma once

namespace cio
{

/// Reads the command line, carries the command out and tells the exit code.
[[nodiscard]] int run(int argc, const char* const* argv) noexcept;

} // namespace cio
