// Call-backs: who may ask for whom, over TCP and by datagram.
#include <gtest/gtest.h>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

Bytes call(std::uint32_t address, std::uint16_t port) {
    return Bytes().u8(0x35).u32(address).u16(port);
}

Bytes refusal(std::uint32_t wanted) {
    return Bytes().u8(0x36).u32(wanted);
}

TEST(Callback, AHighAskerReachesALowClient) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const WireClient high = WireClient::high(server);
    high.send(callback(low.id()));
    EXPECT_EQ(low.receive(), call(high.id(), high.announced_port()));
    high.expect_nothing();
}

TEST(Callback, AHighAskerReachesAHighClientAndItself) {
    const ServerProcess server;
    const WireClient one = WireClient::high(server);
    const WireClient other = WireClient::high(server);
    one.send(callback(other.id()));
    EXPECT_EQ(other.receive(), call(one.id(), one.announced_port()));
    one.send(callback(one.id()));
    EXPECT_EQ(one.receive(), call(one.id(), one.announced_port()));
}

TEST(Callback, AnIdentifierThatNobodyHoldsIsRefused) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    for (const std::uint32_t wanted : {0U, 1U, 0xFFFFFFU, 0x0100007FU, 0xFFFFFFFFU})
        EXPECT_EQ(high.ask(callback(wanted)), refusal(wanted));
}

TEST(Callback, ALowAskerIsAlwaysRefused) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    const WireClient low = WireClient::low(server);
    const WireClient asker = WireClient::low(server);
    EXPECT_EQ(asker.ask(callback(low.id())), refusal(low.id()));
    EXPECT_EQ(asker.ask(callback(high.id())), refusal(high.id()));
    EXPECT_EQ(asker.ask(callback(asker.id())), refusal(asker.id()));
    EXPECT_EQ(asker.ask(callback(77)), refusal(77));
    high.expect_nothing();
    low.expect_nothing();
}

TEST(Callback, AStrangerIsRefused) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const WireClient stranger(server);
    EXPECT_EQ(stranger.ask(callback(low.id())), refusal(low.id()));
    low.expect_nothing();
}

TEST(Callback, IdentifierZeroIsTheFirstStranger) {
    const ServerProcess server;
    const WireClient first(server);
    first.expect_nothing();
    const WireClient second(server);
    second.expect_nothing();
    const WireClient high = WireClient::high(server);
    high.send(callback(0));
    EXPECT_EQ(first.receive(), call(high.id(), high.announced_port()));
    second.expect_nothing();
}

TEST(Callback, ALeftClientIsRefused) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    WireClient low = WireClient::low(server);
    const std::uint32_t wanted = low.id();
    low.close();
    server.wait_for_users(1);
    EXPECT_EQ(high.ask(callback(wanted)), refusal(wanted));
}

TEST(Callback, ARequestCutShortCloses) {
    const ServerProcess server("verbose=true");
    const WireClient client = WireClient::low(server);
    client.send(hex("1C 01 00 00"));
    client.expect_closed();
    server.wait_for_output("Exception in Connection::doTask 1\n");
}

TEST(DatagramCallback, ReachesALowClientOverItsConnection) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const Datagram asker(server);
    asker.send(udp_callback(0x0403020A, 0x8765, low.id()));
    EXPECT_EQ(low.receive(), call(0x0403020A, 0x8765));
    asker.expect_nothing();
}

TEST(DatagramCallback, ANumberThatNobodyHoldsIsRefusedToTheSender) {
    const ServerProcess server;
    const Datagram asker(server);
    const std::uint32_t address = asker.address().value();
    for (const std::uint32_t wanted : {0U, 1U, 0xFFFFFEU})
        EXPECT_EQ(asker.ask(udp_callback(address, 4662, wanted)), hex("E3 9E").u32(wanted));
}

TEST(DatagramCallback, AHighIdentifierIsNotAnswered) {
    const ServerProcess server;
    const WireClient high = WireClient::high(server);
    const Datagram asker(server);
    for (const std::uint32_t wanted : {0xFFFFFFU, 0x1000000U, 0xFFFFFFFFU, high.id()}) {
        asker.send(udp_callback(asker.address().value(), 4662, wanted));
        asker.expect_nothing();
    }
    high.expect_nothing();
}

TEST(DatagramCallback, AnAddressInTheLowRangeIsNotAnswered) {
    const ServerProcess server;
    const WireClient low = WireClient::low(server);
    const Datagram asker(server);
    for (const std::uint32_t address : {0U, 1U, 0xFFFFFEU, 0xFFFFFFU}) {
        asker.send(udp_callback(address, 4662, low.id()));
        asker.send(udp_callback(address, 4662, 0xFFFFFE));
        asker.expect_nothing();
    }
    low.expect_nothing();
    asker.send(udp_callback(0x1000000, 4662, low.id()));  // the lowest that counts
    EXPECT_EQ(low.receive(), call(0x1000000, 4662));
}

TEST(DatagramCallback, IdentifierZeroIsTheFirstStranger) {
    const ServerProcess server;
    const WireClient stranger(server);
    stranger.expect_nothing();
    const Datagram asker(server);
    asker.send(udp_callback(0x0403020A, 4662, 0));
    EXPECT_EQ(stranger.receive(), call(0x0403020A, 4662));
    asker.expect_nothing();
}

}  // namespace
}  // namespace vorrim::wire
