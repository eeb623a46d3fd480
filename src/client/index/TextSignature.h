#pragma once
// What a text leaves behind when only 448 bits of it are kept: two bits for each of its trigrams
// (three neighbouring bytes, case folded) that neither begins nor ends with a separator of words,
// chosen by a hash of the three. The texts of a file fill a fifth of them; nine in ten frequent
// words seem to be in at most 3 of 100 texts that they are not in.
//
// A text that contains a needle contains its trigrams. So a record whose signature lacks one of the
// needle's bits cannot match, and is dismissed without being looked at. The other way round nothing
// follows. Needles without such a trigram dismiss nothing.
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <string_view>

#include "meta/RecordView.h"

namespace vorrim {

class TextSignature {
public:
    static constexpr std::size_t kColumns = 448;
    using Words = std::array<std::uint64_t, kColumns / 64>;

    // Adds the trigrams of the text.
    void add(std::string_view text) noexcept;

    void set(std::size_t column) noexcept { words_[column / 64] |= bit(column); }
    [[nodiscard]] bool has(std::size_t column) const noexcept {
        return (words_[column / 64] & bit(column)) != 0;
    }
    [[nodiscard]] bool empty() const noexcept { return words_ == Words{}; }
    [[nodiscard]] std::size_t count() const noexcept {
        std::size_t bits = 0;
        for (const std::uint64_t word : words_)
            bits += static_cast<std::size_t>(std::popcount(word));
        return bits;
    }
    [[nodiscard]] const Words& words() const noexcept { return words_; }
    // The same in 64 bits, which pass for more often.
    [[nodiscard]] std::uint64_t folded() const noexcept {
        return std::accumulate(words_.begin(), words_.end(), std::uint64_t{0}, std::bit_or<>());
    }

    // Calls visit(column) for each bit that is set, in ascending order.
    template <class Visit>
    void for_each_column(Visit&& visit) const {
        for (std::size_t word = 0; word < words_.size(); ++word)
            for (std::uint64_t rest = words_[word]; rest != 0; rest &= rest - 1)
                visit(word * 64 + static_cast<std::size_t>(std::countr_zero(rest)));
    }

private:
    static constexpr std::uint64_t bit(std::size_t column) {
        return std::uint64_t{1} << (column % 64);
    }

    Words words_{};
};

// The signature of all text tags of a record.
[[nodiscard]] TextSignature signature_of(RecordView record) noexcept;

}  // namespace vorrim
