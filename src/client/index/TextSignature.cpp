#include "client/index/TextSignature.h"

#include "client/index/folded_bytes.h"

namespace vorrim {
namespace {

constexpr std::size_t kTrigram = 3;
constexpr std::uint32_t kTrigramMask = 0xFFFFFF;
// 2^64 divided by the golden ratio, and by another number that neighbours do not share.
constexpr std::uint64_t kSpreads[] = {0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F};

constexpr std::size_t column_of(std::uint64_t window, std::uint64_t spread) {
    return (window * spread >> 32) * TextSignature::kColumns >> 32;
}

}  // namespace

void TextSignature::add(std::string_view text) noexcept {
    if (text.size() < kTrigram) return;
    std::uint32_t window = 0;
    std::size_t at = 0;
    for (const char byte : text) {
        window = (window << 8 | folded_byte(byte)) & kTrigramMask;
        if (++at < kTrigram) continue;
        for (const std::uint64_t spread : kSpreads)
            set(column_of(window, spread));
    }
}

TextSignature signature_of(RecordView record) noexcept {
    TextSignature signature;
    for (const TagView& tag : record.tags())
        if (tag.type == TagType::text) signature.add(tag.text());
    return signature;
}

}  // namespace vorrim
