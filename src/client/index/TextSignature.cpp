#include "client/index/TextSignature.h"

#include "client/index/folded_bytes.h"

namespace vorrim {
namespace {

constexpr std::size_t kTrigram = 3;
constexpr std::uint32_t kTrigramMask = 0xFFFFFF;
constexpr std::uint32_t kSpread = 0x9E3779B1;  // 2^32 divided by the golden ratio
constexpr int kColumnShift = 32 - std::countr_zero(TextSignature::kColumns);

}  // namespace

void TextSignature::add(std::string_view text) noexcept {
    if (text.size() < kTrigram) return;
    std::uint32_t window = 0;
    std::size_t at = 0;
    for (const char byte : text) {
        window = (window << 8 | folded_byte(byte)) & kTrigramMask;
        if (++at >= kTrigram) set((window * kSpread) >> kColumnShift);
    }
}

TextSignature signature_of(RecordView record) noexcept {
    TextSignature signature;
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text) signature.add(tag.text());
    return signature;
}

}  // namespace vorrim
