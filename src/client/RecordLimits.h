#pragma once
// How large the records may be that clients hand over. A record beyond it is refused as a whole.
//
// Values. 0: no limit.

#include <algorithm>
#include <cstdint>

#include "meta/RecordView.h"

namespace vorrim {

struct RecordLimits {
    std::uint32_t bytes = 0;      // of the whole record
    std::uint32_t tags = 0;       // their number
    std::uint32_t tag_name = 0;   // bytes of a tag's name
    std::uint32_t tag_value = 0;  // bytes of a tag's value

    [[nodiscard]] bool admits(RecordView record) const noexcept {
        const std::size_t size = record.bytes().size();
        if (over(bytes, size) || over(tags, record.tag_count())) return false;
        // Nothing in a record is longer than the record: most need no closer look.
        if (!over(tag_name, size) && !over(tag_value, size)) return true;
        return std::ranges::none_of(record.tags(), [this](const TagView& tag) {
            return over(tag_name, tag.name.size()) || over(tag_value, tag.value.size());
        });
    }

private:
    [[nodiscard]] static constexpr bool over(std::uint32_t limit, std::size_t size) noexcept {
        return limit != 0 && size > limit;
    }
};

}  // namespace vorrim
