// kx_strstr_lower by itself: every candidate of every search goes through it, so it is written for
// the machine. Hays are names of 10 to 80 bytes, needles words of 3 to 10.
//
// Sixteen places are tried at once: a place passes when the folded hay has the needle's first byte
// there and its last byte where that would be. Only places that pass are compared in full.

#include <algorithm>
#include <cstring>

#include "base/string/strings.h"

#if defined(__SSE2__)
#include <bit>
#include <emmintrin.h>
#endif

namespace vorrim {

namespace {

// The bytes between the first and the last, which the caller has compared.
bool inner_matches(const char* place, std::string_view needle) noexcept {
    for (std::size_t i = 1; i + 1 < needle.size(); ++i)
        if (kx_to_lower(place[i]) != needle[i]) return false;
    return true;
}

#if defined(__SSE2__)

constexpr std::size_t kBlock = sizeof(__m128i);

__m128i load(const char* from) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

__m128i fold(__m128i bytes) noexcept {
    // 'A' moves to the least signed value, so that one signed comparison finds the letters.
    const __m128i moved = _mm_add_epi8(bytes, _mm_set1_epi8(static_cast<char>(-128 - 'A')));
    const __m128i capital = _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(-128 + 26)));
    return _mm_add_epi8(bytes, _mm_and_si128(capital, _mm_set1_epi8('a' - 'A')));
}

// One bit for each byte of the folded block that equals the wanted one.
std::uint32_t equal_bits(const char* block, __m128i wanted) noexcept {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(fold(load(block)), wanted)));
}

// `places` holds a bit for each place, counted from `base`, that passed the filter.
std::size_t first_match(const char* base, std::uint32_t places, std::string_view needle) noexcept {
    for (; places != 0; places &= places - 1) {
        const auto place = static_cast<std::size_t>(std::countr_zero(places));
        if (inner_matches(base + place, needle)) return place;
    }
    return kx_npos;
}

std::size_t find(std::string_view hay, std::string_view needle) noexcept {
    const __m128i first = _mm_set1_epi8(needle.front());
    const __m128i last = _mm_set1_epi8(needle.back());
    const std::size_t to_last = needle.size() - 1;
    const std::size_t end = hay.size() - to_last;  // places to try: 0 .. end - 1

    if (hay.size() < kBlock) {
        char block[kBlock] = {};
        std::memcpy(block, hay.data(), hay.size());
        const std::uint32_t within_hay = (1U << end) - 1;
        const std::uint32_t places =
            equal_bits(block, first) & equal_bits(block, last) >> to_last & within_hay;
        return first_match(block, places, needle);
    }
    if (end < kBlock) {
        // One block holds all places, another, which ends with the hay, all last bytes.
        const std::uint32_t firsts = equal_bits(hay.data(), first);
        const std::uint32_t lasts = equal_bits(hay.data() + hay.size() - kBlock, last);
        return first_match(hay.data(), firsts & lasts >> (kBlock - end), needle);
    }
    for (std::size_t base = 0;; base = std::min(base + kBlock, end - kBlock)) {
        const char* const block = hay.data() + base;
        const std::uint32_t places = equal_bits(block, first) & equal_bits(block + to_last, last);
        if (places != 0) {
            const std::size_t place = first_match(block, places, needle);
            if (place != kx_npos) return base + place;
        }
        // The last block may try places of the one before again; they fail again.
        if (base == end - kBlock) return kx_npos;
    }
}

#else

std::size_t find(std::string_view hay, std::string_view needle) noexcept {
    const std::size_t to_last = needle.size() - 1;
    for (std::size_t place = 0; place + to_last < hay.size(); ++place) {
        const char* const at = hay.data() + place;
        if (kx_to_lower(at[0]) == needle.front() && kx_to_lower(at[to_last]) == needle.back() &&
            inner_matches(at, needle))
            return place;
    }
    return kx_npos;
}

#endif

}  // namespace

std::size_t kx_strstr_lower(std::string_view hay, std::string_view needle) noexcept {
    if (needle.empty()) return 0;
    if (needle.size() > hay.size()) return kx_npos;
    return find(hay, needle);
}

}  // namespace vorrim
