// Bytes made to do harm. After each of them an honest client is answered by the same server.
#include "tests/wire/harness/Samples.h"
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

// The server is whole: somebody logs in, publishes, finds, and leaves nothing behind.
void expect_honest_service(const ServerProcess& server) {
    {
        const WireClient honest = WireClient::high(server, "honest");
        honest.publish({file(hash_of(0x600D, 0x60), "an honest file")});
        EXPECT_EQ(names(honest.search(words("honest")).records), Names{"an honest file"});
        EXPECT_EQ(honest.sources(hash_of(0x600D, 0x60)), std::vector<Source>{honest.source()});
        EXPECT_GE(honest.users(words("honest")).size(), 1U);
    }
    server.wait_for_status({0, 0});
}

TEST(Hostile, EveryMessageCutAtEveryByte) {
    const ServerProcess server("verbose=true\npublic=true");
    for (const Bytes& whole : every_message()) {
        const bool closes_when_cut =
            std::string("\x01\x15\x16\x19\x1B\x1C\x20").find(static_cast<char>(whole[0])) !=
            std::string::npos;
        for (std::size_t length = 1; length < whole.size(); ++length) {
            const WireClient client(server);
            client.send(whole.first(length));
            if (closes_when_cut) client.expect_closed();
        }
    }
    server.wait_for_users(0);
    expect_honest_service(server);
}

TEST(Hostile, RecordsAndListsAsLargeAsAPacketAllows) {
    const ServerProcess server;
    constexpr std::size_t kPlenty = 1000000;
    {
        const WireClient client(server);  // a million tags, the smallest there are
        Bytes many = hex("15").u32(1).add(encode(hash_of(1))).u32(0).u16(0).u32(kPlenty);
        for (std::size_t i = 0; i < kPlenty; ++i)
            many.u8(2).u16(0).u16(0);
        client.publish({});
        client.send(many);
        client.expect_nothing();
        EXPECT_EQ(server.status().files, 1U);
    }
    server.wait_for_status({0, 0});
    {
        const WireClient client(server);  // texts of the greatest length
        std::vector<Record> files;
        for (std::uint32_t i = 0; i < 50; ++i)
            files.push_back(Record{
                hash_of(i), 0, 0, {text_tag(std::string(65534, 'n'), std::string(65534, 'v'))}});
        client.publish(files);
        EXPECT_EQ(server.status().files, 50U);
    }
    server.wait_for_status({0, 0});
    expect_honest_service(server);
}

}  // namespace
}  // namespace vorrim::wire
