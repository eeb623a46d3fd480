#include "meta/ClientId.h"

#include <optional>

namespace vorrim {

namespace {

constexpr unsigned kOctets = 4;
constexpr unsigned kOctetBits = 8;
constexpr std::uint32_t kOctetMask = 0xFF;

bool is_space(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) noexcept {
    return c >= '0' && c <= '9';
}

// Takes a number off the front of `text`, modulo 2^32: only its low byte is of interest.
std::optional<std::uint32_t> take_number(std::string_view& text) noexcept {
    while (!text.empty() && is_space(text.front()))
        text.remove_prefix(1);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty() || !is_digit(text.front())) return std::nullopt;
    std::uint32_t value = 0;
    while (!text.empty() && is_digit(text.front())) {
        value = value * 10 + static_cast<std::uint32_t>(text.front() - '0');
        text.remove_prefix(1);
    }
    return negative ? 0U - value : value;
}

}  // namespace

std::string ipToText(std::uint32_t ip) {
    std::string text;
    for (unsigned i = 0; i < kOctets; ++i) {
        if (i > 0) text += '.';
        text += std::to_string(ip >> (i * kOctetBits) & kOctetMask);
    }
    return text;
}

std::uint32_t textToIp(std::string_view text) noexcept {
    std::uint32_t ip = 0;
    for (unsigned i = 0; i < kOctets; ++i) {
        if (i > 0) {
            if (text.empty() || text.front() != '.') return 0;
            text.remove_prefix(1);
        }
        const auto number = take_number(text);
        if (!number) return 0;
        ip |= (*number & kOctetMask) << (i * kOctetBits);
    }
    return ip;
}

}  // namespace vorrim
