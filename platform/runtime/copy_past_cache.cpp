#include "platform/runtime/copy_past_cache.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

void copy_past_cache(void* to, const void* from, std::size_t size)
{
    auto* out = static_cast<char*>(to);
    const auto* in = static_cast<const char*>(from);
#if defined(__SSE2__)
    constexpr std::size_t line = 64; // bytes, stored at once
    constexpr std::size_t worth_it = 4096;
    if (size >= worth_it) {
        const std::size_t head = -reinterpret_cast<std::uintptr_t>(out) % line;
        std::memcpy(out, in, head);
        out += head;
        in += head;
        size -= head;
        for (; size >= line; size -= line, in += line, out += line) {
            const auto* source = reinterpret_cast<const __m128i*>(in);
            auto* target = reinterpret_cast<__m128i*>(out);
            const __m128i a = _mm_loadu_si128(source);
            const __m128i b = _mm_loadu_si128(source + 1);
            const __m128i c = _mm_loadu_si128(source + 2);
            const __m128i d = _mm_loadu_si128(source + 3);
            _mm_stream_si128(target, a);
            _mm_stream_si128(target + 1, b);
            _mm_stream_si128(target + 2, c);
            _mm_stream_si128(target + 3, d);
        }
        _mm_sfence(); // another thread may be the next to use the object
    }
#endif
    std::memcpy(out, in, size);
}
