#include "bench/common/IndexEngine.h"

#include <algorithm>
#include <stdexcept>

#include "meta/FrozenRecord.h"
#include "search/Search.h"

namespace vorrim::bench {

std::uint32_t IndexEngine::search(const Query& query, kx_memory_file& out) {
    Search search;
    kx_memory_file wire = kx_memory_file::reading(std::as_bytes(std::span(query.wire)));
    if (!search.read(wire)) throw std::runtime_error("a query cannot be read");
    return index_.search(search, out, kLimit, kAsker);
}

void IndexEngine::publish(kx_memory_file& list, ClientId client) {
    auto records = read_frozen_list(list);
    if (!records) throw std::runtime_error("a list cannot be read");
    index_.publish(std::move(*records), client, kPort);
}

void IndexEngine::publish(const Corpus& corpus, std::uint64_t files, std::uint64_t first_client) {
    for (std::uint64_t first = 0; first < files; first += kListFiles) {
        const auto count =
            static_cast<std::uint32_t>(std::min<std::uint64_t>(kListFiles, files - first));
        kx_memory_file list = corpus.list(first, count);
        publish(list, client(first_client + first / kClientFiles));
    }
}

}  // namespace vorrim::bench
