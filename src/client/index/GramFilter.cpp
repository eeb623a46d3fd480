#include "client/index/GramFilter.h"

namespace vorrim {

void GramFilter::add(std::uint32_t part, RecordView record, const Places& places) noexcept {
    const Parts bit = Parts{1} << part;
    const auto add_run = [&](const Run& run) {
        places.for_each(run, [&](std::uint32_t place) {
            places_[place] |= bit;
            return true;
        });
    };
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text) for_each_run(tag.text(), add_run);
}

}  // namespace vorrim
