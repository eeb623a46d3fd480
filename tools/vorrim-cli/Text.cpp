#include "Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <wchar.h>

namespace vorrim::cli {

namespace {

constexpr std::string_view kEllipsis = "\xE2\x80\xA6";

std::size_t columns_of(std::uint32_t code) {
    const int width = ::wcwidth(static_cast<wchar_t>(code));
    return width < 0 ? 1 : static_cast<std::size_t>(width);
}

std::string formatted(const char* format, double value) {
    std::array<char, 48> buffer{};
    const int length = std::snprintf(buffer.data(), buffer.size(), format, value);
    return {buffer.data(), static_cast<std::size_t>(length)};
}

}  // namespace

std::string readable_size(std::uint64_t bytes) {
    constexpr std::array kUnits = {"%.1f KiB", "%.1f MiB", "%.1f GiB", "%.1f TiB"};
    constexpr double kStep = 1024;
    // What would be printed as 1024.0 of one unit is 1.0 of the next.
    constexpr double kRoundsUp = 1023.95;
    if (bytes < 1024) return std::to_string(bytes) + " B";
    double value = static_cast<double>(bytes) / kStep;
    std::size_t unit = 0;
    while (value >= kRoundsUp && unit + 1 < kUnits.size()) {
        value /= kStep;
        ++unit;
    }
    return formatted(kUnits.at(unit), value);
}

std::string readable_count(std::uint64_t count) {
    std::string digits = std::to_string(count);
    for (std::size_t place = digits.size(); place > 3;) {
        place -= 3;
        digits.insert(place, 1, ',');
    }
    return digits;
}

std::string readable_time(std::chrono::nanoseconds time) {
    const double seconds = std::chrono::duration<double>(time).count();
    if (seconds < 0.001) return formatted("%.0f us", seconds * 1e6);
    if (seconds < 1) return formatted("%.1f ms", seconds * 1e3);
    if (seconds < 60) return formatted("%.1f s", seconds);
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time).count();
    if (whole < 3600)
        return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
    return std::to_string(whole / 3600) + " h " + std::to_string(whole / 60 % 60) + " min";
}

std::string counted(std::uint64_t count, std::string_view singular, std::string_view plural) {
    return readable_count(count) + ' ' + std::string(count == 1 ? singular : plural);
}

std::size_t display_width(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Utf8Character character = first_character(text);
        width += columns_of(character.code);
        text.remove_prefix(character.length);
    }
    return width;
}

std::string fitted(std::string_view text, std::size_t columns) {
    if (display_width(text) <= columns) return std::string(text);
    if (columns == 0) return {};
    std::size_t used = 0;
    std::size_t taken = 0;
    while (taken < text.size()) {
        const Utf8Character character = first_character(text.substr(taken));
        const std::size_t width = columns_of(character.code);
        if (used + width > columns - 1) break;
        used += width;
        taken += character.length;
    }
    return std::string(text.substr(0, taken)) + std::string(kEllipsis);
}

std::string lowered(std::string_view text) {
    std::string low(text);
    std::transform(low.begin(), low.end(), low.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return low;
}

}  // namespace vorrim::cli
