#include "base/string/printable.h"

namespace vorrim {

namespace {

bool harmless(std::uint32_t code) {
    if (code == kNotUtf8) return false;
    if (code < 0x20 || (code >= 0x7F && code < 0xA0)) return false;
    const bool turns_direction =
        (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
    const bool breaks_line = code == 0x2028 || code == 0x2029;
    return !turns_direction && !breaks_line;
}

std::string replaced(std::string_view text, std::string_view kept) {
    std::string safe;
    safe.reserve(text.size());
    while (!text.empty()) {
        const Utf8Character character = first_character(text);
        if (harmless(character.code) || kept.find(text.front()) != std::string_view::npos) {
            safe += text.substr(0, character.length);
        } else {
            safe += '?';
        }
        text.remove_prefix(character.length);
    }
    return safe;
}

}  // namespace

Utf8Character first_character(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    std::size_t length = 0;
    std::uint32_t code = 0;
    std::uint32_t lowest = 0;  // what a sequence of this length has to reach: no overlong forms
    if ((lead & 0xE0) == 0xC0) {
        length = 2, code = lead & 0x1Fu, lowest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, code = lead & 0x0Fu, lowest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, code = lead & 0x07u, lowest = 0x10000;
    } else {
        return {kNotUtf8, 1};
    }
    if (text.size() < length) return {kNotUtf8, 1};
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {kNotUtf8, 1};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < lowest || code > 0x10FFFF || surrogate) return {kNotUtf8, 1};
    return {code, length};
}

std::string printable(std::string_view text) {
    return replaced(text, "");
}

std::string printable_lines(std::string_view text) {
    return replaced(text, "\t\n");
}

}  // namespace vorrim
