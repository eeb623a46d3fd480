// Servers that find one another: one server and a stand-in for another, then ten real ones.
#include <map>
#include <sstream>

#include "tests/wire/harness/WireTest.h"

namespace vorrim::wire {
namespace {

const std::string kAccount = "adminName=root\nadminPass=secret\n";
constexpr std::uint16_t kDatagramOffset = 4;

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

// Another server, as far as one that is tested can tell.
class StandIn final {
public:
    StandIn() : socket_(Socket::open(SOCK_DGRAM)) {
        socket_.bind(address, 0);
        port = static_cast<std::uint16_t>(socket_.port() - kDatagramOffset);
    }
    void send(const ServerProcess& to, const Bytes& datagram) const {
        const sockaddr_in door = endpoint(kLocalhost, to.ports().udp());
        ASSERT_EQ(::sendto(socket_.descriptor(), datagram.data(), datagram.size(), 0,
                           reinterpret_cast<const sockaddr*>(&door), sizeof door),
                  static_cast<ssize_t>(datagram.size()));
    }
    [[nodiscard]] Bytes receive() const {
        if (!socket_.readable()) throw WireFailure("no datagram from the server");
        std::vector<std::uint8_t> room(2000);
        const ssize_t count = ::recv(socket_.descriptor(), room.data(), room.size(), 0);
        return Bytes(std::span(room).first(static_cast<std::size_t>(std::max<ssize_t>(0, count))));
    }
    [[nodiscard]] bool silent() const { return !socket_.readable(std::chrono::milliseconds(0)); }

    const Address address = next_address();
    std::uint16_t port = 0;

private:
    Socket socket_;
};

TEST(Discovery, ASeedIsGreetedAndAGreetingAnsweredAndClientsHearOfIt) {
    const StandIn other;
    ServerProcess server("public=true\nseedIP=" + other.address.text() +
                         "\nseedPort=" + std::to_string(other.port));
    const std::uint16_t port = server.ports().client();
    EXPECT_EQ(other.receive(), hello(kLocalhost, port));
    server.wait_for_output("Finding other servers...\n");

    WireClient client(server);
    EXPECT_EQ(client.ask(hex("14")), hex("32 00"));
    static_cast<void>(client.receive());  // who the server is

    other.send(server, hello(other.address, other.port));
    EXPECT_EQ(other.receive(), hex("E3 A1")
                                   .u32(kLocalhost.value())
                                   .u16(port)
                                   .u8(1)
                                   .u32(other.address.value())
                                   .u16(other.port));
    EXPECT_EQ(client.ask(hex("14")), hex("32 01").u32(other.address.value()).u16(other.port));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    // Address, port and the tags that a server of the list has; it owes no answer.
    EXPECT_EQ(
        server.folder()->read("serverList.met").substr(0, 11),
        std::string("\x0E\x01\0\0\0", 5) + [&] {
            const Bytes bytes = Bytes().u32(other.address.value()).u16(other.port);
            return bytes.string();
        }());
}

TEST(Discovery, AListTeachesItsEntriesAndRefreshesOnlyAKnownSender) {
    const StandIn known;
    const StandIn stranger;
    const ServerProcess server(kAccount + "public=true\nseedIP=" + known.address.text() +
                               "\nseedPort=" + std::to_string(known.port));
    // The first sweep is over then, and the start has said all that it has to say.
    EXPECT_EQ(known.receive(), hello(kLocalhost, server.ports().client()));
    server.wait_for_prompt();
    known.send(server, list(known.address, known.port, {1, 2}));
    stranger.send(server, list(stranger.address, stranger.port, {3}));
    // Shorter than it says: nothing of it counts.
    stranger.send(server, list(stranger.address, stranger.port, {4, 5}).first(9 + 11));
    stranger.send(server, hello(stranger.address, stranger.port).first(7));
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
    ServerProcess server("seedIP=" + other.address.text() +
                         "\nseedPort=" + std::to_string(other.port));
    other.send(server, hello(other.address, 99));
    other.send(server, list(other.address, other.port, {1, 2, 3}));
    server.type("sweep\ng\n");
    server.wait_for_output("Users: ");
    EXPECT_EQ(WireClient(server).ask(hex("14")), hex("32 00"));
    EXPECT_EQ(server.stop(SIGTERM), 1);
    EXPECT_TRUE(other.silent());
    EXPECT_EQ(server.output().find("Finding"), std::string::npos);
    EXPECT_EQ(server.folder()->read("serverList.met").substr(0, 5),
              std::string("\x0E\x01\0\0\0", 5));
}

TEST(Discovery, AFileThatEndsTooEarlyEndsTheStartAndIsLeftAsItIs) {
    const auto folder = std::make_shared<ScratchFolder>();
    const std::string cut("\x0E\x02\0\0\0\x7F\0\0\x01\x35\x12\0\0\0\0\x7F", 16);
    folder->write("serverList.met", cut);
    ServerProcess server(
        ServerProcess::Setup{.ready = ServerProcess::Ready::at_once, .folder = folder});
    EXPECT_EQ(server.exit(), 1);
    EXPECT_NE(server.errors().find("Unrecoverable error at "), std::string::npos);
    EXPECT_EQ(folder->read("serverList.met"), cut);
}

// Ten servers, each on ports of its own and announcing an address of its own. Each knows one other
// at first: the next one, through its seed.
class NetworkOfServers : public ::testing::Test {
protected:
    static constexpr std::size_t kServers = 10;

