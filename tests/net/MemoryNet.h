#pragma once
// A network that only memory holds, driven by hand: whoever uses it decides what arrives, when, and
// whether a connect succeeds.
//
//     Line ── bytes, datagrams, the end ──► MemorySocket ──► task
//          ◄── what the task writes ────────
//
// Threads: one; only datagrams may be sent by any.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/file/primitives.h"
#include "base/kx_critical_section.h"
#include "meta/Packet.h"
#include "net/kx_net.h"
#include "net/kx_socket_set.h"
#include "net/kx_tcpip_socket.h"

namespace vorrim {

using Bytes = std::vector<std::byte>;

// The payload in a frame that says its right length.
[[nodiscard]] inline Bytes frame_of(std::span<const std::byte> payload) {
    Packet packet(static_cast<std::uint32_t>(payload.size()));
    write_bytes(packet.body(), payload);
    packet.finish();
    Bytes bytes(packet.header().size() + payload.size());
    std::ranges::copy(payload, std::ranges::copy(packet.header(), bytes.begin()).out);
    return bytes;
}

// What the peer at the other end does, and what it has been told; the network keeps it as long as
// it lives.
struct Line {
    void bring(std::span<const std::byte> bytes) {
        arrived.insert(arrived.end(), bytes.begin(), bytes.end());
        readiness |= kReadable;
    }
    void end() {
        ended = true;
        readiness |= kReadable | kPeerEnded;
    }
    void fail() {
        ended = true;
        readiness |= kReadable | kException;
    }
    void listen(std::size_t bytes) {
        room = bytes;
        readiness |= kWritable;
    }
    // What has been written since the last call.
    Bytes take() {
        readiness |= kWritable;
        return std::exchange(written, {});
    }

    Bytes arrived{};  // a stream's bytes, or one datagram
    std::size_t taken = 0;
    Bytes written{};
    std::size_t room = SIZE_MAX;  // for what is written and not taken
    std::size_t gulp = SIZE_MAX;  // of a write, at most that much
    std::uint32_t address = 0;    // of the peer
    bool ended = false;           // the peer sends no more
    bool stands = true;           // how a connect ends
    std::uint32_t readiness = 0;  // not yet reported
    std::uint32_t interest = 0;   // 0: not watched
    Task* task = nullptr;
    bool closed = false;
    std::function<void()> when_closed{};
};

struct SentDatagram {
    std::string to;  // "address:port"
    std::string bytes;
    bool operator==(const SentDatagram&) const = default;
};
using Datagrams = std::vector<SentDatagram>;

class MemoryNet final : public kx_net_protocol {
public:
    // What the next connects will see: hang for good, fail later, or stand.
    enum class Reach : std::uint8_t { refused_at_once, hangs, refused, stands };
    Reach reach = Reach::stands;

    // The socket of a peer that has connected, and its line.
    std::pair<std::unique_ptr<kx_net_socket>, Line*> arrival(std::uint32_t address) {
        Line* const line = lines_.emplace_back(std::make_unique<Line>()).get();
        line->address = address;
        return {std::make_unique<Socket>(*line, lines_.size() - 1), line};
    }
    // Of the latest socket of any kind.
    [[nodiscard]] Line& newest() { return *lines_.back(); }

    // The datagrams sent over connected sockets since the last call, in order.
    Datagrams take() {
        const kx_guard hold(lock_);
        return std::exchange(sent_, {});
    }

    [[nodiscard]] const char* name() const noexcept override { return "memory"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override {
        return std::make_unique<Set>(*this);
    }
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view) override {
        return nullptr;
    }
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address& to, SocketType type,
                                                         ConnectMode) override {
        if (reach == Reach::refused_at_once) return nullptr;
        if (type == SocketType::datagram)
            return std::make_unique<Sender>(*this, dynamic_cast<const kx_ip_address&>(to));
        auto [socket, line] = arrival(0);
        if (reach != Reach::hangs) {
            line->stands = reach == Reach::stands;
            line->readiness = kWritable;
        }
        return std::move(socket);
    }
    [[nodiscard]] kx_host_info local_host_info() override { return {}; }
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address&, int,
                                                           SocketType) override {
        return arrival(0).first;
    }

