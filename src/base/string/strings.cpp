#include "base/string/strings.h"

#include <algorithm>
#include <cstring>

namespace vorrim {

namespace {

constexpr char same(char c) noexcept {
    return c;
}

// Bytes order as signed chars, whatever `char` is on this machine.
template <char (*Fold)(char) noexcept>
int compare_byte(char a, char b) noexcept {
    const auto left = static_cast<signed char>(Fold(a));
    const auto right = static_cast<signed char>(Fold(b));
    return left < right ? -1 : (left > right ? 1 : 0);
}

template <char (*Fold)(char) noexcept>
int compare_bytes(const char* a, const char* b, std::size_t count) noexcept {
    for (std::size_t i = 0; i < count; ++i)
        if (const int order = compare_byte<Fold>(a[i], b[i]); order != 0) return order;
    return 0;
}

template <char (*Fold)(char) noexcept>
int compare_texts(std::string_view a, std::string_view b) noexcept {
    const std::size_t both = std::min(a.size(), b.size());
    if (const int order = compare_bytes<Fold>(a.data(), b.data(), both); order != 0) return order;
    if (a.size() == b.size()) return 0;
    return a.size() < b.size() ? -1 : 1;
}

template <char (*Fold)(char) noexcept>
int compare_nullable(const char* a, const char* b) noexcept {
    if (a == b) return 0;
    if (a == nullptr) return -1;
    if (b == nullptr) return 1;
    return compare_texts<Fold>(a, b);
}

}  // namespace

std::unique_ptr<char, kx_free_deleter> kx_strdup(const char* text) {
    if (text == nullptr) return nullptr;
    const std::size_t size = std::strlen(text) + 1;
    std::unique_ptr<char, kx_free_deleter> copy(static_cast<char*>(kx_malloc(size)));
    std::memcpy(copy.get(), text, size);
    return copy;
}

std::size_t kx_strlen(const char* text) noexcept {
    return text != nullptr ? std::strlen(text) : 0;
}

int kx_strcmp(const char* a, const char* b) noexcept {
    return compare_nullable<same>(a, b);
}

int kx_strcmp(std::string_view a, std::string_view b) noexcept {
    return compare_texts<same>(a, b);
}

int kx_stricmp(const char* a, const char* b) noexcept {
    return compare_nullable<kx_to_upper>(a, b);
}

int kx_stricmp(std::string_view a, std::string_view b) noexcept {
    return compare_texts<kx_to_upper>(a, b);
}

int kx_memcmp(const void* a, const void* b, std::size_t count) noexcept {
    return compare_bytes<same>(static_cast<const char*>(a), static_cast<const char*>(b), count);
}

int kx_memicmp(const void* a, const void* b, std::size_t count) noexcept {
    return compare_bytes<kx_to_upper>(static_cast<const char*>(a), static_cast<const char*>(b),
                                      count);
}

void kx_strlwr(std::span<char> text) noexcept {
    std::transform(text.begin(), text.end(), text.begin(), kx_to_lower);
}

std::int32_t kx_atoi(std::string_view text) noexcept {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    std::uint32_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') break;
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return static_cast<std::int32_t>(negative ? 0 - value : value);
}

void kx_strncpy(std::span<char> to, std::string_view from) noexcept {
    if (to.empty()) return;
    const std::size_t count = std::min(to.size() - 1, from.size());
    std::copy_n(from.data(), count, to.data());
    to[count] = '\0';
}

std::size_t stristr(std::string_view hay, std::string_view needle) noexcept {
    if (hay.empty()) return kx_npos;
    const auto found = std::search(hay.begin(), hay.end(), needle.begin(), needle.end(),
                                   [](char a, char b) { return kx_to_upper(a) == kx_to_upper(b); });
    // An empty needle is found at the start; anything else found at the end is not found.
    if (found == hay.end()) return kx_npos;
    return static_cast<std::size_t>(found - hay.begin());
}

}  // namespace vorrim
