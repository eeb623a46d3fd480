#pragma once
// Which of many needles a text contains, found in one pass over it, however many there are.
//
// The needles come in groups, and a pass looks for those of one group. Marks stay until they are
// forgotten, so that several texts may be looked at for the same question.
//
// Algorithm   Aho and Corasick, "Efficient string matching", 1975. States are numbered level by
//             level, the children of one state in a row in the order of their bytes: a step is a
//             binary search among them.
// Cost        Building: sorting the needles, then each of their bytes. A pass: each byte of the
//             text, and each needle in it once.
// Threads     None inside.
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace vorrim {

class NeedleAutomaton final {
public:
    struct Needle {
        std::uint32_t group;
        std::string_view text;  // lower case, as what is searched is folded to it
    };

    // The needles in any order, also twice the same; their texts are not kept. All are of groups
    // below `groups`.
    NeedleAutomaton(std::span<const Needle> needles, std::uint32_t groups);

    // Marks the needles of the group that the text contains when folded to lower case.
    void scan(std::uint32_t group, std::string_view text) noexcept;
    // Is the needle, named by its place among those of the constructor, marked?
    [[nodiscard]] bool found(std::size_t needle) const noexcept {
        return states_[state_of_[needle]].mark == round_;
    }
    void forget() noexcept { ++round_; }

private:
    static constexpr std::uint32_t kNone = ~0U;

    struct State {
        std::uint32_t children = 0;  // the first of them
        std::uint16_t child_count = 0;
        std::uint8_t byte = 0;          // that leads here
        bool ends = false;              // a needle
        std::uint32_t suffix = 0;       // the longest one that is a state, too
        std::uint32_t shorter = kNone;  // the longest suffix that is a needle
        std::uint32_t mark = 0;         // the round in which it was found
    };

    [[nodiscard]] bool is_root(std::uint32_t state) const noexcept { return state < groups_; }
    [[nodiscard]] std::uint32_t child(std::uint32_t state, std::uint8_t byte) const noexcept;
    [[nodiscard]] std::uint32_t step(std::uint32_t state, std::uint8_t byte) const noexcept;
    void link(std::uint32_t state, std::uint32_t parent) noexcept;

    const std::uint32_t groups_;  // the first so many states are their roots
    std::vector<State> states_;
    std::vector<std::uint32_t> state_of_;  // by needle
    std::uint32_t round_ = 1;
};

}  // namespace vorrim
