// RowList against a sorted vector, in all of its forms.
#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "client/index/RowList.h"

namespace vorrim {
namespace {

using Rows = std::vector<std::uint32_t>;

// Takes the runs of a visit apart again; stops after `most` rows.
struct Collector {
    Rows found;
    std::size_t most = SIZE_MAX;
    std::size_t windows = 0;

    bool take(std::uint32_t row) {
        found.push_back(row);
        return found.size() < most;
    }
    bool rows(std::span<const std::uint32_t> run) {
        return std::all_of(run.begin(), run.end(), [this](std::uint32_t row) { return take(row); });
    }
    bool window(std::uint32_t base, RowBlocks::Window bits, std::uint32_t first) {
        ++windows;
        EXPECT_EQ(base % RowBlocks::kWindowRows, 0u);
        for (std::uint32_t i = first - base; i < RowBlocks::kWindowRows; ++i)
            if ((bits[i / 64] >> (i % 64) & 1) != 0 && !take(base + i)) return false;
        return true;
    }
};

Collector visited(const RowList& list, std::uint32_t from = 0, std::size_t most = SIZE_MAX) {
    Collector collector{{}, most, 0};
    const bool reached_end = list.visit(from, collector);
    EXPECT_EQ(reached_end, collector.found.size() < most);
    return collector;
}

void expect_same(const RowList& list, const Rows& rows, std::mt19937& random) {
    ASSERT_EQ(list.size(), rows.size());
    ASSERT_EQ(visited(list).found, rows);
    Rows unpacked;
    list.for_each([&](std::uint32_t row) { unpacked.push_back(row); });
    ASSERT_EQ(unpacked, rows);
    for (int i = 0; i < 4 && !rows.empty(); ++i) {
        const auto index = static_cast<std::uint32_t>(random() % rows.size());
        ASSERT_EQ(list.rank(rows[index]), index);
        ASSERT_EQ(visited(list, index).found, Rows(rows.begin() + index, rows.end()));
        const std::uint32_t other = rows[index] + static_cast<std::uint32_t>(random() % 5000);
        ASSERT_EQ(list.rank(other),
                  std::lower_bound(rows.begin(), rows.end(), other) - rows.begin());
    }
    ASSERT_TRUE(visited(list, list.size()).found.empty());
    ASSERT_TRUE(visited(list, 0xFFFFFFFF).found.empty());
}

// One phase: so many appends and erasures per hundred, rows so far apart.
struct Phase {
    int operations;
    std::uint32_t appends_percent;
    std::uint32_t gap;
};

TEST(IndexRowList, KeepsTheRowsOfAVectorThroughAllForms) {
    std::mt19937 random(7);
    RowList list(42);
    Rows rows;
    std::uint32_t next = 0;
    std::size_t windows = 0;
    for (const Phase& phase :
         {Phase{60, 55, 1}, Phase{3000, 90, 3}, Phase{9000, 80, 400}, Phase{30000, 95, 2},
          Phase{20000, 10, 1}, Phase{9000, 70, 20}, Phase{30000, 2, 1}, Phase{9000, 60, 15}}) {
        for (int i = 0; i < phase.operations; ++i) {
            if (rows.empty() || random() % 100 < phase.appends_percent) {
                next += 1 + static_cast<std::uint32_t>(random() % phase.gap);
                list.append(next);
                rows.push_back(next);
            } else {
                const auto at = rows.begin() + static_cast<std::ptrdiff_t>(random() % rows.size());
                list.erase(*at);
                rows.erase(at);
            }
            if (i % 997 == 0 || rows.size() < 4 || (rows.size() + 2) % 1024 < 4) {
                ASSERT_NO_FATAL_FAILURE(expect_same(list, rows, random));
            }
        }
        windows += visited(list).windows;
        ASSERT_NO_FATAL_FAILURE(expect_same(list, rows, random));
    }
    EXPECT_GT(windows, 0u) << "no frequent word was tested";
    EXPECT_EQ(list.key(), 42u);

    RowList moved = std::move(list);
    ASSERT_NO_FATAL_FAILURE(expect_same(moved, rows, random));
    moved = moved.renumbered([&](std::uint32_t row) {
        return static_cast<std::uint32_t>(std::lower_bound(rows.begin(), rows.end(), row) -
                                          rows.begin());
    });
    for (std::uint32_t i = 0; i < rows.size(); ++i)
        rows[i] = i;
    ASSERT_NO_FATAL_FAILURE(expect_same(moved, rows, random));
}

}  // namespace
}  // namespace vorrim
