// Rooms: who is told what when members come, talk, move on and vanish.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tests/wire/harness/WireClient.h"

namespace vorrim::wire {
namespace {

Bytes join(std::uint32_t room) {
    return Bytes().u8(0x1F).u16(room);
}

Bytes say(std::string_view text) {
    return Bytes().u8(0x1E).text(text);
}

Bytes said(const WireClient& sender, std::string_view text) {
    return Bytes().u8(0x3A).u32(sender.id()).text(text);
}

Bytes joined(const Record& who) {
    return Bytes().u8(0x3B).add(encode(who));
}

Bytes left(std::uint32_t id) {
    return Bytes().u8(0x3C).u32(id);
}

Bytes present(const std::vector<Record>& members) {
    return Bytes().u8(0x3D).add(encode(members));
}

class Rooms : public ::testing::Test {
protected:
    // How others see a client that has logged in with this record.
    static Record seen(const WireClient& client, Record record) {
        record.id = client.id();
        record.port = client.announced_port();
        return record;
    }

    const ServerProcess server_{"room[0]=A\nroom[1]=\nroom[2]=Sea side"};
    const Record ann_record_ = client_record(hash_of(1), "Ann");
    const Record bob_record_ = client_record(hash_of(2), "Bob");
    WireClient ann_{server_};
    WireClient bob_{server_};
};

TEST_F(Rooms, AreListedInOrderWithTheirMembers) {
    EXPECT_EQ(ann_.ask(hex("1D")), hex("39 03  01 00 41 00 00 02 00  00 00 00 00 03 00")
                                       .text("Sea side")
                                       .add(hex("00 00 04 00")));
    EXPECT_EQ(ann_.ask(join(4)), present({}));
    EXPECT_EQ(bob_.ask(join(4)), present({Record{}}));
    EXPECT_EQ(ann_.receive(), joined(Record{}));
    EXPECT_EQ(ann_.ask(hex("1D")), hex("39 03  01 00 41 00 00 02 00  00 00 00 00 03 00")
                                       .text("Sea side")
                                       .add(hex("02 00 04 00")));
}

TEST_F(Rooms, ThoseWhoAreThereAreToldOfWhoComesTalksAndMovesOn) {
    ann_.login(ann_record_);
    bob_.login(bob_record_);
    const WireClient outside(server_);
    EXPECT_EQ(ann_.ask(join(2)), present({}));
    EXPECT_EQ(bob_.ask(join(2)), present({seen(ann_, ann_record_)}));
    EXPECT_EQ(ann_.receive(), joined(seen(bob_, bob_record_)));

    EXPECT_EQ(bob_.ask(say("hi")), said(bob_, "hi")) << "the sender hears itself";
    EXPECT_EQ(ann_.receive(), said(bob_, "hi"));
    EXPECT_EQ(ann_.ask(say("")), said(ann_, ""));
    EXPECT_EQ(bob_.receive(), said(ann_, ""));
    outside.send(say("nobody hears this"));
    outside.expect_nothing();

    // Into the room it is in: out and in again, for all to see.
    EXPECT_EQ(bob_.ask(join(2)), present({seen(ann_, ann_record_)}));
    EXPECT_EQ(ann_.receive(), left(bob_.id()));
    EXPECT_EQ(ann_.receive(), joined(seen(bob_, bob_record_)));

    EXPECT_EQ(bob_.ask(join(3)), present({}));
    EXPECT_EQ(ann_.receive(), left(bob_.id()));
    bob_.send(say("elsewhere"));
    EXPECT_EQ(bob_.receive(), said(bob_, "elsewhere"));
    ann_.expect_nothing();
}

TEST_F(Rooms, ARoomThatDoesNotExistIsTheWayOut) {
    for (const std::uint32_t nowhere : {5U, 0U, 1U, 65535U}) {
        static_cast<void>(ann_.ask(join(2)));
        EXPECT_EQ(bob_.ask(join(2)), present({Record{}}));
        static_cast<void>(ann_.receive());
        bob_.send(join(nowhere));
        bob_.send(say("dropped"));
        bob_.expect_nothing();
        EXPECT_EQ(ann_.receive(), left(0)) << nowhere;
        ann_.expect_nothing();
    }
}

TEST_F(Rooms, AConnectionThatEndsLeaves) {
    static_cast<void>(ann_.ask(join(2)));
    for (int way = 0; way < 4; ++way) {
        WireClient guest = WireClient::low(server_);
        EXPECT_EQ(guest.ask(join(2)), present({Record{}}));
        static_cast<void>(ann_.receive());
        if (way == 0) guest.close();
        if (way == 1) guest.reset();
        if (way == 2) guest.send(hex("18"));
        if (way == 3) guest.send(hex("1F 02"));  // half a room's number
        EXPECT_EQ(ann_.receive(), left(guest.id())) << way;
    }
}

TEST_F(Rooms, AMemberThatLogsInAgainIsSeenUnderItsNewIdentifier) {
    static_cast<void>(ann_.ask(join(2)));
    ann_.login(ann_record_);
    EXPECT_EQ(bob_.ask(join(2)), present({seen(ann_, ann_record_)}));
    static_cast<void>(ann_.receive());
    const std::uint32_t before = ann_.id();
    Record again = seen(ann_, ann_record_);
    ann_.login(ann_record_);
    EXPECT_NE(ann_.id(), before);
    again.id = ann_.id();
    again.tags.insert(again.tags.end(), ann_record_.tags.begin(), ann_record_.tags.end());
    const WireClient third(server_);
    EXPECT_EQ(third.ask(join(2)), present({again, Record{}}));
    ann_.close();
    static_cast<void>(bob_.receive());
    EXPECT_EQ(bob_.receive(), left(ann_.id()));
}

TEST(ManyRooms, AreListedAsFarAsTheCountGoesAndAllCanBeJoined) {
    std::string rooms;
    for (int i = 0; i < 300; ++i)
        rooms += "room[" + std::to_string(i) + "]=r\n";
    const ServerProcess server(rooms);
    const WireClient client(server);
    const Bytes list = client.ask(hex("1D"));
    EXPECT_EQ(list.first(2), hex("39 FF"));
    EXPECT_EQ(list.size(), 2U + 255U * 7U);
    EXPECT_EQ(list.from(list.size() - 7), hex("01 00 72 00 00 00 01"));
    EXPECT_EQ(client.ask(join(301)), present({}));
    client.send(join(302));
    client.expect_nothing();
}

}  // namespace
}  // namespace vorrim::wire
