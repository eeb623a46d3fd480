#include "client/index/keyword_hash.h"

namespace vorrim {
namespace {

// Per byte: what the hash adds for it (folded, sign-extended), and whether it separates words.
struct ByteClass {
    std::uint32_t addend;
    bool separator;
};

constexpr std::array<ByteClass, 256> make_byte_classes() {
    std::array<ByteClass, 256> classes{};
    for (std::size_t byte = 0; byte < classes.size(); ++byte) {
        const auto folded = byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte;
        const auto signed_byte = static_cast<std::int8_t>(folded);
        classes[byte].addend = static_cast<std::uint32_t>(static_cast<std::int32_t>(signed_byte));
    }
    for (const char separator : kWordSeparators)
        classes[static_cast<unsigned char>(separator)].separator = true;
    return classes;
}

constexpr auto kByteClasses = make_byte_classes();

constexpr ByteClass byte_class(char byte) {
    return kByteClasses[static_cast<unsigned char>(byte)];
}

constexpr std::uint32_t shift_right_signed(std::uint32_t value, int by) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(value) >> by);
}

constexpr std::uint32_t mix_byte(std::uint32_t h, std::uint32_t addend) {
    h += addend;
    h += h << 10;
    return h ^ shift_right_signed(h, 6);
}

constexpr std::uint32_t finish(std::uint32_t h) {
    h += h << 3;
    h ^= shift_right_signed(h, 11);
    h += h << 15;
    return h == 0 ? 1 : h;
}

}  // namespace

std::uint32_t keyword_hash(std::string_view text) noexcept {
    std::uint32_t h = 0;
    for (const char byte : text)
        h = mix_byte(h, byte_class(byte).addend);
    return finish(h);
}

void KeywordHashes::add_words(std::string_view text) noexcept {
    std::size_t at = 0;
    while (!full()) {
        while (at < text.size() && byte_class(text[at]).separator)
            ++at;
        if (at == text.size()) return;
        const std::size_t limit = std::min(text.size(), at + kLongestWord);
        std::uint32_t h = 0;
        for (; at < limit; ++at) {
            const ByteClass byte = byte_class(text[at]);
            if (byte.separator) break;
            h = mix_byte(h, byte.addend);
        }
        add(finish(h));
    }
}

KeywordHashes keywords_of(RecordView record) noexcept {
    KeywordHashes words;
    for (const TagView& tag : record.tags()) {
        if (tag.type == TagType::text) words.add_words(tag.text());
        if (words.full()) break;
    }
    return words;
}

}  // namespace vorrim
