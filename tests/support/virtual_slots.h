#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Virtual functions by their number, as the Itanium C++ ABI (GCC, Clang, MinGW) lays them out: a
// pointer to a virtual member function holds 1 + the byte offset of its slot. Slots 0 and 1 are
// the two destructors.

namespace virtual_slots
{

struct Representation
{
    std::ptrdiff_t slot_offset_plus_1;
    std::ptrdiff_t adjustment;
};

} // namespace virtual_slots

/// The member function pointer that calls whatever stands in slot @p number of its object.
template <class Function>
Function in_slot(std::size_t number)
{
    const virtual_slots::Representation raw = {
        static_cast<std::ptrdiff_t>(1 + number * sizeof(void*)), 0};
    Function function;
    static_assert(sizeof function == sizeof raw);
    std::memcpy(&function, &raw, sizeof function);
    return function;
}

/// The number of the slot that @p function is called through, -1 when it is not virtual.
template <class Function>
std::ptrdiff_t slot_of(Function function)
{
    virtual_slots::Representation raw;
    static_assert(sizeof function == sizeof raw);
    std::memcpy(&raw, &function, sizeof raw);
    if (raw.slot_offset_plus_1 % 2 == 0)
        return -1;
    return (raw.slot_offset_plus_1 - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// How many slots @p Base has: a derived class puts its first new virtual function behind them.
template <class Base>
std::ptrdiff_t slot_count()
{
    struct Derived : Base
    {
        virtual void behind_the_last_slot() {}
    };
    return slot_of(&Derived::behind_the_last_slot);
}
