// All operations at once; what it shows, it shows under the thread sanitizer.
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "base/Random.h"
#include "client/KeywordFileIndex.h"
#include "tests/search/SearchFixture.h"

namespace vorrim {
namespace {

using namespace test;

constexpr int kPublishers = 3;
constexpr int kReaders = 2;
constexpr std::uint32_t kHashes = 2000;

FileHash hash_of(std::uint64_t number) {
    FileHash hash;
    store_32(hash.bytes.data(), static_cast<std::uint32_t>(number));
    return hash;
}

std::vector<FrozenRecord> some_files(Random& random) {
    static const std::string kWords[] = {"alpha", "beta", "gamma", "delta", "epsilon"};
    std::vector<FrozenRecord> files;
    for (std::uint64_t count = 1 + random.below(150); count > 0; --count) {
        kx_memory_file wire(128);
        write_bytes(wire, hash_of(random.below(kHashes)).bytes);
        write_32(wire, 0);
        write_16(wire, 0);
        write_32(wire, 1);
        write_8(wire, TagType::text);
        write_string("\x01", wire);
        write_string(kWords[random.below(5)] + " " + kWords[random.below(5)], wire);
        wire.seek(0);
        files.push_back(FrozenRecord::from_network(wire));
    }
    return files;
}

Search some_search(Random& random) {
    switch (random.below(4)) {
        case 0:
            return search_of(std::make_unique<SN_All>());
        case 1:
            return search_of(word("alpha gamma"));
        case 2:
            return search_of(combine(CombineOp::kOr, word("delta"), word("epsil")));
        default:
            return search_of(word("beta"));
    }
}

TEST(FileIndexThreads, PublishSearchAskAndLeaveTogether) {
    KeywordFileIndex index({.row_limit = 8000, .slice = 16, .sorted_scan = 100});
    index.init(101);
    std::atomic<int> publishing = kPublishers;
    std::atomic<std::uint64_t> answers = 0;
    std::vector<std::thread> threads;
    for (int publisher = 0; publisher < kPublishers; ++publisher)
        threads.emplace_back([&, publisher] {
            Random random(static_cast<std::uint64_t>(publisher));
            // Two of the clients are shared: one leaves while the other still publishes.
            const ClientId own(0x01000000u + static_cast<std::uint32_t>(publisher));
            const ClientId clients[] = {own, ClientId(0), ClientId(0xFF000000)};
            // A busy machine may be slow to start the readers.
            for (int i = 0; i < 60 || answers == 0; ++i) {
                index.publish(some_files(random), clients[random.below(3)], 4662);
                if (random.below(4) == 0) index.remove_client(clients[random.below(3)]);
            }
            for (const ClientId client : clients)
                index.remove_client(client);
            --publishing;
        });
    for (int reader = 0; reader < kReaders; ++reader)
        threads.emplace_back([&, reader] {
            Random random(static_cast<std::uint64_t>(100 + reader));
            while (publishing > 0) {
                kx_memory_file out(4096);
                if (index.write_sources(hash_of(random.below(kHashes)), out)) ++answers;
                Search search = some_search(random);
                for (int batches = 0; batches < 3; ++batches) {
                    answers += index.search(search, out, 20, ClientId(0x7F000001));
                    if (search.resume_position < 0) break;
                }
                (void)index.source_total();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    // A client that left while another thread published for it has sources again.
    index.remove_client(ClientId(0));
    index.remove_client(ClientId(0xFF000000));
    EXPECT_EQ(index.source_total(), 0);
    EXPECT_EQ(index.file_total(), 0u);
    EXPECT_EQ(index.keyword_total(), 0u);
    EXPECT_GT(answers, 0u);
}

}  // namespace
}  // namespace vorrim
