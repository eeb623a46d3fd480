// A search expression: read, evaluated on a record, printed, written, read again, extracted. What
// comes behind it in the input is the record.

#include <algorithm>
#include <array>
#include <string>

#include "fuzz/Input.h"
#include "meta/FrozenRecord.h"
#include "search/Search.h"
#include "search/WideSearch.h"
#include "search/required_sides.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace vorrim;
    const fuzz::Quiet quiet;
    static constexpr std::array<std::byte, 26> kNoTags{};

    kx_memory_file stream = fuzz::Input(data, size).stream();
    Search search;
    if (!search.read(stream)) return 0;
    const FrozenRecord own = FrozenRecord::from_network(stream);
    const RecordView record = own.empty() ? RecordView(kNoTags) : own.view();
    const bool matched = search.matches(record);
    fuzz::must(WideSearch(*search.root()).matches(record) == matched);
    static_cast<void>(may_report(*search.root()));
    const auto copy = search.root()->clone();
    fuzz::must(copy->evaluate(record) == matched);

    kx_memory_file written(64);
    kx_memory_file copied(64);
    fuzz::must(search.root()->write(written) && copy->write(copied));
    fuzz::must(std::ranges::equal(written.written(), copied.written()));
    fuzz::must(search.root()->wire_size() == static_cast<std::int32_t>(written.size()));
    kx_memory_file bytes = kx_memory_file::reading(written.written());
    Search again;
    fuzz::must(again.read(bytes) && again.matches(record) == matched);
    std::string first;
    std::string second;
    search.print(first);
    again.print(second);
    fuzz::must(first == second);

    static_cast<void>(search.extract_keyword());
    // Without its keyword an expression only asks for less.
    fuzz::must(!matched || search.matches(record));
    return 0;
}
