// Call-backs: who may ask for whom, over TCP and by datagram.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

Bytes call(std::uint32_t address, std::uint16_t port) {
    return Bytes().u8(0x35).u32(address).u16(port);
}

class Callback : public ::testing::Test {
protected:
    const ServerProcess server_{"verbose=true"};
    const std::vector<WireClient> strangers_ = strangers(server_, 2);
    const WireClient low_ = WireClient::low(server_);
    const WireClient high_ = WireClient::high(server_);
};

TEST_F(Callback, AHighAskerReachesWhoeverIsThere) {
    const WireClient other = WireClient::high(server_);
    // Identifier 0 is the first stranger.
    for (const WireClient* wanted : {&low_, &other, &high_, &strangers_[0]}) {
        high_.send(callback(wanted->id()));
        EXPECT_EQ(wanted->receive(), call(high_.id(), high_.announced_port())) << wanted->id();
    }
    high_.expect_nothing();
    strangers_[1].expect_nothing();
}

TEST_F(Callback, OthersAndIdentifiersThatNobodyHoldsAreRefused) {
    const auto expect_refusals = [](const WireClient& asker, std::vector<std::uint32_t> wanted) {
        for (const std::uint32_t id : wanted)
            EXPECT_EQ(asker.ask(callback(id)), hex("36").u32(id)) << id;
    };
    expect_refusals(high_, {77, 0xFFFFFF, 0x0100007F, 0xFFFFFFFF});
    expect_refusals(low_, {77, low_.id(), high_.id()});
    expect_refusals(strangers_[1], {low_.id()});
    low_.expect_nothing();
    high_.expect_nothing();

    low_.send(hex("1C 01 00 00"));  // cut short
    low_.expect_closed();
    server_.wait_for_output("Exception in Connection::doTask 1\n");
    server_.wait_for_users(3);
    expect_refusals(high_, {low_.id()});
}

TEST_F(Callback, ByDatagramWhoeverIsLowIsReachedAndTheLowRangeOnlyIsRefused) {
    const Datagram asker(server_);
    const std::uint32_t address = asker.address().value();
    for (const WireClient* wanted : {&low_, &strangers_[0]})
        for (const std::uint32_t from : {0x0403020AU, 0x1000000U}) {  // the lowest that counts
            asker.send(udp_callback(from, 0x8765, wanted->id()));
            EXPECT_EQ(wanted->receive(), call(from, 0x8765)) << from;
        }
    for (const std::uint32_t nobody : {77U, 0xFFFFFEU})
        EXPECT_EQ(asker.ask(udp_callback(address, 4662, nobody)), hex("E3 9E").u32(nobody));
    for (const std::uint32_t wanted : {0xFFFFFFU, 0x1000000U, 0xFFFFFFFFU, high_.id()})
        EXPECT_TRUE(asker.all_answers(udp_callback(address, 4662, wanted)).empty()) << wanted;
    // An address in the low range is that of nobody who could be called.
    for (const std::uint32_t from : {0U, 1U, 0xFFFFFEU, 0xFFFFFFU})
        for (const std::uint32_t wanted : {low_.id(), 0xFFFFFEU})
            EXPECT_TRUE(asker.all_answers(udp_callback(from, 4662, wanted)).empty()) << from;
    low_.expect_nothing();
    high_.expect_nothing();
}

}  // namespace
}  // namespace vorrim::wire
