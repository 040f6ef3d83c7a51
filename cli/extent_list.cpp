#include "cli/extent_list.h"

#include <algorithm>

namespace cio
{

void Extent_List::add(std::uint64_t offset, std::uint64_t length)
{
    const std::uint64_t mask = block_size_ - 1; // a power of two
    const std::uint64_t from = offset & ~mask;
    const std::uint64_t to = (offset + length + mask) & ~mask;
    if (!extents_.empty()) {
        Extent& last = extents_.back();
        if (from >= last.offset && from <= last.end()) {
            last.length = std::max(last.end(), to) - last.offset;
            return;
        }
        ascending_ = ascending_ && from > last.offset;
    }
    extents_.push_back({from, to - from});
}

void Extent_List::finish()
{
    if (ascending_)
        return;
    std::sort(extents_.begin(), extents_.end(),
              [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
    auto kept = extents_.begin();
    for (auto next = kept + 1; next != extents_.end(); ++next) {
        if (next->offset <= kept->end())
            kept->length = std::max(kept->end(), next->end()) - kept->offset;
        else
            *++kept = *next;
    }
    extents_.erase(kept + 1, extents_.end());
    ascending_ = true;
}

void Extent_List::clear()
{
    extents_ = {};
    ascending_ = true;
}

std::uint64_t Extent_List::bytes() const
{
    std::uint64_t sum = 0;
    for (const Extent& extent : extents_)
        sum += extent.length;
    return sum;
}

} // namespace cio
