// Clients that leave at any moment leave nothing behind.
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

// One client's life: the packets it would send, in order.
Bytes a_life(std::uint32_t number, std::uint16_t port) {
    Record self = client_record(hash_of(number, 0xD1), "leaver " + std::to_string(number));
    self.port = port;
    std::vector<Record> files;
    for (std::uint32_t i = 0; i < 30; ++i)
        files.push_back(file(hash_of(number * 20 + i), "shared song " + std::to_string(i)));
    return packet(login(self))
        .add(packet(offer(files)))
        .add(packet(search_files(words("song"))))
        .add(packet(more_results()))
        .add(packet(search_users(words("leaver"))))
        .add(packet(get_sources(hash_of(number * 20))))
        .add(packet(offer(files)))
        .add(packet(callback(1)));
}

TEST(Departure, AHundredLeaveAtRandomMoments) {
    const std::uint32_t seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 chance(seed);
    const ServerProcess server;
    const Datagram watcher(server);
    constexpr std::uint32_t kClients = 100;

    struct Leaver {
        WireClient client;
        Bytes rest;  // of what it still has to send; cut where it will leave
    };
    std::vector<Leaver> present;
    for (std::uint32_t i = 0; i < kClients; ++i) {
        WireClient client(server);
        if (chance() % 2 == 0) client.open_door();
        const Bytes life = a_life(i, client.announced_port());
        Bytes until = life.first(chance() % (life.size() + 1));
        present.push_back({std::move(client), std::move(until)});
    }
    while (!present.empty()) {
        Leaver& next = present[chance() % present.size()];
        const Bytes piece = next.rest.first(1 + chance() % 3000);
        next.client.send_raw(piece);
        next.rest = next.rest.from(piece.size());
        if (next.rest.size() == 0) {
            chance() % 2 == 0 ? next.client.close() : next.client.reset();
            std::swap(next, present.back());
            present.pop_back();
        }
        if (chance() % 16 == 0) static_cast<void>(watcher.status());
    }
    server.wait_for_status({0, 0});

    const WireClient survivor = WireClient::high(server);
    EXPECT_TRUE(survivor.search(words("song")).records.empty());
    EXPECT_TRUE(survivor.search(anything()).records.empty());
    EXPECT_EQ(survivor.users(anything()).size(), 1U);
}

TEST(Departure, RequestsSentJustBeforeAnEndAreServed) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    {
        const WireClient high = WireClient::high(server);
        high.send(callback(low.id()));
    }
    EXPECT_EQ(low.receive().first(1), hex("35"));
}

// Whoever leaves while another has its former identifier cannot withdraw what stands under it; the
// other has published nothing, and does not leave with that identifier.
TEST(Departure, FilesOfAFormerIdentifierGoWithTheLastWhoHeldIt) {
    const ServerProcess server;
    const Address shared = next_address();
    WireClient first = WireClient::high(server, "first", shared);
    first.publish({file(hash_of(1), "song")});
    EXPECT_NE(first.login(client_record(hash_of(1), "first")).id, shared.value());
    WireClient heir = WireClient::high(server, "heir", shared);
    ASSERT_EQ(heir.id(), shared.value());
    first.close();
    server.wait_for_status({1, 1});
    EXPECT_NE(heir.login(client_record(hash_of(2), "heir")).id, shared.value());
    heir.close();
    server.wait_for_status({0, 0});
}

}  // namespace
}  // namespace vorrim::wire
