#pragma once
// Connections that do what the first byte of a packet says, on a pool that a test drives by hand.

#include <memory>
#include <string>
#include <utility>

#include "base/kx_err.h"
#include "net/Connection.h"
#include "tests/net/PoolFixture.h"

namespace vorrim {

// Answers every packet with the same packet; some opcodes do something else.
class EchoConnection final : public Connection {
public:
    static constexpr std::uint8_t kRefuse = 'X';
    static constexpr std::uint8_t kRaiseLater = 'R';
    static constexpr std::uint8_t kShare = 'S';        // sends the payload as a shared packet
    static constexpr std::uint8_t kInPlace = 'I';      // writes it in place
    static constexpr std::uint8_t kAbandon = 'A';      // begins that and thinks better of it
    static constexpr std::uint8_t kEnlarge = 'E';      // answers with a hundred times as much
    static constexpr std::uint8_t kLongPackets = 'L';  // lets long packets in
    static constexpr std::uint8_t kSearch = 'Q';       // counts as a search

    // What all connections of a test have in common.
    struct Shared {
        int alive = 0;
        int handled = 0;
        ManualClock* slowed = nullptr;  // on which every message takes a millisecond
    };

    EchoConnection(std::unique_ptr<kx_net_socket> socket, socketPool& pool, Shared& all)
        : Connection(std::move(socket), pool), all_(all) {
        ++all_.alive;
    }
    ~EchoConnection() override { --all_.alive; }

    int turns_to_leave = 0;

private:
    bool farewell() override { return turns_to_leave-- <= 0; }
    Turn onAlarm() override { kx_error("as asked"); }

    Verdict handle_message(std::uint8_t opcode, kx_memory_file& payload) override {
        ++all_.handled;
        if (all_.slowed != nullptr) all_.slowed->advance(std::chrono::milliseconds(1));
        if (opcode == kRefuse) return Verdict::close;
        if (opcode == kRaiseLater) setAlarm(share()->clock().now());
        if (opcode == kLongPackets) allowLongPackets();
        if (opcode == kSearch && spend(Request::search) == Verdict::close) return Verdict::close;
        if (opcode == kInPlace || opcode == kAbandon) {
            Reply reply(*this, static_cast<Opcode>(opcode));
            write_bytes(reply.body(), payload.take(payload.remaining()));
            if (opcode == kInPlace) reply.finish();
            return Verdict::keep;
        }
        Packet packet(1);
        write_8(packet.body(), opcode);
        if (opcode == kEnlarge) write_bytes(packet.body(), Bytes(99 * payload.size()));
        write_bytes(packet.body(), payload.take(payload.remaining()));
        packet.finish();
        if (opcode == kShare) {
            send(std::make_shared<const Packet>(std::move(packet)));
        } else {
            send(packet);
        }
        return Verdict::keep;
    }

    Shared& all_;
};

class EchoFixture : public PoolFixture {
protected:
    void SetUp() override { connect(); }
    void TearDown() override {
        pool_.delete_all();
        EXPECT_EQ(all_.alive, 0);
    }

    // A further connection: the latest from now on.
    Line& connect() {
        auto [socket, line] = net_.arrival(0);
        auto made = std::make_unique<EchoConnection>(std::move(socket), pool_, all_);
        connection_ = made.get();
        peer_ = line;
        pool_.add(std::move(made));
        settle();
        return *line;
    }

    EchoConnection::Shared all_;
    EchoConnection* connection_ = nullptr;  // the latest
    Line* peer_ = nullptr;
};

}  // namespace vorrim
