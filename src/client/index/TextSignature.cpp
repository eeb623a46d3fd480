#include "client/index/TextSignature.h"

#include "base/golden_ratio.h"
#include "client/index/folded_bytes.h"

namespace vorrim {
namespace {

constexpr std::uint32_t kTrigramMask = 0xFFFFFF;

// A column for a number that is spread over 32 bits.
constexpr std::size_t column_of(std::uint64_t spread) {
    return spread * TextSignature::kColumns >> 32;
}

}  // namespace

void TextSignature::add(std::string_view text) noexcept {
    std::uint32_t window = 0;
    std::uint32_t separators = 0b11;  // one bit each; the text stands between some
    for (const char byte : text) {
        window = (window << 8 | folded_byte(byte)) & kTrigramMask;
        separators = separators << 1 | (separates_words(byte) ? 1 : 0);
        if ((separators & 0b101) != 0) continue;
        const std::uint64_t spread = window * kGoldenRatio;
        set(column_of(spread >> 32));
        set(column_of(spread & 0xFFFFFFFF));
    }
}

TextSignature signature_of(RecordView record) noexcept {
    TextSignature signature;
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text) signature.add(tag.text());
    return signature;
}

}  // namespace vorrim
