// Every message of the catalogue, byte by byte, in both directions.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

const Bytes kFile = hex("00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
const Bytes kPerson = hex("A0 A1 A2 A3 A4 A5 A6 A7 A8 A9 AA AB AC AD AE AF");
// "Blue Sky.mp3", 1000 bytes.
const Bytes kFileTags =
    hex("02 01 00 01 0C 00 42 6C 75 65 20 53 6B 79 2E 6D 70 33"
        "03 01 00 02 E8 03 00 00");
// "Ann", version 60.
const Bytes kAnnsTags = hex("02 01 00 01 03 00 41 6E 6E  03 01 00 11 3C 00 00 00");

// What comes before a request, the request, what comes behind it.
Bytes around(const char* before, const Bytes& between, const Bytes& behind = Bytes()) {
    return hex(before).add(between).add(behind);
}

// The record of the file as it comes back from identifier 1, port 1, with so many sources.
Bytes file_record(std::uint32_t sources) {
    return Bytes(kFile)
        .add(hex("01 00 00 00 01 00 03 00 00 00"))
        .add(kFileTags)
        .add(hex("03 01 00 15").u32(sources));
}

Bytes anns_record() {
    return Bytes(kPerson).add(hex("01 00 00 00 01 00 02 00 00 00")).add(kAnnsTags);
}

class Catalogue : public ::testing::Test {
protected:
    static void expect(const char* what, const WireClient& who, const Bytes& said,
                       const std::vector<Bytes>& heard) {
        SCOPED_TRACE(what);
        ASSERT_NO_THROW({
            who.send_raw(said);
            for (const Bytes& packet : heard)
                EXPECT_EQ(who.receive_packet(), packet);
            who.expect_nothing();
        });
    }

    // Ann announces port 1, where nobody listens, gets the first low identifier, and shares a file.
    void SetUp() override {
        expect("login", ann_,
               around("E3 2C 00 00 00 01", kPerson,
                      hex("00 00 00 00 01 00 02 00 00 00").add(kAnnsTags)),
               {hex("E3 05 00 00 00 40 01 00 00 00"),
                around("E3 17 00 00 00 38 14 00", Bytes().raw("server version 16.36"))});
        expect("offer", ann_,
               around("E3 39 00 00 00 15 01 00 00 00", kFile,
                      hex("00 00 00 00 00 00 02 00 00 00").add(kFileTags)),
               {});
    }

    const ServerProcess server_{"name=Vor\ndesc=Test\nthisIP=10.1.2.3"};
    const WireClient ann_{server_, Address(127, 99, 98, 97)};
    WireClient bob_{server_, Address(127, 9, 8, 7)};
};

TEST_F(Catalogue, OverAConnection) {
    expect(
        "server list", ann_, hex("E3 01 00 00 00 14"),
        {hex("E3 02 00 00 00 32 00"),
         hex("E3 2E 00 00 00 41 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 0A 01 02 03")
             .u16(server_.ports().client())
             .add(hex("02 00 00 00  02 01 00 01 03 00 56 6F 72  02 01 00 0B 04 00 54 65 73 74"))});
    expect("more results", ann_, hex("E3 01 00 00 00 21"), {});
    expect("sources", ann_, around("E3 11 00 00 00 19", kFile),
           {around("E3 18 00 00 00 42", kFile, hex("01 01 00 00 00 01 00"))});
    expect("users named Ann", ann_, hex("E3 07 00 00 00 1A 01 03 00 61 6E 6E"),
           {around("E3 30 00 00 00 43 01 00 00 00", anns_record())});
    expect("a user by hash", ann_, around("E3 11 00 00 00 1B", kPerson),
           {around("E3 2D 00 00 00 3F 01", anns_record())});
    expect("nobody by hash", ann_, around("E3 11 00 00 00 1B", kFile),
           {hex("E3 02 00 00 00 3F 00")});

    bob_.open_door();
    bob_.login(client_record(hash_of(2), "Bob"));
    expect("blue and Size > 999", bob_,
           hex("E3 13 00 00 00 16 00 00 01 04 00 62 6C 75 65 03 E7 03 00 00 01 01 00 02"),
           {around("E3 42 00 00 00 33 01 00 00 00", file_record(1), hex("00"))});
    expect("call-back", bob_, hex("E3 05 00 00 00 1C 01 00 00 00"), {});
    EXPECT_EQ(ann_.receive_packet(),
              hex("E3 07 00 00 00 35 7F 09 08 07").u16(bob_.announced_port()));
    expect("call-back refused", bob_, hex("E3 05 00 00 00 1C 02 00 00 00"),
           {hex("E3 05 00 00 00 36 02 00 00 00")});

    expect("a text", bob_, hex("E3 0A 00 00 00 20 01 02 03 04 03 00 61 62 63"), {});
    bob_.send_raw(hex("E3 09 00 00 00 20 01 02 03 04 03 00 61 62"));  // cut short
    bob_.expect_closed();
    ann_.send_raw(hex("E3 01 00 00 00 18"));
    ann_.expect_closed();
    server_.wait_for_status({0, 0});
}

TEST_F(Catalogue, ByDatagram) {
    const Datagram asker(server_);
    EXPECT_EQ(asker.ask(hex("E3 96 78 56 34 12")),
              hex("E3 97 78 56 34 12 02 00 00 00 01 00 00 00"));
    EXPECT_EQ(asker.ask(around("E3 9A", kFile)),
              around("E3 9B", kFile, hex("01 01 00 00 00 01 00")));
    EXPECT_EQ(asker.ask(hex("E3 9D 01 02 00 6E 6E")), around("E3 99", anns_record()));
    EXPECT_EQ(asker.ask(hex("E3 9C 05 06 07 08 36 12 02 00 00 00")), hex("E3 9E 02 00 00 00"));
    asker.send(hex("E3 9C 05 06 07 08 36 12 01 00 00 00"));
    EXPECT_EQ(ann_.receive_packet(), hex("E3 07 00 00 00 35 05 06 07 08 36 12"));

    // With a second source that can be reached, Ann's file is seen.
    bob_.open_door();
    bob_.login(client_record(hash_of(2), "Bob"));
    Record copy = file(Hash{}, "another name");
    std::copy_n(kFile.data(), kFile.size(), copy.hash.bytes.begin());
    bob_.publish({copy});
    EXPECT_EQ(asker.ask(hex("E3 98 01 03 00 73 6B 79")), around("E3 99", file_record(2)));
}

}  // namespace
}  // namespace vorrim::wire
