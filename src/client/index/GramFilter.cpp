#include "client/index/GramFilter.h"

#include <bit>

namespace vorrim {

void GramFilter::add(std::uint32_t stretch, RecordView record) noexcept {
    const auto bit = static_cast<Stretches>(1u << stretch);
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text)
            for_each_place(tag.text(), [this, bit](std::uint32_t place) { places_[place] |= bit; });
}

void GramFilter::unite(const GramFilter& other, const Origins& origins) noexcept {
    std::array<Stretches, 256> here{};
    for (std::size_t there = 0; there < here.size(); ++there)
        for (std::size_t stretch = 0; stretch < origins.size(); ++stretch)
            if ((there & origins[stretch]) != 0)
                here[there] = static_cast<Stretches>(here[there] | 1u << stretch);
    for (std::size_t place = 0; place < places_.size(); ++place)
        places_[place] |= here[other.places_[place]];
}

double GramFilter::density(std::uint32_t stretches) const noexcept {
    std::size_t set = 0;
    for (const Stretches at : places_)
        set += static_cast<std::size_t>(std::popcount(at));
    return static_cast<double>(set) / static_cast<double>(stretches * places_.size());
}

}  // namespace vorrim
