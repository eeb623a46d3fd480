#include "TablePrinter.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "Text.h"

namespace vorrim::cli {

namespace {

constexpr std::size_t kGap = 2;              // columns between two cells
constexpr std::size_t kFewestFlexible = 24;  // below this, optional columns make room
constexpr std::size_t kLeastReadable = 8;    // a flexible cell is never cut shorter

std::size_t total(const std::vector<std::optional<std::size_t>>& widths) {
    std::size_t sum = 0;
    for (const auto& width : widths) {
        if (width) sum += *width + kGap;
    }
    return sum == 0 ? 0 : sum - kGap;
}

}  // namespace

TablePrinter::TablePrinter(std::vector<Column> columns) : columns_(std::move(columns)) {}

void TablePrinter::add_row(std::vector<std::string> cells) {
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
}

// The width of every column, none for one that is left out.
std::vector<std::optional<std::size_t>> TablePrinter::widths(
    std::optional<std::size_t> available) const {
    std::vector<std::optional<std::size_t>> result;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        std::size_t widest = display_width(columns_[c].title);
        for (const auto& row : rows_)
            widest = std::max(widest, display_width(row[c]));
        result.emplace_back(widest);
    }
    if (!available) return result;

    std::size_t flexible = columns_.size();
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        if (columns_[c].room == Room::flexible) flexible = c;
    }
    // What the table takes when the flexible column gets only what it needs to be useful.
    const auto squeezed = [&] {
        std::size_t sum = total(result);
        if (flexible < result.size() && *result[flexible] > kFewestFlexible) {
            sum -= *result[flexible] - kFewestFlexible;
        }
        return sum;
    };
    for (std::size_t c = columns_.size(); c-- > 0 && squeezed() > *available;) {
        if (columns_[c].room == Room::optional) result[c].reset();
    }
    const std::size_t needed = total(result);
    if (needed > *available && flexible < result.size()) {
        const std::size_t excess = needed - *available;
        const std::size_t width = *result[flexible];
        result[flexible] =
            width > excess + kLeastReadable ? width - excess : std::min(width, kLeastReadable);
    }
    return result;
}

std::string TablePrinter::text(const Terminal& terminal) const {
    const auto column_widths = widths(terminal.width());
    const auto line = [&](const auto& cell_of) {
        std::string out;
        std::size_t owed = 0;  // blanks that only count when something follows
        for (std::size_t c = 0; c < columns_.size(); ++c) {
            if (!column_widths[c]) continue;
            const std::string cell = fitted(cell_of(c), *column_widths[c]);
            const std::size_t padding = *column_widths[c] - display_width(cell);
            if (!cell.empty()) {
                if (columns_[c].align == Align::right) owed += padding;
                out.append(owed, ' ');
                out += cell;
                owed = 0;
            }
            if (cell.empty() || columns_[c].align == Align::left) owed += padding;
            owed += kGap;
        }
        return out;
    };
    std::string out =
        terminal.on_output(Style::bold, line([&](std::size_t c) { return columns_[c].title; })) +
        '\n';
    for (const auto& row : rows_)
        out += line([&](std::size_t c) { return row[c]; }) + '\n';
    return out;
}

}  // namespace vorrim::cli
