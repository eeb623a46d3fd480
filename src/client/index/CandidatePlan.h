#pragma once
// What every match of a search must have in its text signature, derived from the tree:
//
//     blue & (sky | sea) & size > 1000         columns of blue, and (columns of sky, or of sea)
//
// A group asks for its rarest columns, for the runs of letters of its texts and, of each of its
// alternatives, for one group. What cannot be told from signatures (short texts,
// numbers, the right side of "and not") asks for nothing. So a row that the plan dismisses cannot
// match; one that it admits has still to be evaluated.
//
// A tree in which some node reports when it is evaluated gets a plan that admits everything, for a
// record dismissed unseen would leave its line out.
//
// Threads     Built and used by one thread; reads segments under the index lock.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "client/index/RowStore.h"
#include "client/index/Segment.h"
#include "search/SearchNode.h"

namespace vorrim {

class CandidatePlan {
public:
    // With so many of the rarest columns nearly everything is dismissed that ever will be.
    static constexpr std::size_t kColumns = 6;

    explicit CandidatePlan(const SearchNode& root);

    // Nothing can be dismissed: prefetching must not be called, the other operations need not be.
    [[nodiscard]] bool admits_all() const noexcept { return root_.empty(); }

    // The parts of a segment in which a match may be: few when the search is for something rare.
    // Asked before what follows.
    [[nodiscard]] GramFilter::Parts parts(const Segment& segment) const noexcept {
        const GramFilter* const grams = segment.grams();
        return grams == nullptr ? GramFilter::kAllParts
                                : parts(root_, *grams, segment.gram_places());
    }
    // Fetches in advance what that reads first.
    void prefetch_parts(const Segment& segment) const noexcept;

    // Chooses the columns that dismiss most. Call before what follows; needs the index lock.
    void order_by(const RowStore::ColumnWeights& weights) noexcept;

    // Clears the bits of the slots that cannot match, in one line or stretch of a segment. Of each
    // group at most so many columns are asked.
    void narrow(const Segment& segment, std::uint32_t line, Segment::Line& bits,
                std::size_t columns = kColumns) const noexcept {
        narrow(root_, segment, line, bits, columns);
    }
    void narrow(const Segment& segment, std::uint32_t stretch,
                Segment::Stretch& bits) const noexcept;
    // Moves those of at most kSlots ascending slots that may match to the front and returns their
    // number.
    static constexpr std::size_t kSlots = 128;
    [[nodiscard]] std::size_t narrow(const Segment& segment,
                                     std::span<std::uint32_t> slots) const noexcept {
        return narrow(root_, segment, slots);
    }
    // All matches have some column, in a plan that is ordered.
    [[nodiscard]] bool has_columns() const noexcept { return root_.column_count != 0; }
    // Takes ascending rows of a dense segment from the front, until none is left or the slots of
    // kSlots of them are found that the first column leaves; returns their number.
    [[nodiscard]] std::size_t narrow_rows(const Segment& segment,
                                          std::span<const std::uint32_t>& rows,
                                          std::span<std::uint32_t, kSlots> slots) const noexcept;
    // What a stretch costs that is narrowed, a line, and each of some slots, in the units of
    // StepBudget, near enough.
    [[nodiscard]] std::uint32_t stretch_cost() const noexcept {
        return 20 + 3 * static_cast<std::uint32_t>(columns_);
    }
    [[nodiscard]] std::uint32_t line_cost(std::size_t columns = kColumns) const noexcept {
        return 3 + static_cast<std::uint32_t>(columns_ * columns / (2 * kColumns));
    }
    [[nodiscard]] std::uint32_t row_cost() const noexcept {
        return static_cast<std::uint32_t>(columns_) / 4;
    }
    // Fetch in advance what narrow reads first of a stretch, or of a line. Not when all is
    // admitted.
    void prefetch(const Segment& segment, std::uint32_t stretch) const noexcept;
    void prefetch_line(const Segment& segment, std::uint32_t line) const noexcept;

private:
    static constexpr std::size_t kGrams = 16;

    struct Group {
        TextSignature needed;
        std::array<std::uint16_t, kColumns> columns;  // the rarest of those, once chosen
        std::uint8_t column_count = 0;
        std::uint8_t gram_count = 0;
        std::array<GramRun, kGrams> grams;
        std::vector<std::vector<Group>> alternatives;

        [[nodiscard]] bool empty() const noexcept { return needed.empty() && alternatives.empty(); }
        [[nodiscard]] std::span<const std::uint16_t> asked(
            std::size_t most = kColumns) const noexcept {
            return {columns.data(), std::min<std::size_t>(column_count, most)};
        }
        [[nodiscard]] std::span<const GramRun> runs(std::size_t most = kGrams) const noexcept {
            return {grams.data(), std::min<std::size_t>(gram_count, most)};
        }
    };

    // A tree with more alternatives than this, or deeper ones, is not followed to its end: the plan
    // then asks for less, and a segment costs no more.
    static constexpr int kDepth = 8;
    static constexpr std::size_t kAlternatives = 64;
    // Fills an empty group with what a tree asks for.
    void ask(Group& group, const SearchNode& root, int depth);
    [[nodiscard]] std::vector<Group> alternatives_of(const SN_Operator& root, int depth);
    [[nodiscard]] static GramFilter::Parts parts(const Group& group, const GramFilter& grams,
                                                 const GramFilter::Places& places) noexcept;
    static void order(Group& group, const RowStore::ColumnWeights& weights) noexcept;
    static void narrow(const Group& group, const Segment& segment, std::uint32_t line,
                       Segment::Line& bits, std::size_t columns) noexcept;
    [[nodiscard]] static std::size_t narrow(const Group& group, const Segment& segment,
                                            std::span<std::uint32_t> slots) noexcept;

    Group root_;
    // Calls visit(group) for those of which one at least is always asked first.
    template <class Visit>
    void for_each_first(Visit&& visit) const;

    // In the whole plan.
    std::size_t alternatives_ = 0;
    std::size_t columns_ = 0;
};

}  // namespace vorrim
