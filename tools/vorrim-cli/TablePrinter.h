#pragma once
// Rows of text under headings.
//
//     NAME            SIZE   SOURCES  HASH
//     blue sky.ogg    4.1 MiB      2  a3f0...
//     |<- flexible ->|
//
// Columns are as wide as their widest cell. When a terminal is narrower than the whole, columns
// marked optional go first, the last one marked first; then the flexible column is cut. Without a
// width nothing is left out and nothing is cut.
//
// Cells are printable text (see Text.h).

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Terminal.h"

namespace vorrim::cli {

enum class Align { left, right };
enum class Room { fixed, flexible, optional };

struct Column {
    std::string title;
    Align align = Align::left;
    Room room = Room::fixed;
};

class TablePrinter {
public:
    explicit TablePrinter(std::vector<Column> columns);

    // As many cells as columns; missing ones are empty.
    void add_row(std::vector<std::string> cells);
    [[nodiscard]] bool empty() const noexcept { return rows_.empty(); }

    // The whole table, headings first, a line end behind every line.
    [[nodiscard]] std::string text(const Terminal& terminal) const;

private:
    [[nodiscard]] std::vector<std::optional<std::size_t>> widths(
        std::optional<std::size_t> available) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace vorrim::cli
