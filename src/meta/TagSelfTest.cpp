#include "meta/TagSelfTest.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "base/Output.h"
#include "base/file/kx_memory_file.h"
#include "meta/MetaTag.h"

namespace vorrim {

namespace {

constexpr std::string_view kName = "Artist";
constexpr std::string_view kText = "abc";
constexpr std::uint32_t kNumber = 1000;

bool failed(int number) {
    current_output().printLine("Test %d failed", number);
    return false;
}

bool has_text(const MetaTag& tag, std::string_view text) {
    return tag.value() == TagValue(TagText(text));
}

}  // namespace

bool test_tags() {
    current_output().printLine(" MetaTag test:");

    // Creation: by text, by id, and of a type that there is not without its value.
    const auto by_text = makeTag(TagText(kName), TagText(kText));
    const auto by_id = makeTagById(TagId::Size, kNumber);
    const auto empty = makeTag(TagType::hash, TagText());
    if (by_text->id() != 0 || by_text->getName() != kName || !has_text(*by_text, kText))
        return failed(1);
    if (by_id->id() != static_cast<std::int32_t>(TagId::Size) || by_id->getName() != "Size" ||
        by_id->value() != TagValue(kNumber))
        return failed(2);
    if (empty->getName() || empty->value() != TagValue(FileHash())) return failed(3);

    // Renaming: a tag takes the name of the bytes that are read into it.
    kx_memory_file stream(64);
    if (!by_text->toBytes(stream) || stream.tell() != by_text->size()) return failed(4);
    stream.seek(1);
    const auto renamed = makeTagById(TagId::Name, TagText("other"));
    if (!renamed->fromBytes(stream) || renamed->id() != 0 || renamed->getName() != kName ||
        !has_text(*renamed, kText))
        return failed(5);

    // Values.
    const auto copy = by_id->clone();
    if (!copy->setValue(kNumber + 1) || copy->value() != TagValue(kNumber + 1) ||
        by_id->value() != TagValue(kNumber))
        return failed(6);
    if (copy->setValue(TagText(kText)) || copy->valueText(kText.size()) != "1001") return failed(7);
    return true;
}

}  // namespace vorrim
