// Every message of the catalogue, byte by byte, in both directions.
#include <gtest/gtest.h>

#include "tests/wire/harness/Datagram.h"
#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

const char kHash[] = "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F";
const char kPerson[] = "A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF";

// A login under kPerson's hash with the name "Ann" and version 60. It announces port 1, where
// nobody listens.
Bytes ann_logs_in() {
    return hex("E3 2C 00 00 00 01")
        .add(hex(kPerson))
        .add(hex("00 00 00 00 01 00 02 00 00 00"))
        .add(hex("02 01 00 01 03 00 41 6E 6E"))
        .add(hex("03 01 00 11 3C 00 00 00"));
}

// One file under kHash: "Blue Sky.mp3", 1000 bytes.
Bytes one_file_offered() {
    return hex("E3 39 00 00 00 15 01 00 00 00")
        .add(hex(kHash))
        .add(hex("00 00 00 00 00 00 02 00 00 00"))
        .add(hex("02 01 00 01 0C 00 42 6C 75 65 20 53 6B 79 2E 6D 70 33"))
        .add(hex("03 01 00 02 E8 03 00 00"));
}

// The record of that file as it comes back from identifier 1, port 1, with one source.
Bytes file_record() {
    return hex(kHash)
        .add(hex("01 00 00 00 01 00 03 00 00 00"))
        .add(hex("02 01 00 01 0C 00 42 6C 75 65 20 53 6B 79 2E 6D 70 33"))
        .add(hex("03 01 00 02 E8 03 00 00"))
        .add(hex("03 01 00 15 01 00 00 00"));
}

Bytes ann_record() {
    return hex(kPerson)
        .add(hex("01 00 00 00 01 00 02 00 00 00"))
        .add(hex("02 01 00 01 03 00 41 6E 6E"))
        .add(hex("03 01 00 11 3C 00 00 00"));
}

class Catalogue : public ::testing::Test {
protected:
    // Unreachable, Ann gets the first low identifier.
    void ann_is_here() {
        ann_.send_raw(ann_logs_in());
        ASSERT_EQ(ann_.receive_packet(), hex("E3 05 00 00 00 40 01 00 00 00"));
        ASSERT_EQ(ann_.receive_packet(), hex("E3 17 00 00 00 38 14 00")
                                             .add(  //
                                                 Bytes().raw("server version 16.36")));
    }
    void ann_shares() {
        ann_is_here();
        ann_.send_raw(one_file_offered());
        ann_.expect_nothing();
    }

    const ServerProcess server_{"name=Vor\ndesc=Test\nthisIP=10.1.2.3"};
    const WireClient ann_{server_, Address(127, 99, 98, 97)};
};

TEST_F(Catalogue, LoginBringsTheIdentifierAndTheWelcomeLines) {
    ann_is_here();
}