private:
    // Without descriptors of their own.
    class Sender final : public kx_tcpip_socket {
    public:
        Sender(MemoryNet& net, const kx_ip_address& to)
            : kx_tcpip_socket(-1, SocketType::datagram),
              net_(net),
              to_(to.text() + ':' + std::to_string(to.get_port())) {}

        std::int32_t write(const void* bytes, std::uint32_t count) override {
            const kx_guard hold(net_.lock_);
            net_.sent_.push_back({to_, std::string(static_cast<const char*>(bytes), count)});
            return static_cast<std::int32_t>(count);
        }
        [[nodiscard]] bool connected() const override { return true; }

    private:
        MemoryNet& net_;
        const std::string to_;
    };

    class Socket final : public kx_tcpip_socket {
    public:
        Socket(Line& line, std::size_t number)
            : kx_tcpip_socket(-1, SocketType::stream), line_(line), number_(number) {}
        ~Socket() override { Socket::close(); }

        std::int32_t read(void* buffer, std::uint32_t count) override {
            const std::size_t some =
                std::min<std::size_t>(count, line_.arrived.size() - line_.taken);
            if (some == 0) return line_.ended ? -1 : 0;
            std::copy_n(line_.arrived.begin() + static_cast<std::ptrdiff_t>(line_.taken), some,
                        static_cast<std::byte*>(buffer));
            line_.taken += some;
            return static_cast<std::int32_t>(some);
        }
        std::int32_t write(const void* bytes, std::uint32_t count) override {
            if (line_.closed) return -1;
            const std::size_t free = line_.room - std::min(line_.room, line_.written.size());
            const std::size_t some = std::min({std::size_t{count}, free, line_.gulp});
            const auto* const begin = static_cast<const std::byte*>(bytes);
            line_.written.insert(line_.written.end(), begin, begin + some);
            return static_cast<std::int32_t>(some);
        }
        std::int32_t write_gathered(std::span<const iovec> pieces) override {
            std::int32_t all = 0;
            for (const iovec& piece : pieces) {
                const auto some = write(piece.iov_base, static_cast<std::uint32_t>(piece.iov_len));
                if (some < 0) return some;
                all += some;
            }
            return all;
        }
        std::size_t receive_batch(std::span<DatagramSlot> slots) override {
            if (slots.empty() || line_.arrived.empty()) return 0;
            auto& bytes = slots[0].bytes;
            bytes = bytes.first(std::min(bytes.size(), line_.arrived.size()));
            std::copy_n(line_.arrived.begin(), bytes.size(), bytes.begin());
            line_.arrived.clear();
            slots[0].peer = kx_ip_address(line_.address, 4665);
            return 1;
        }
        void send_batch(std::span<const DatagramSlot>) override {}
        bool close() override {
            line_.interest = 0;
            if (std::exchange(line_.closed, true)) return false;
            if (line_.when_closed) line_.when_closed();
            return true;
        }
        [[nodiscard]] bool connected() const override { return line_.stands; }
        [[nodiscard]] std::optional<kx_ip_address> peer_address() const override {
            return kx_ip_address(line_.address, 1);
        }
        [[nodiscard]] int handle() const noexcept override { return static_cast<int>(number_); }

    private:
        Line& line_;
        const std::size_t number_;
    };

    class Set final : public kx_socket_set {
    public:
        explicit Set(MemoryNet& net) : net_(net) {}

        bool add(int handle, std::uint32_t flags, Task& task) override {
            Line& watched = line(handle);
            watched.task = &task;
            watched.interest = flags | kException | kPeerEnded;
            return true;
        }
        void want_writable(int handle, Task&) override { line(handle).interest |= kWritable; }
        void remove(int handle) override { line(handle).interest = 0; }
        std::span<const ReadyTask> wait(std::optional<std::chrono::nanoseconds>) override {
            ready_.clear();
            for (const auto& line : net_.lines_) {
                const std::uint32_t flags = line->readiness & line->interest;
                if (flags == 0) continue;
                line->readiness &= ~flags;
                ready_.push_back({line->task, flags});
            }
            return ready_;
        }
        void wake() noexcept override {}

    private:
        Line& line(int handle) { return *net_.lines_[static_cast<std::size_t>(handle)]; }

        MemoryNet& net_;
        std::vector<ReadyTask> ready_;
    };

    std::vector<std::unique_ptr<Line>> lines_;
    kx_critical_section lock_;
    Datagrams sent_ GUARDED_BY(lock_);
};

}  // namespace vorrim
