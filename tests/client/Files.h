#pragma once
// Files that are a number and a name, for tests of the index.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/FileIndex.h"
#include "meta/FrozenRecord.h"
#include "tests/search/SearchFixture.h"

namespace vorrim::test {

constexpr std::uint16_t kPort = 4662;

inline FileHash hash_of(std::uint32_t number) {
    return file_hash(wire::hash_of(number));
}

inline FrozenRecord frozen(const wire::Record& record) {
    const wire::Bytes bytes = record.encode();
    kx_memory_file stream = stream_of(bytes);
    return FrozenRecord::from_network(stream);
}

inline FrozenRecord file(std::uint32_t number, std::string_view name) {
    return frozen({wire::hash_of(number), 0, 0, {wire::text_tag(wire::kName, name)}});
}

inline std::vector<FrozenRecord> files(std::uint32_t first, std::uint32_t end,
                                       const std::function<std::string(std::uint32_t)>& name_of) {
    std::vector<FrozenRecord> list;
    for (std::uint32_t number = first; number < end; ++number)
        list.push_back(file(number, name_of(number)));
    return list;
}

// The numbers of the files that match, in order, however many batches it takes.
inline std::vector<std::uint32_t> found(const FileIndex& index, std::unique_ptr<SearchNode> root,
                                        ClientId asker, std::int32_t limit) {
    Search search = search_of(std::move(root));
    std::vector<std::uint32_t> numbers;
    do {
        SearchBatch batch = index.begin_batch(search, limit, asker);
        while (!index.continue_batch(
            batch, [&](RecordView record) { numbers.push_back(record.hash().first_u32()); })) {
        }
    } while (search.resume_position >= 0);
    return numbers;
}

}  // namespace vorrim::test
