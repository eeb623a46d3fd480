// A filter of the settings: parsed, evaluated, printed, destroyed.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "app/FilterExpressions.h"
#include "meta/RecordView.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    static constexpr std::array<std::byte, 26> kNoTags{};
    const auto filter = parseFilter(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!filter) return 0;
    static_cast<void>(filter->matches(RecordView(kNoTags)));
    std::string printed;
    filter->print(printed);
    return 0;
}
