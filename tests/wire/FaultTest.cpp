// Little to do, too much to do, and too little to do it with: memory, descriptors, room on the
// disk, the server's own folder, its list, and the time to save it.
#include <filesystem>
#include <system_error>

#include "tests/wire/harness/HonestCrowd.h"
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

constexpr const char* kList = "serverList.met";
constexpr const char* kBeside = "serverList.met.new";

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
    ServerProcess server({.settings = "threads=2", .limit = {{RLIMIT_AS, {kRoom, kRoom}}}});
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

TEST(Fault, ASettingsFileTooLargeForTheMemoryIsNotReadAgainAndTheServerServes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers map far more than any limit";
#endif
    constexpr std::uint64_t kRoom = 280U << 20U;
    ServerProcess server(
        {.settings = "threads=1\nwelcome[0]=old", .limit = {{RLIMIT_AS, {kRoom, kRoom}}}});
    std::filesystem::resize_file(server.folder()->path() / "vorrim.ini", kRoom);
    server.signal(SIGHUP);
    server.wait_for_output("Couldn't read everything again: out of memory\n");
    const auto texts = WireClient(server).login(client_record(hash_of(1), "a")).texts;
    EXPECT_EQ(texts, (Names{"server version 16.36", "old"}));
}

TEST(Fault, ADiskThatTakesNoMoreKeepsTheOldListAndTheServerServes) {
    const auto folder = std::make_shared<ScratchFolder>();
    const std::string old_list = server_list(500);
    folder->write(kList, old_list);
    constexpr std::uint64_t kMost = 6000;  // a saved list is longer, and so is the log
    ServerProcess server({.settings = "verbose=true\nlogFile=true\nthreads=1",
                          .limit = {{RLIMIT_FSIZE, {kMost, kMost}}},
                          .folder = folder});
    for (int i = 0; i < 300; ++i)
        static_cast<void>(WireClient::low(server));
    server.type("sweep\nsweep\n");
    const WireClient client = WireClient::high(server);
    client.publish({file(hash_of(1), "song")});
    EXPECT_EQ(client.search(words("song")).records.size(), 1U);
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_EQ(folder->read(kList), old_list);
    EXPECT_FALSE(folder->has(kBeside));
}

TEST(Fault, AFolderThatVanishesAndAListThatIsAFolder) {
    const auto folder = std::make_shared<ScratchFolder>();
    std::filesystem::create_directory(folder->path() / kList);
    ServerProcess server({.settings = "logFile=true", .folder = folder});
    const WireClient client = WireClient::high(server);
    // The server may be at its list just now.
    for (std::error_code again; std::filesystem::exists(folder->path());)
        std::filesystem::remove_all(folder->path(), again);
    server.type("sweep\nvs\n");
    server.wait_for_output("Working:");
    client.publish({file(hash_of(1), "song")});
    EXPECT_EQ(client.search(words("song")).records.size(), 1U);
}

// Whatever the moment, the file is the old one or the new one, whole; so a kill leaves one of them.
TEST(Fault, AtEveryMomentOfASaveTheListIsTheOldOneOrTheNewOne) {
    const auto folder = std::make_shared<ScratchFolder>();
    const std::string old_list = server_list(600);
    folder->write(kList, old_list);
    // What a kill leaves beside the file is neither read nor in the way.
    folder->write(kBeside, old_list.substr(0, 1000));
    const ServerProcess server({.settings = "threads=1", .folder = folder});
    wait_until("the first save", [&] { return folder->read(kList) != old_list; });
    EXPECT_FALSE(folder->has(kBeside));
    const std::string new_list = folder->read(kList);
    ASSERT_GT(new_list.size(), old_list.size());
    EXPECT_TRUE(new_list.starts_with(old_list.substr(0, 11)));  // the count, the first server

    for (int save = 0; save < 100; ++save) {
        folder->write(kList, old_list);
        server.type("sweep\n");
        std::string found;
        wait_until("the next save", [&] {
            for (int looks = 0; looks < 1000; ++looks)
                if ((found = folder->read(kList)) != old_list) return true;
            return false;
        });
        ASSERT_TRUE(found == new_list) << "in save " << save << " it has " << found.size();
    }
}

