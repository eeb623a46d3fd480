// A search expression: read, evaluated on a record, printed, written, read again, extracted.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "base/Output.h"
#include "meta/RecordView.h"
#include "search/Search.h"
#include "search/required_sides.h"

namespace {

// An expression with unknown operators says so at every evaluation.
class Silence final : public vorrim::Output {
    void vprintLine(const char*, std::va_list) override {}
    void vprintError(const char*, std::va_list) override {}
    void vprintVerbose(const char*, std::va_list) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    static Silence silence;
    const ScopedOutput quiet(silence);
    static constexpr std::array<std::byte, 26> kNoTags{};

    kx_memory_file stream = kx_memory_file::reading(std::as_bytes(std::span(data, size)));
    Search search;
    if (!search.read(stream)) return 0;
    const bool matched = search.matches(RecordView(kNoTags));
    static_cast<void>(may_report(*search.root()));

    kx_memory_file written(64);
    if (!search.root()->write(written)) std::abort();
    kx_memory_file own = kx_memory_file::reading(written.written());
    Search again;
    if (!again.read(own) || again.matches(RecordView(kNoTags)) != matched) std::abort();
    std::string first;
    std::string second;
    search.print(first);
    again.print(second);
    if (first != second) std::abort();
    static_cast<void>(search.extract_keyword());
    static_cast<void>(search.matches(RecordView(kNoTags)));
    return 0;
}
