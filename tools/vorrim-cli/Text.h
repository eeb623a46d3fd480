#pragma once
// Numbers and texts as people read them.
//
// Whatever came from the network passes `printable` before it reaches a terminal.
//
// Values in, values out; no state, any thread.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/string/printable.h"

namespace vorrim::cli {

[[nodiscard]] std::string readable_size(std::uint64_t bytes);            // "812 B", "1.4 MiB"
[[nodiscard]] std::string readable_count(std::uint64_t count);           // "52,034"
[[nodiscard]] std::string readable_time(std::chrono::nanoseconds time);  // "3.1 ms", "1 min 20 s"
// "1 file", "2,000 files"
[[nodiscard]] std::string counted(std::uint64_t count, std::string_view singular,
                                  std::string_view plural);

// Columns that a printable text takes on a terminal, and its longest start that fits into
// `columns`, which ends with an ellipsis when something was cut off.
[[nodiscard]] std::size_t display_width(std::string_view text);
[[nodiscard]] std::string fitted(std::string_view text, std::size_t columns);

// A to Z lowered, everything else unchanged.
[[nodiscard]] std::string lowered(std::string_view text);

}  // namespace vorrim::cli
