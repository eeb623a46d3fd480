#include "search/NeedleAutomaton.h"

#include <algorithm>
#include <numeric>
#include <tuple>

#include "base/string/strings.h"

namespace vorrim {

namespace {

// A state while its number is not known: in the order in which sorted needles need it, which puts
// each behind its parent and the children of one parent in the order of their bytes.
struct Draft {
    std::uint32_t parent;
    std::uint32_t depth;
    std::uint8_t byte;
};

// Numbers by depth, and within a depth in the order of the drafts.
std::vector<std::uint32_t> numbers_of(std::span<const Draft> drafts) {
    std::uint32_t depths = 0;
    for (const Draft& draft : drafts)
        depths = std::max(depths, draft.depth + 1);
    std::vector<std::uint32_t> next(depths + 1);
    for (const Draft& draft : drafts)
        ++next[draft.depth + 1];
    std::partial_sum(next.begin(), next.end(), next.begin());
    std::vector<std::uint32_t> numbers;
    numbers.reserve(drafts.size());
    for (const Draft& draft : drafts)
        numbers.push_back(next[draft.depth]++);
    return numbers;
}

}  // namespace

NeedleAutomaton::NeedleAutomaton(std::span<const Needle> needles, std::uint32_t groups)
    : groups_(groups), state_of_(needles.size()) {
    std::vector<std::uint32_t> order(needles.size());
    std::iota(order.begin(), order.end(), 0U);
    std::ranges::sort(order, {}, [&](std::uint32_t needle) {
        return std::tie(needles[needle].group, needles[needle].text);
    });

    std::vector<Draft> drafts(groups, Draft{0, 0, 0});
    std::vector<std::uint32_t> path;  // the drafts of the latest needle, its root first
    std::string_view latest;
    for (const std::uint32_t needle : order) {
        const auto [group, text] = needles[needle];
        if (path.empty() || path.front() != group) {
            path.assign(1, group);
            latest = {};
        }
        const auto [end, unused] = std::ranges::mismatch(text, latest);
        path.resize(1 + static_cast<std::size_t>(end - text.begin()));
        for (const char character : text.substr(path.size() - 1)) {
            drafts.push_back({path.back(), static_cast<std::uint32_t>(path.size()),
                              static_cast<std::uint8_t>(character)});
            path.push_back(static_cast<std::uint32_t>(drafts.size() - 1));
        }
        state_of_[needle] = path.back();
        latest = text;
    }

    const std::vector<std::uint32_t> numbers = numbers_of(drafts);
    states_.resize(drafts.size());
    std::vector<std::uint32_t> parents(drafts.size());
    for (std::size_t draft = 0; draft < drafts.size(); ++draft) {
        states_[numbers[draft]].byte = drafts[draft].byte;
        parents[numbers[draft]] = numbers[drafts[draft].parent];
    }
    for (std::uint32_t& state : state_of_) {
        state = numbers[state];
        states_[state].ends = true;
    }
    for (std::uint32_t state = 0; state < states_.size(); ++state) {
        if (is_root(state))
            states_[state].suffix = state;
        else
            link(state, parents[state]);
    }
}

// The states of the levels above are linked already.
void NeedleAutomaton::link(std::uint32_t state, std::uint32_t parent) noexcept {
    State& self = states_[state];
    self.suffix = is_root(parent) ? parent : step(states_[parent].suffix, self.byte);
    const State& suffix = states_[self.suffix];
    if (!is_root(self.suffix)) self.shorter = suffix.ends ? self.suffix : suffix.shorter;
    State& above = states_[parent];
    if (above.child_count++ == 0) above.children = state;
}

std::uint32_t NeedleAutomaton::child(std::uint32_t state, std::uint8_t byte) const noexcept {
    const State& self = states_[state];
    const auto children = std::span(states_).subspan(self.children, self.child_count);
    const auto at = std::ranges::lower_bound(children, byte, {}, &State::byte);
    return at != children.end() && at->byte == byte
               ? self.children + static_cast<std::uint32_t>(at - children.begin())
               : kNone;
}

std::uint32_t NeedleAutomaton::step(std::uint32_t state, std::uint8_t byte) const noexcept {
    for (;; state = states_[state].suffix) {
        const std::uint32_t next = child(state, byte);
        if (next != kNone) return next;
        if (is_root(state)) return state;
    }
}

void NeedleAutomaton::scan(std::uint32_t group, std::string_view text) noexcept {
    std::uint32_t state = group;
    states_[state].mark = round_;  // the empty needle
    if (states_[state].child_count == 0) return;
    for (const char character : text) {
        state = step(state, static_cast<std::uint8_t>(kx_to_lower(character)));
        // Below one that is marked all are.
        for (std::uint32_t needle = states_[state].ends ? state : states_[state].shorter;
             needle != kNone && states_[needle].mark != round_; needle = states_[needle].shorter)
            states_[needle].mark = round_;
    }
}

}  // namespace vorrim
