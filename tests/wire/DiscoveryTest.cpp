// Servers that find one another: one server, and stand-ins for others.
#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

Bytes hello(Address address, std::uint16_t port) {
    return hex("E3 A0").u32(address.value()).u16(port);
}

Bytes list(Address sender, std::uint16_t port, const std::vector<std::uint16_t>& ports_at_sender) {
    Bytes bytes = hex("E3 A1").u32(sender.value()).u16(port);
    bytes.u8(static_cast<std::uint32_t>(ports_at_sender.size()));
    for (const std::uint16_t listed : ports_at_sender)
        bytes.u32(sender.value()).u16(listed);
    return bytes;
}

std::string seed(Address address, std::uint16_t port) {
    return "\nseedIP=" + address.text() + "\nseedPort=" + std::to_string(port);
}

// Another server, as far as one that is tested can tell.
struct StandIn {
    Datagram door;
    Address address = door.address();
    std::uint16_t port = static_cast<std::uint16_t>(door.port() - 4);
};

TEST(Discovery, ASeedIsGreetedAndAGreetingAnsweredAndClientsHearOfWhoHasAnswered) {
    const StandIn other;
    ServerProcess server("public=true" + seed(other.address, other.port));
    const std::uint16_t port = server.ports().client();
    EXPECT_EQ(other.door.receive(), hello(kLocalhost, port));
    server.wait_for_output("Finding other servers...\n");

    const WireClient client(server);
    const auto servers = [&] {
        const Bytes list = client.ask(hex("14"));
        static_cast<void>(client.receive());  // who the server is
        return list;
    };
    EXPECT_EQ(servers(), hex("32 00"));
    other.door.send_to(server, hello(other.address, other.port));
    const Bytes entry = Bytes().u32(other.address.value()).u16(other.port);
    const Bytes answer = hex("E3 A1").u32(kLocalhost.value()).u16(port).u8(1).add(entry);
    EXPECT_EQ(other.door.receive(), answer);
    EXPECT_EQ(servers(), hex("32 01").add(entry));
    // Each sweep asks again who is still there.
    server.type("sweep\n");
    EXPECT_EQ(other.door.receive(), hello(kLocalhost, port));
    EXPECT_EQ(servers(), hex("32 00"));
    other.door.send_to(server, list(other.address, other.port, {}));
    static_cast<void>(server.status());  // it has been read
    EXPECT_EQ(servers(), hex("32 01").add(entry));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    // Tags that a server of the list has follow; it owes no answer.
    EXPECT_EQ(server.folder()->read("serverList.met").substr(0, 11),
              hex("0E 01 00 00 00").add(entry).string());
    // From there it knows whom to call when it starts again.
    const ServerProcess again({.settings = "public=true", .folder = server.folder()});
    EXPECT_EQ(other.door.receive(), hello(kLocalhost, again.ports().client()));
}

TEST(Discovery, AListTeachesItsEntriesAndRefreshesOnlyAKnownSender) {
    const StandIn known;
    const StandIn stranger;
    const ServerProcess server("public=true" + seed(known.address, known.port));
    // The first sweep is over then.
    EXPECT_EQ(known.door.receive(), hello(kLocalhost, server.ports().client()));
    known.door.send_to(server, list(known.address, known.port, {1, 2}));
    stranger.door.send_to(server, list(stranger.address, stranger.port, {3}));
    // Shorter than it says: nothing of it counts.
    stranger.door.send_to(server, list(stranger.address, stranger.port, {4, 5}).first(9 + 11));
    stranger.door.send_to(server, hello(stranger.address, stranger.port).first(7));
    EXPECT_EQ(server.status(), (Status{0, 0}));

    const std::string header = "Num\tName\t\tIP\t\tPort\t\tPingCount\n";
    const auto row = [](int number, const StandIn& at, std::uint16_t port) {
        return "(" + std::to_string(number) + ")\t(null)\t" + at.address.text() + '\t' +
               std::to_string(port) + "\t0\n";
    };
    server.type("vs\n");
    server.wait_for_output(header + row(1, known, known.port) + row(2, known, 1) +
                           row(3, known, 2) + row(4, stranger, 3) + "Working:\n" + header +
                           row(1, known, known.port) + "> ");
}

TEST(Discovery, AServerThatIsNotPublicNeitherGreetsNorAnswersNorLearns) {
    const StandIn other;
    ServerProcess server(seed(other.address, other.port));
    other.door.send_to(server, hello(other.address, 99));
    other.door.send_to(server, list(other.address, other.port, {1, 2, 3}));
    server.type("sweep\ng\n");
    server.wait_for_output("Users: ");
    EXPECT_EQ(WireClient(server).ask(hex("14")), hex("32 00"));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_TRUE(other.door.silent());
    EXPECT_EQ(server.output().find("Finding"), std::string::npos);
    EXPECT_EQ(server.folder()->read("serverList.met").substr(0, 5), hex("0E 01 00 00 00").string());
}

TEST(Discovery, AFileThatEndsTooEarlyEndsTheStartAndIsLeftAsItIs) {
    const auto folder = std::make_shared<ScratchFolder>();
    const std::string cut = hex("0E 02 00 00 00  7F 00 00 01 35 12 00 00 00 00  7F").string();
    folder->write("serverList.met", cut);
    ServerProcess server({.ready = ServerProcess::Ready::at_once, .folder = folder});
    EXPECT_EQ(server.exit(), 1);
    EXPECT_NE(server.errors().find("Unrecoverable error at "), std::string::npos);
    EXPECT_EQ(folder->read("serverList.met"), cut);
}

}  // namespace
}  // namespace vorrim::wire
