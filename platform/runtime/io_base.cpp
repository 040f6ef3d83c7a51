#include "platform/runtime/io_base.h"

IO_Base::~IO_Base() = default;

const char* IO_Base::mode_value_to_name(unsigned mode) noexcept
{
    static constexpr const char* names[] = {"unknown", "read", "write", "append", "random write"};
    const unsigned access = mode & 0xFFU;
    return access < sizeof names / sizeof *names ? names[access] : names[0];
}
