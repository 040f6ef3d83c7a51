#include "cli/extent_list.h"

#include <algorithm>
#include <new>
#include <type_traits>

namespace cio
{

void Extent_List::add(std::uint64_t offset, std::uint64_t length)
{
    const std::uint64_t mask = block_size_ - 1; // of a power of two
    const std::uint64_t from = offset & ~mask;
    const std::uint64_t to = (offset + length + mask) & ~mask;
    if (count_ > 0) {
        Extent& last = extents_[count_ - 1];
        if (from >= last.offset && from <= last.end()) {
            last.length = std::max(last.end(), to) - last.offset;
            return;
        }
        ascending_ = ascending_ && from > last.offset;
    }
    append({from, to - from});
}

void Extent_List::append(const Extent& extent)
{
    static_assert(std::is_trivially_copyable_v<Extent>);
    if (count_ == capacity_) {
        const std::size_t capacity = capacity_ + capacity_ / 2 + 1024;
        void* const grown = std::realloc(extents_.get(), capacity * sizeof(Extent));
        if (grown == nullptr)
            throw std::bad_alloc();
        (void)extents_.release();
        extents_.reset(static_cast<Extent*>(grown));
        capacity_ = capacity;
    }
    extents_[count_++] = extent;
}

void Extent_List::finish()
{
    if (ascending_)
        return;
    Extent* const end = extents_.get() + count_;
    std::sort(extents_.get(), end,
              [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
    Extent* kept = extents_.get();
    for (const Extent* next = kept + 1; next != end; ++next) {
        if (next->offset <= kept->end())
            kept->length = std::max(kept->end(), next->end()) - kept->offset;
        else
            *++kept = *next;
    }
    count_ = static_cast<std::size_t>(kept + 1 - extents_.get());
    ascending_ = true;
}

void Extent_List::clear()
{
    extents_.reset();
    count_ = capacity_ = 0;
    ascending_ = true;
}

std::uint64_t Extent_List::bytes() const
{
    std::uint64_t sum = 0;
    for (const Extent& extent : extents())
        sum += extent.length;
    return sum;
}

} // namespace cio
