// Rooms: who is told what when members come, talk, move on and vanish.
#include <map>
#include <semaphore>

#include "tests/wire/harness/WireTest.h"

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
    return Bytes().u8(0x3B).add(who.encode());
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
    const auto listed = [](const char* members_of_the_last) {
        return hex("39 03  01 00 41 00 00 02 00  00 00 00 00 03 00")
            .text("Sea side")
            .add(hex(members_of_the_last))
            .add(hex("04 00"));
    };
    EXPECT_EQ(ann_.ask(hex("1D")), listed("00 00"));
    EXPECT_EQ(ann_.ask(join(4)), present({}));
    EXPECT_EQ(bob_.ask(join(4)), present({Record{}}));
    EXPECT_EQ(ann_.receive(), joined(Record{}));
    EXPECT_EQ(ann_.ask(hex("1D")), listed("02 00"));
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

// A room of two hundred who all talk, while others come, talk, and leave in every way there is.
// All members hear the same in the same order. "NAME N" is the N-th line of NAME, from 0.
TEST(RoomCrowd, EveryMemberHearsEveryLineOfThoseWhoWereThereInTheirOrder) {
    constexpr std::size_t kMembers = 200;
    constexpr std::size_t kLines = 12 * kMembers;
    constexpr std::size_t kVisitors = 120;
    constexpr std::size_t kVisitorLines = 5;
    const ServerProcess server("room[0]=Hall\nroom[1]=Yard");
    const auto name = [](char kind, std::size_t number) { return kind + std::to_string(number); };
    const auto talk = [](const WireClient& who, const std::string& called, std::size_t line) {
        who.send(say(called + ' ' + std::to_string(line)));
    };
    std::map<std::uint32_t, std::string> there;
    std::vector<WireClient> members;
    for (std::size_t i = 0; i < kMembers; ++i) {
        members.push_back(WireClient::low(server, name('m', i)));
        there[members[i].id()] = name('m', i);
        EXPECT_EQ(members[i].ask(join(2)).first(5), hex("3D").u32(static_cast<std::uint32_t>(i)));
    }

    // A part of the members' lines at each visit, from another thread: while the visitor talks and
    // leaves.
    std::counting_semaphore<> visits(0);
    std::thread chatter([&] {
        for (std::size_t line = 0; line < kLines; ++line) {
            if (line % (kLines / kVisitors) == 0) visits.acquire();
            const std::size_t who = line % kMembers;
            talk(members[who], name('m', who), line / kMembers);
        }
    });
    std::vector<WireClient> visitors;
    for (std::size_t i = 0; i < kVisitors; ++i) {
        WireClient& visitor = visitors.emplace_back(WireClient::low(server, name('v', i)));
        visitor.send(join(2));
        while (visitor.receive().first(1) != hex("3D"))
            continue;
        visits.release();
        for (std::size_t line = 0; line < kVisitorLines; ++line)
            talk(visitor, name('v', i), line);
        if (i % 4 == 0) visitor.send(join(3));
        if (i % 4 == 1) visitor.send(hex("18"));
        if (i % 4 == 2) visitor.end_sending();
        if (i % 4 == 3) visitor.reset();
    }
    chatter.join();

    std::vector<Bytes> heard;  // by the first, when all are in
    for (std::size_t i = 0; i < kMembers; ++i) {
        for (std::size_t later = i + 1; later < kMembers; ++later)
            ASSERT_EQ(members[i].receive().first(1), hex("3B"));
        if (i > 0) {
            for (const Bytes& packet : heard)
                ASSERT_EQ(members[i].receive(), packet);
        } else {
            std::size_t ends = 0;  // of the visitors and of the members' lines
            while (ends < kVisitors + kLines) {
                const Bytes& packet = heard.emplace_back(members[i].receive());
                ends += packet[0] == 0x3C || (packet[0] == 0x3A && packet[7] == 'm') ? 1 : 0;
            }
        }
        members[i].expect_nothing();
    }
    std::map<std::string, std::size_t> lines;
    for (const Bytes& packet : heard) {
        Reader reader(packet);
        const std::uint32_t opcode = reader.u8();
        if (opcode == 0x3B) {
            const Record visitor = reader.record();
            EXPECT_TRUE(there.emplace(visitor.id, visitor.text(kName)).second) << visitor.id;
        } else if (opcode == 0x3C) {
            EXPECT_EQ(there.erase(reader.u32()), 1U);
        } else {
            const std::string& sender = there[reader.u32()];
            ASSERT_EQ(reader.text(), sender + ' ' + std::to_string(lines[sender]++));
        }
        reader.expect_end();
    }
    // Of the lines of one who vanishes some may never have been read.
    for (std::size_t i = 0; i < kVisitors; ++i)
        EXPECT_TRUE(i % 4 == 3 || lines[name('v', i)] == kVisitorLines) << i;
}

}  // namespace
}  // namespace vorrim::wire
