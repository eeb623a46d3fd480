#include "client/index/GramFilter.h"

namespace vorrim {

void GramFilter::add(std::uint32_t part, RecordView record) noexcept {
    const Parts bit = Parts{1} << part;
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text)
            for_each_place(tag.text(), [this, bit](std::uint32_t place) { places_[place] |= bit; });
}

}  // namespace vorrim
