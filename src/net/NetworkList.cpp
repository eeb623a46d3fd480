#include "net/NetworkList.h"

#include <charconv>
#include <optional>

namespace vorrim {

namespace {

constexpr unsigned kAddressBits = 32;

// Takes a decimal number of at most `most` from the front.
std::optional<unsigned> take_number(std::string_view& text, unsigned most) {
    unsigned number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || number > most) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

bool take(std::string_view& text, char wanted) {
    if (!text.starts_with(wanted)) return false;
    text.remove_prefix(1);
    return true;
}

// The mask of a prefix, whose first bit is the highest of the lowest byte.
constexpr std::uint32_t mask_of(unsigned bits) noexcept {
    if (bits == 0) return 0;
    return __builtin_bswap32(~std::uint32_t{0} << (kAddressBits - bits));
}

}  // namespace

bool NetworkList::add(std::string_view network) {
    std::uint32_t address = 0;
    for (unsigned i = 0; i < 4; ++i) {
        if (i > 0 && !take(network, '.')) return false;
        const auto number = take_number(network, 255);
        if (!number) return false;
        address |= *number << (8 * i);
    }
    unsigned bits = kAddressBits;
    if (take(network, '/')) {
        const auto prefix = take_number(network, kAddressBits);
        if (!prefix) return false;
        bits = *prefix;
    }
    if (!network.empty()) return false;
    networks_.push_back({address & mask_of(bits), mask_of(bits)});
    return true;
}

}  // namespace vorrim
