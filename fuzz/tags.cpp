// One tag: what was read is written, reads the same again, keeps its name through a change of type,
// and says exactly how long it is. A text ends at its first NUL, so it may be written shorter.

#include <optional>

#include "base/file/primitives.h"
#include "base/kx_err.h"
#include "fuzz/Input.h"
#include "meta/MetaTag.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    const fuzz::Quiet quiet;
    kx_memory_file stream = fuzz::Input(data, size).stream();
    const std::unique_ptr<MetaTag> tag = tagFromBytes(stream);
    if (!tag) return 0;

    kx_memory_file written(64);
    fuzz::must(tag->toBytes(written));
    fuzz::must(tag->size() == written.size() && written.size() <= stream.tell());
    kx_memory_file own = kx_memory_file::reading(written.written());
    const std::unique_ptr<MetaTag> again = tagFromBytes(own);
    kx_memory_file rewritten(64);
    fuzz::must(again && again->value() == tag->value() && again->toBytes(rewritten));
    fuzz::must(std::ranges::equal(written.written(), rewritten.written()));
    static_cast<void>(tag->valueText(20));
    static_cast<void>(tag->getName());

    const std::unique_ptr<MetaTag> copy = tag->clone();
    fuzz::must(copy->value() == tag->value() && copy->name() == tag->name());
    const std::unique_ptr<MetaTag> number = retyped(*tag, std::uint32_t{7});
    fuzz::must(number->value() == TagValue(std::uint32_t{7}));
    fuzz::must(number->name() == tag->name());
    return 0;
}