    struct Node {
        Address address;
        std::shared_ptr<PortBlock> ports = std::make_shared<PortBlock>();
        std::shared_ptr<ScratchFolder> folder = std::make_shared<ScratchFolder>();
        std::unique_ptr<ServerProcess> process{};
        std::unique_ptr<Administrator> admin{};

        [[nodiscard]] std::string name() const {
            return address.text() + ':' + std::to_string(ports->client());
        }
    };
    using Known = std::map<std::string, int>;

    void SetUp() override {
        for (unsigned i = 0; i < kServers; ++i)
            nodes_.push_back({Address(127, 0, 0, 11 + i)});
        for (std::size_t i = 0; i < kServers; ++i)
            start(i);
    }

    void start(std::size_t i) {
        Node& node = nodes_[i];
        const Node& next = nodes_[(i + 1) % kServers];
        node.process = std::make_unique<ServerProcess>(ServerProcess::Setup{
            .settings = kAccount + "public=true\nverbose=true\nthreads=1\nthisIP=" +
                        node.address.text() + "\nseedIP=" + next.address.text() +
                        "\nseedPort=" + std::to_string(next.ports->client()),
            .folder = node.folder,
            .ports = node.ports});
        // The first sweep has counted its pings, and the start has said all that it has to say.
        node.process->wait_for_output("Calling: ");
        node.process->wait_for_prompt();
        node.admin = std::make_unique<Administrator>(*node.process, "root", "secret");
    }

    // What a server says of the others, itself left out: unanswered pings of each.
    [[nodiscard]] Known known(std::size_t i) const {
        const Administrator& admin = *nodes_[i].admin;
        admin.send_command("vs");
        admin.send_command("g");
        const std::string all = admin.receive_until("Users");
        std::istringstream rows(all.substr(0, all.find("Working:")));
        Known others;
        for (std::string row; std::getline(rows, row);) {
            std::istringstream fields(row);
            std::string number;
            std::string address;
            std::string port;
            int pings = 0;
            if (row.starts_with('(') && fields >> number >> number >> address >> port >> pings)
                others[address + ':' + port] = pings;
        }
        others.erase(nodes_[i].name());
        return others;
    }

    // One sweep of every living server. Returns when all of them have their answers, and when each
    // of the dead owes this many, or is forgotten.
    void sweep(std::optional<int> owed_by_dead = std::nullopt) {
        for_each_living([&](std::size_t i) {
            nodes_[i].admin->send_command("sweep");
            // By the first call the pings have been counted.
            static_cast<void>(nodes_[i].admin->receive_until("Calling: "));
            wait_until("the answers to a sweep", [&] {
                const Known all = known(i);
                return std::ranges::all_of(nodes_, [&](const Node& node) {
                    const auto entry = all.find(node.name());
                    const bool is_known = entry != all.end();
                    if (node.admin) return !is_known || entry->second == 0;
                    return is_known ? entry->second == owed_by_dead : !owed_by_dead;
                });
            });
        });
    }

    // Whether each living server knows so many others, and all of the living.
    [[nodiscard]] bool all_know(std::size_t count) const {
        bool right = true;
        for_each_living([&](std::size_t i) {
            const Known others = known(i);
            right &= others.size() == count;
            for_each_living([&](std::size_t other) {
                right &= other == i || others.contains(nodes_[other].name());
            });
        });
        return right;
    }

    void for_each_living(const auto& act) const {
        for (std::size_t i = 0; i < kServers; ++i)
            if (nodes_[i].admin) act(i);
    }

    std::vector<Node> nodes_;
};

TEST_F(NetworkOfServers, AllFindAllAndForgetWhoIsGoneAndWelcomeWhoComesBack) {
    int sweeps = 0;
    for (; !all_know(kServers - 1); ++sweeps) {
        ASSERT_LT(sweeps, 10) << "they do not find one another";
        sweep();
    }
    std::cout << "all know all after " << sweeps << " sweeps\n";
    sweep();

    for (const std::size_t i : {2U, 5U, 6U}) {
        nodes_[i].admin.reset();
        EXPECT_EQ(nodes_[i].process->stop(SIGKILL), -SIGKILL);
    }
    for (int count = 1; count <= 6; ++count)
        sweep(count);
    EXPECT_TRUE(all_know(kServers - 1));
    sweep();
    EXPECT_TRUE(all_know(kServers - 1 - 3));

    // It comes back with the list of its last run and greets everybody on it.
    start(5);
    for_each_living([&](std::size_t i) {
        wait_until("the one that came back is known",
                   [&] { return i == 5 || known(i).contains(nodes_[5].name()); });
    });
}

}  // namespace
}  // namespace vorrim::wire
