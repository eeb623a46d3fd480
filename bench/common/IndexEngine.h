#pragma once
// The index itself, with the clients that fill it.
#include <cstdint>
#include <vector>

#include "bench/common/Corpus.h"
#include "bench/common/Engine.h"
#include "client/KeywordFileIndex.h"
#include "meta/ClientId.h"

namespace vorrim::bench {

inline constexpr std::uint32_t kListFiles = 200;
inline constexpr std::uint32_t kClientFiles = 10000;

class IndexEngine final : public Engine {
public:
    IndexEngine() { index_.init(kTableSize); }

    [[nodiscard]] const char* name() const override { return "vorrim"; }
    // Has them already: see publish.
    void load(const std::vector<RecordView>&) override {}
    std::uint32_t search(const Query& query, kx_memory_file& out) override;

    [[nodiscard]] KeywordFileIndex& index() noexcept { return index_; }

    // Reads a published list and lets a client publish it, as a worker does.
    void publish(kx_memory_file& list, ClientId client);
    // Publishes files 0 to files - 1, ten thousand by each client from the given one on.
    void publish(const Corpus& corpus, std::uint64_t files, std::uint64_t first_client);

    static ClientId client(std::uint64_t number) {
        return ClientId(static_cast<std::uint32_t>(0x0A000000u + number));
    }

private:
    static constexpr std::int32_t kTableSize = 2333;
    static constexpr std::uint16_t kPort = 4662;
    static constexpr ClientId kAsker{0x7F000001};

    KeywordFileIndex index_;
};

}  // namespace vorrim::bench