TEST(Endurance, AnIdleServerSleeps) {
    const ServerProcess server;
    std::vector<WireClient> crowd;
    for (int i = 0; i < 50; ++i)
        crowd.push_back(WireClient::low(server));
    const WireClient half(server);
    half.send_raw(hex("E3 05 00 00"));
    WireClient(server).close();
    server.wait_for_users(51);
    server.wait_until_idle();
}

TEST(Endurance, RecordsAndAnswersOfManyMegabytesArriveWhole) {
    const ServerProcess server;
    WireClient client = WireClient::high(server);
    constexpr std::uint32_t kFiles = 201;
    const Tag longest = text_tag(std::string(65534, 'n'), std::string(65534, 'v'));
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < kFiles; ++i) {
        files.push_back(file(hash_of(i), "heavy song"));
        files.back().tags.push_back(longest);
        if (files.size() < kFiles / 3) continue;
        client.publish(files);
        files.clear();
    }
    const Results found = client.search(words("heavy"));
    ASSERT_EQ(found.records.size(), kFiles);
    EXPECT_EQ(found.records.back().tags.at(2), longest);
    EXPECT_TRUE(found.more);
    EXPECT_TRUE(client.more().records.empty());
    // A result too large for a datagram does not keep the others back.
    Record huge = file(hash_of(1001), "huge");
    huge.tags.push_back(text_tag(kDescription, std::string(65500, 'd')));
    client.publish({file(hash_of(1000), "huge before"), huge, file(hash_of(1002), "huge after")});
    EXPECT_EQ(names(Datagram(server).results(udp_search_files(words("huge")))),
              (Names{"huge before", "huge after"}));

    constexpr std::uint32_t kPlenty = 1000000;  // of tags, the smallest there are
    Bytes many = hex("15").u32(1).add(hash_of(2000).encode()).u32(0).u16(0).u32(kPlenty);
    for (std::uint32_t i = 0; i < kPlenty; ++i)
        many.u8(2).u16(0).u16(0);
    EXPECT_TRUE(client.answers(many).empty());
    EXPECT_EQ(server.status().files, kFiles + 4);
    client.close();
    server.wait_for_status({0, 0});
}

TEST(Endurance, WithoutDescriptorsNobodyIsLostAndTheNextWait) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers need descriptors of their own for their checks";
#endif
    const ServerProcess server(
        {.settings = "verbose=true\nthreads=2", .limit = {{RLIMIT_NOFILE, {80, 80}}}});
    const std::string output = server.output();
    EXPECT_NE(output.find(" 80 "), std::string::npos) << output;
    EXPECT_NE(output.find("maxClients 600"), std::string::npos) << output;

    std::vector<WireClient> clients;
    constexpr std::size_t kFarTooMany = 120;
    for (std::size_t i = 0; i < kFarTooMany; ++i) {
        clients.emplace_back(server);
        clients.back().send(find_user(kNobody));
    }
    // Those who were taken over are served, and go on being served.
    EXPECT_EQ(clients.front().receive(), hex("3F 00"));
    for (int i = 0; i < 10; ++i)
        clients.front().expect_nothing();
    const std::uint32_t taken = server.status().users;
    EXPECT_LT(taken, kFarTooMany);
    EXPECT_GT(taken, 20U);

    // It tries again from time to time, and says so each time: not often.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LT(server.output().size(), output.size() + 2000);

    // As places become free, the others have theirs, down to the last.
    const WireClient last = std::move(clients.back());
    clients.pop_back();
    EXPECT_TRUE(last.silent());
    clients.clear();
    EXPECT_EQ(last.receive(), hex("3F 00"));
    server.wait_for_users(1);
}

TEST(Endurance, AStopAmidTheCrowd) {
    for (int round = 0; round < 5; ++round) {
        ServerProcess server;
        std::vector<WireClient> crowd;
        Bytes busy;
        for (int i = 0; i < 20; ++i)
            busy.add(packet(offer(songs(100)))).add(packet(search_files(words("song"))));
        for (std::uint32_t i = 0; i < 30; ++i) {
            crowd.emplace_back(server);
            if (i % 2 == 0) crowd.back().open_door();
            Record self = client_record(hash_of(i), "busy");
            self.port = crowd.back().announced_port();
            static_cast<void>(crowd.back().send_some(packet(login(self)).add(busy)));
        }
        EXPECT_EQ(server.stop(SIGTERM), 1);
    }
}

}  // namespace
}  // namespace vorrim::wire
