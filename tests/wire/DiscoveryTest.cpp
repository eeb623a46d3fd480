// Servers that find one another: one server and a stand-in for another, then ten real ones.
#include <set>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

const std::string kAccount = "adminName=root\nadminPass=secret\n";

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

TEST(Discovery, ASeedIsGreetedAndAGreetingAnsweredAndClientsHearOfIt) {
    const StandIn other;
    ServerProcess server("public=true" + seed(other.address, other.port));
    const std::uint16_t port = server.ports().client();
    EXPECT_EQ(other.door.receive(), hello(kLocalhost, port));
    server.wait_for_output("Finding other servers...\n");

    const WireClient client(server);
    EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
    static_cast<void>(client.receive());  // who the server is

    other.door.send_to(server, hello(other.address, other.port));
    const Bytes entry = Bytes().u32(other.address.value()).u16(other.port);
    EXPECT_EQ(other.door.receive(),
              hex("E3 A1").u32(kLocalhost.value()).u16(port).u8(1).add(entry));
    EXPECT_EQ(client.ask(hex("14")), hex("32 01").add(entry));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    // Tags that a server of the list has follow; it owes no answer.
    EXPECT_EQ(server.folder()->read("serverList.met").substr(0, 11),
              hex("0E 01 00 00 00").add(entry).string());
}

TEST(Discovery, AListTeachesItsEntriesAndRefreshesOnlyAKnownSender) {
    const StandIn known;
    const StandIn stranger;
    const ServerProcess server(kAccount + "public=true" + seed(known.address, known.port));
    // The first sweep is over then, and the start has said all that it has to say.
    EXPECT_EQ(known.door.receive(), hello(kLocalhost, server.ports().client()));
    server.wait_for_prompt();
    known.door.send_to(server, list(known.address, known.port, {1, 2}));
    stranger.door.send_to(server, list(stranger.address, stranger.port, {3}));
    // Shorter than it says: nothing of it counts.
    stranger.door.send_to(server, list(stranger.address, stranger.port, {4, 5}).first(9 + 11));
    stranger.door.send_to(server, hello(stranger.address, stranger.port).first(7));
    EXPECT_EQ(server.status(), (Status{0, 0}));

    const Administrator admin(server, "root", "secret");
    admin.send_command("vs");
    admin.send_command("g");
    const std::string header = "Num\tName\t\tIP\t\tPort\t\tPingCount\n";
    const auto row = [](int number, const StandIn& at, std::uint16_t port) {
        return "(" + std::to_string(number) + ")\t(null)\t" + at.address.text() + '\t' +
               std::to_string(port) + "\t0\n";
    };
    EXPECT_EQ(admin.receive_until("Users"), header + row(1, known, known.port) + row(2, known, 1) +
                                                row(3, known, 2) + row(4, stranger, 3) +
                                                "Working:\n" + header + row(1, known, known.port) +
                                                "Users: 0\t\tFiles: 0\n");
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

// Ten servers, each on ports of its own and announcing an address of its own. Each knows one other
// at first: the next one, through its seed.
TEST(NetworkOfServers, AllFindAllWithoutThoseWhoAreGoneAndWelcomeWhoComesBack) {
    struct Node {
        Address address;
        ServerProcess::Setup setup{.folder = std::make_shared<ScratchFolder>(),
                                   .ports = std::make_shared<PortBlock>()};
        std::unique_ptr<ServerProcess> process{};

        void start() {
            process = std::make_unique<ServerProcess>(setup);
            process->wait_for_prompt();
        }
    };
    std::vector<Node> nodes;
    for (unsigned i = 0; i < 10; ++i)
        nodes.push_back({Address(127, 0, 0, 11 + i)});
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const Node& next = nodes[(i + 1) % nodes.size()];
        nodes[i].setup.settings = "public=true\nthreads=1\nthisIP=" + nodes[i].address.text() +
                                  seed(next.address, next.setup.ports->client());
        nodes[i].start();
    }

    using Servers = std::set<std::pair<std::uint32_t, std::uint32_t>>;  // address and port
    const auto self = [](const Node& node) {
        return std::pair(node.address.value(), std::uint32_t{node.setup.ports->client()});
    };
    // Whom a server names to its clients, and itself: those who have answered its latest sweep, or
    // greeted it since then.
    const auto known_to = [&](const Node& node) {
        Servers all{self(node)};
        Reader reader(WireClient(*node.process).ask(hex("14")), 0x32);
        for (std::uint32_t left = reader.u8(); left > 0; --left) {
            const std::uint32_t address = reader.u32();
            all.emplace(address, reader.u16());
        }
        return all;
    };
    // Every server calls all that it knows, again and again, until the living know one another and
    // nobody else. The pauses grow, so that on a busy machine too the answers come between two
    // calls.
    const auto sweep_until_all_know_all = [&] {
        Servers living;
        for (const Node& node : nodes)
            if (node.process) living.insert(self(node));
        std::chrono::milliseconds pause{0};
        wait_until("all know all", [&] {
            for (const Node& node : nodes)
                if (node.process) node.process->type("sweep\n");
            std::this_thread::sleep_for(pause += std::chrono::milliseconds(20));
            return std::ranges::all_of(
                nodes, [&](const Node& node) { return !node.process || known_to(node) == living; });
        });
    };

    sweep_until_all_know_all();
    for (const std::size_t i : {2U, 5U, 6U}) {
        EXPECT_EQ(nodes[i].process->stop(SIGKILL), -SIGKILL);
        nodes[i].process.reset();
    }
    sweep_until_all_know_all();
    nodes[5].start();
    sweep_until_all_know_all();
}

}  // namespace
}  // namespace vorrim::wire
