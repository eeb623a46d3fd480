// What a server needs and does not get: memory, room on the disk, its own folder, its list.
#include <filesystem>

#include "tests/wire/harness/HonestCrowd.h"
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr const char* kList = "serverList.met";

// A list that fills a packet of about eight million bytes; every file is new.
Bytes heavy_offer(std::uint32_t first) {
    constexpr std::uint32_t kFiles = 120;
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        files.push_back(file(hash_of(first + i), "heavy " + std::to_string(first + i)));
        files.back().tags.push_back(text_tag(kDescription, std::string(65'000, 'd')));
    }
    return packet(offer(files));
}

TEST(Fault, WithoutMemoryARequestEndsItsOwnConnectionAndNobodyElses) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers map far more than any limit";
#endif
    constexpr std::uint64_t kRoom = 280U << 20U;  // of which half is there from the start
    constexpr std::size_t kRefusals = 3;
    ServerProcess server(ServerProcess::Setup{.settings = "threads=2", .address_space = kRoom});
    HonestCrowd honest(server);
    std::vector<WireClient> greedy;
    for (std::uint32_t i = 0, refused = 0; refused < kRefusals; ++i) {
        ASSERT_LT(i, 100U) << "memory has no end";
        greedy.push_back(WireClient::low(server));
        try {
            greedy.back().send_raw(heavy_offer(1000 + i * 200));
            greedy.back().expect_nothing();
        } catch (const WireFailure&) {
            ++refused;
        }
        ASSERT_TRUE(server.running());
    }
    greedy.clear();
    server.wait_for_status({HonestCrowd::kCount, HonestCrowd::kCount});
    // Somebody honest may have been without memory for an answer; whoever comes now is served.
    static_cast<void>(honest.finish());
    const WireClient late = WireClient::high(server);
    late.publish({file(hash_of(1), "afterwards")});
    EXPECT_EQ(names(late.search(words("afterwards")).records), Names{"afterwards"});
}

TEST(Fault, ADiskThatTakesNoMoreKeepsTheOldListAndTheServerServes) {
    const auto folder = std::make_shared<ScratchFolder>();
    const std::string old_list = server_list(500);
    folder->write(kList, old_list);
    constexpr std::uint64_t kMost = 6000;  // a saved list is longer, and so is the log
    ServerProcess server(ServerProcess::Setup{.settings = "verbose=true\nlogFile=true\nthreads=1",
                                              .largest_file = kMost,
                                              .folder = folder});
    for (int i = 0; i < 300; ++i)
        static_cast<void>(WireClient::low(server));
    server.type("sweep\nsweep\n");
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "song")});
    EXPECT_EQ(client.search(words("song")).records.size(), 1U);
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_EQ(folder->read(kList), old_list);
    EXPECT_FALSE(folder->has("serverList.met.new"));
}

TEST(Fault, AFolderThatVanishesAndAListThatIsAFolder) {
    const auto folder = std::make_shared<ScratchFolder>();
    std::filesystem::create_directory(folder->path() / kList);
    ServerProcess server(ServerProcess::Setup{.settings = "logFile=true", .folder = folder});
    const WireClient client = WireClient::high(server);
    std::filesystem::remove_all(folder->path());
    server.type("sweep\nvs\n");
    server.wait_for_output("Working:");
    client.publish({file(hash_of(1), "song")});
    EXPECT_EQ(client.search(words("song")).records.size(), 1U);
    EXPECT_EQ(server.stop(SIGTERM), 1);
}

}  // namespace
}  // namespace vorrim::wire
