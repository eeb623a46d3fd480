#include "client/index/TextSignature.h"

namespace vorrim {
namespace {

constexpr std::size_t kTrigram = 3;
constexpr std::uint32_t kTrigramMask = 0xFFFFFF;
constexpr std::uint32_t kSpread = 0x9E3779B1;  // 2^32 divided by the golden ratio
constexpr int kColumnShift = 32 - std::countr_zero(TextSignature::kColumns);

constexpr std::array<std::uint8_t, 256> make_folded() {
    std::array<std::uint8_t, 256> folded{};
    for (std::size_t byte = 0; byte < folded.size(); ++byte)
        folded[byte] = static_cast<std::uint8_t>(byte >= 'A' && byte <= 'Z' ? byte | 0x20 : byte);
    return folded;
}

constexpr auto kFolded = make_folded();

}  // namespace

void TextSignature::add(std::string_view text) noexcept {
    if (text.size() < kTrigram) return;
    std::uint32_t window = 0;
    std::size_t at = 0;
    for (const char byte : text) {
        window = (window << 8 | kFolded[static_cast<unsigned char>(byte)]) & kTrigramMask;
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
