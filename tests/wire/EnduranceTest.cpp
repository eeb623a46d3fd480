// Little to do, too much to do, and too little to do it with.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

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
    Bytes many = hex("15").u32(1).add(encode(hash_of(2000))).u32(0).u16(0).u32(kPlenty);
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
    const ServerProcess server(ServerProcess::Setup{.settings = "verbose=true\nthreads=2",
                                                    .limit = {{RLIMIT_NOFILE, {80, 80}}}});
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
