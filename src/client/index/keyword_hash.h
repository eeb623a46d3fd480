#pragma once
// Words of a text, and the 32-bit hashes that name them in the keyword table.
//
// The hash is the one-at-a-time hash over case-folded signed bytes with arithmetic right shifts;
// the values are part of the observable behaviour (two words of one hash share a list), so neither
// the signs nor the folding may change. 0 names no word.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "meta/RecordView.h"
#include "meta/words.h"

namespace vorrim {

inline constexpr std::size_t kWordsOfARecord = 10;  // distinct hashes listed per entry

[[nodiscard]] std::uint32_t keyword_hash(std::string_view text) noexcept;

// The first distinct keyword hashes of a record, in order of appearance.
class KeywordHashes {
public:
    [[nodiscard]] const std::uint32_t* begin() const noexcept { return hashes_.data(); }
    [[nodiscard]] const std::uint32_t* end() const noexcept { return hashes_.data() + count_; }
    [[nodiscard]] std::size_t size() const noexcept { return count_; }
    [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
    [[nodiscard]] bool full() const noexcept { return count_ == kWordsOfARecord; }

    // A hash that is there already, or one too many, changes nothing.
    void add(std::uint32_t hash) noexcept {
        if (!full() && std::find(begin(), end(), hash) == end()) hashes_[count_++] = hash;
    }
    // Adds the words of one text until ten are there.
    void add_words(std::string_view text) noexcept;

private:
    std::array<std::uint32_t, kWordsOfARecord> hashes_{};
    std::uint32_t count_ = 0;
};

// The words under which an entry with this record is listed: those of its text tags in tag order.
// Reads names and texts only, never the value of an integer tag, which another thread may patch.
[[nodiscard]] KeywordHashes keywords_of(RecordView record) noexcept;

}  // namespace vorrim