TEST_F(Catalogue, ServerListRequestBringsTheListAndTheServersOwnRecord) {
    ann_.send_raw(hex("E3 01 00 00 00 14"));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 02 00 00 00 32 00"));
    Bytes own = hex("E3 2E 00 00 00 41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    own.add(hex("0A 01 02 03")).u16(server_.ports().client()).add(hex("02 00 00 00"));
    own.add(hex("02 01 00 01 03 00 56 6F 72 02 01 00 0B 04 00 54 65 73 74"));
    EXPECT_EQ(ann_.receive_packet(), own);
}

TEST_F(Catalogue, OfferAndFileSearch) {
    ann_shares();
    const WireClient bob = WireClient::high(server_);
    // blue and Size > 999
    bob.send_raw(hex("E3 13 00 00 00 16 00 00 01 04 00 62 6C 75 65 03 E7 03 00 00 01 01 00 02"));
    EXPECT_EQ(bob.receive_packet(), hex("E3 42 00 00 00 33 01 00 00 00").add(file_record()).u8(0));
}

TEST_F(Catalogue, GetSources) {
    ann_shares();
    ann_.send_raw(hex("E3 11 00 00 00 19").add(hex(kHash)));
    EXPECT_EQ(ann_.receive_packet(),
              hex("E3 18 00 00 00 42").add(hex(kHash)).add(hex("01 01 00 00 00 01 00")));
}

TEST_F(Catalogue, UserSearch) {
    ann_is_here();
    ann_.send_raw(hex("E3 02 00 00 00 1A 04"));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 30 00 00 00 43 01 00 00 00").add(ann_record()));
}

TEST_F(Catalogue, FindUserByHash) {
    ann_is_here();
    ann_.send_raw(hex("E3 11 00 00 00 1B").add(hex(kPerson)));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 2D 00 00 00 3F 01").add(ann_record()));
    ann_.send_raw(hex("E3 11 00 00 00 1B").add(hex(kHash)));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 02 00 00 00 3F 00"));
}

TEST_F(Catalogue, CallBackAndItsRefusal) {
    ann_is_here();
    WireClient bob(server_, Address(127, 9, 8, 7));
    bob.open_door();
    bob.login(client_record(hash_of(2), "Bob"));
    bob.send_raw(hex("E3 05 00 00 00 1C 01 00 00 00"));
    EXPECT_EQ(ann_.receive_packet(),
              hex("E3 07 00 00 00 35 7F 09 08 07").u16(bob.announced_port()));
    bob.send_raw(hex("E3 05 00 00 00 1C 02 00 00 00"));
    EXPECT_EQ(bob.receive_packet(), hex("E3 05 00 00 00 36 02 00 00 00"));
}

TEST_F(Catalogue, DisconnectClosesWithoutAReply) {
    ann_is_here();
    ann_.send_raw(hex("E3 01 00 00 00 18"));
    ann_.expect_closed();
    server_.wait_for_users(0);
}

TEST_F(Catalogue, ClientTextIsReadAndDropped) {
    ann_is_here();
    ann_.send_raw(hex("E3 0A 00 00 00 20 01 02 03 04 03 00 61 62 63"));
    ann_.expect_nothing();
    ann_.send_raw(hex("E3 09 00 00 00 20 01 02 03 04 03 00 61 62"));  // the text is cut short
    ann_.expect_closed();
}

TEST_F(Catalogue, MoreResultsWithoutASearchBringNothing) {
    ann_.send_raw(hex("E3 01 00 00 00 21"));
    ann_.expect_nothing();
}

TEST_F(Catalogue, StatusByDatagram) {
    ann_shares();
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 96 78 56 34 12")),
              hex("E3 97 78 56 34 12 01 00 00 00 01 00 00 00"));
}

TEST_F(Catalogue, SourcesByDatagram) {
    ann_shares();
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 9A").add(hex(kHash))),
              hex("E3 9B").add(hex(kHash)).add(hex("01 01 00 00 00 01 00")));
}

TEST_F(Catalogue, FileSearchByDatagram) {
    WireClient bob(server_);
    bob.open_door();
    bob.login(client_record(hash_of(2), "Bob"));
    const Hash hash{{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
    bob.publish({file(hash, "Blue Sky.mp3")});
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 98 01 03 00 73 6B 79")),
              hex("E3 99")
                  .add(hex(kHash))
                  .u32(bob.id())
                  .u16(bob.announced_port())
                  .add(hex("03 00 00 00"))
                  .add(hex("02 01 00 01 0C 00 42 6C 75 65 20 53 6B 79 2E 6D 70 33"))
                  .add(hex("03 01 00 02 E8 03 00 00"))
                  .add(hex("03 01 00 15 01 00 00 00")));
}

TEST_F(Catalogue, UserSearchByDatagram) {
    ann_is_here();
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 9D 01 02 00 6E 6E")), hex("E3 99").add(ann_record()));
}

TEST_F(Catalogue, CallBackByDatagramAndItsRefusal) {
    ann_is_here();
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 9C 05 06 07 08 36 12 02 00 00 00")), hex("E3 9E 02 00 00 00"));
    asker.send(hex("E3 9C 05 06 07 08 36 12 01 00 00 00"));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 07 00 00 00 35 05 06 07 08 36 12"));
    asker.expect_nothing();
}

}  // namespace
}  // namespace vorrim::wire
