#include "app/ServerDirectory.h"

#include <utility>
#include <vector>

#include "base/Output.h"
#include "base/file/primitives.h"
#include "meta/Opcodes.h"
#include "net/DatagramPacket.h"

namespace vorrim {

namespace {

// Room behind the marker: opcode and endpoint; a list as long as one may be.
constexpr std::uint32_t kHelloRoom = 7;
constexpr std::uint32_t kListRoom = 2000;

// The first three numbers of an address in identifier form.
constexpr std::uint32_t kNetworkMask = 0x00FF'FFFF;

std::uint16_t datagram_port(std::uint16_t client_port) {
    return static_cast<std::uint16_t>(client_port + kDatagramPortOffset);
}

}  // namespace

ServerDirectory::ServerDirectory(const ServerSettings& settings, kx_net_protocol& net,
                                 LimitLog& limits)
    : settings_(settings), net_(net), limits_(limits) {}

void ServerDirectory::start() {
    if (!known_.loadFromFile(settings_.serverListFile)) known_.clear();
    if (known_.count() != 0) return;
    const auto seed = std::make_shared<ServerMeta>();
    if (seed->setAddress(settings_.seedIP.value_or(""),
                         static_cast<std::uint16_t>(settings_.seedPort))) {
        known_.append(seed);
    }
}

void ServerDirectory::save() {
    const kx_guard hold(save_lock_);
    // A list that cannot be written now is written in an hour; the old file is still there.
    static_cast<void>(known_.saveToFile(settings_.serverListFile));
}

void ServerDirectory::sweep() {
    if (!is_public()) return;
    current_output().printLine("Finding other servers...");
    DatagramPacket hello(kHelloRoom);
    write_8(hello.body(), to_byte(Opcode::OP_UDP_SERVER_HELLO));
    write_own_address(hello.body());

    std::vector<std::pair<std::uint32_t, std::uint16_t>> called;
    {
        const kx_guard hold(lock_);
        working_.clear();
        // A ping is counted before it goes out, so that the answer cannot come first.
        known_.visit([&](ServerMeta& server) {
            if (server.history() > kMostUnansweredPings) return Visit::remove;
            if (server.id() == settings_.thisIP && server.port() == settings_.clientPort())
                return Visit::keep;
            called.emplace_back(server.id(), server.port());
            server.addPing();
            return Visit::keep;
        });
    }
    for (const auto& [address, port] : called) {
        current_output().printVerbose("Calling: %u : %d\n", address, port);
        hello.send_to_server(net_, address, datagram_port(port));
    }
}

void ServerDirectory::heardFrom(const ServerList::Record& server, Told told) {
    server->setHistory(0);
    if (told != Told::by_others) server->setAnswered();
    working_.addUnique(server);
}

void ServerDirectory::onHello(std::uint32_t address, std::uint16_t port, Told told) {
    if (!is_public()) return;
    {
        const kx_guard hold(lock_);
        // Whoever finds no room is answered nevertheless.
        if (const ServerList::Record server = findOrAdd(address, port, told))
            heardFrom(server, told);
    }
    DatagramPacket list(kListRoom);
    write_8(list.body(), to_byte(Opcode::OP_UDP_SERVER_LIST));
    write_own_address(list.body());
    writeWorkingList(list.body());
    list.send_to_server(net_, address, datagram_port(port));
}

void ServerDirectory::onListHeader(std::uint32_t address, std::uint16_t port, Told told) {
    const kx_guard hold(lock_);
    if (const ServerList::Record sender = known_.find(address, port)) heardFrom(sender, told);
}

void ServerDirectory::learn(std::uint32_t address, std::uint16_t port, Told told) {
    const kx_guard hold(lock_);
    static_cast<void>(findOrAdd(address, port, told));
}

ServerList::Record ServerDirectory::findOrAdd(std::uint32_t address, std::uint16_t port,
                                              Told told) {
    if (ServerList::Record known = known_.find(address, port)) return known;
    if (told != Told::at_home && !makeRoom(address, told)) {
        limits_.count(Limit::known_servers);
        return nullptr;
    }
    return known_.findOrAdd(address, port);
}

// A server that was only heard of goes before others, and of those the one that has been silent
// longest.
bool ServerDirectory::makeRoom(std::uint32_t address, Told told) {
    struct Crowd {
        std::int32_t most;
        std::int32_t count = 0;
        const ServerMeta* victim = nullptr;

        [[nodiscard]] bool full() const { return most > 0 && count >= most; }
        void add(const ServerMeta& server) {
            ++count;
            if (server.hasAnswered()) return;
            if (victim == nullptr || server.history() > victim->history()) victim = &server;
        }
    };
    Crowd all{settings_.knownServers};
    Crowd network{settings_.serversPerNetwork};
    known_.forEach([&](const ServerMeta& server) {
        all.add(server);
        if ((server.id() & kNetworkMask) == (address & kNetworkMask)) network.add(server);
    });
    if (!all.full() && !network.full()) return true;
    const ServerMeta* const victim = network.full() ? network.victim : all.victim;
    if (told != Told::by_itself || victim == nullptr) return false;
    working_.remove(*victim);
    known_.remove(*victim);
    return true;
}

void ServerDirectory::write_own_address(kx_memory_file& out) const {
    write_32(out, settings_.thisIP);
    write_16(out, settings_.clientPort());
}

void ServerDirectory::writeWorkingList(kx_memory_file& out) const {
    const std::uint32_t count_at = out.tell();
    std::uint8_t count = 0;
    write_8(out, count);
    working_.forEach([&](const ServerMeta& server) {
        if (count == kMaxEntriesInList) return;
        write_32(out, server.id());
        write_16(out, server.port());
        ++count;
    });
    store_8(out.data() + count_at, count);
}

void ServerDirectory::forEachKnown(const std::function<void(const ServerMeta&)>& see) const {
    known_.forEach(see);
}

void ServerDirectory::forEachWorking(const std::function<void(const ServerMeta&)>& see) const {
    working_.forEach(see);
}

}  // namespace vorrim
