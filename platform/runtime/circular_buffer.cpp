#include "platform/runtime/circular_buffer.h"

#include "platform/runtime/copy_past_cache.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <new>

namespace
{

std::unique_ptr<char[]> allocate(std::uint64_t size)
{
    if (size > std::numeric_limits<std::ptrdiff_t>::max())
        throw std::bad_array_new_length(); // no object is larger
    // Uninitialized: pages that are never written cost no memory.
    return std::make_unique_for_overwrite<char[]>(size);
}

} // namespace

Circular_Buffer::Circular_Buffer(std::uint64_t capacity, std::uint64_t start)
    : capacity_(capacity), data_(allocate(capacity)), end_(start)
{}

void Circular_Buffer::reset(std::uint64_t position)
{
    end_ = position;
    held_ = 0;
}

void Circular_Buffer::write(const void* data, std::uint64_t n)
{
    const char* bytes = static_cast<const char*>(data);
    if (n > capacity_) { // the first ones would be overwritten by the last ones
        bytes += n - capacity_;
        end_ += n - capacity_;
        n = capacity_;
        held_ = 0;
    }
    if (n == 0)
        return;
    const std::uint64_t at = end_ % capacity_;
    const std::uint64_t part = std::min(n, capacity_ - at);
    copy_past_cache(data_.get() + at, bytes, part);
    copy_past_cache(data_.get(), bytes + part, n - part);
    end_ += n;
    held_ = std::min(held_ + n, capacity_);
}

bool Circular_Buffer::read(const void*& ptr, std::int64_t& len, std::uint64_t position) const
{
    constexpr std::uint64_t furthest = std::numeric_limits<std::int64_t>::max();
    ptr = nullptr;
    len = 0;
    if (position < start())
        return false;
    if (position >= end_) {
        len = -static_cast<std::int64_t>(std::min(position - end_, furthest));
        return true;
    }
    const std::uint64_t at = position % capacity_;
    ptr = data_.get() + at;
    len = static_cast<std::int64_t>(std::min(end_ - position, capacity_ - at));
    return true;
}
