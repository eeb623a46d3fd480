#pragma once
// A network that only memory holds, driven by hand: the target decides what arrives, when, and
// whether a connect succeeds.
//
//     Line ── bytes, datagrams, the end ──► MemorySocket ──► task
//          ◄── what the task writes ────────
//
// Threads: one.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "fuzz/Input.h"
#include "net/kx_net.h"
#include "net/kx_socket_set.h"

namespace vorrim::fuzz {

// One end's state; the network keeps it as long as the run lasts.
struct Line {
    std::vector<std::byte> arrived{};  // a stream's bytes, or one datagram
    std::size_t taken = 0;
    std::uint64_t sent = 0;       // bytes written by the task
    std::uint32_t address = 0;    // of the peer
    bool ended = false;           // the peer sends no more
    bool deaf = false;            // the peer does not read
    bool stands = true;           // how a connect ends
    std::uint32_t readiness = 0;  // not yet reported
    std::uint32_t interest = 0;   // 0: not watched
    Task* task = nullptr;
    bool closed = false;
};

class MemoryNet final : public kx_net_protocol {
public:
    // What the next connects will see: hang for good, fail later, or stand.
    enum class Reach : std::uint8_t { refused_at_once, hangs, refused, stands };
    Reach reach = Reach::stands;

    // The socket of a peer that has connected; its number.
    std::pair<std::unique_ptr<kx_net_socket>, std::size_t> arrival(std::uint32_t address) {
        lines_.push_back(std::make_unique<Line>());
        lines_.back()->address = address;
        return {std::make_unique<Socket>(*this, lines_.size() - 1), lines_.size() - 1};
    }
    // The line of the latest socket of any kind.
    [[nodiscard]] std::size_t newest() const noexcept { return lines_.size() - 1; }
    [[nodiscard]] Line& line(std::size_t number) { return *lines_[number]; }

    // Something becomes ready; reported by the next wait.
    void bring(std::size_t number, std::span<const std::byte> bytes) {
        Line& to = line(number);
        to.arrived.insert(to.arrived.end(), bytes.begin(), bytes.end());
        to.readiness |= kReadable;
    }
    void end(std::size_t number) {
        line(number).ended = true;
        line(number).readiness |= kReadable | kPeerEnded;
    }
    void fail(std::size_t number) {
        line(number).ended = true;
        line(number).readiness |= kReadable | kException;
    }
    void listen_again(std::size_t number) {
        line(number).deaf = false;
        line(number).readiness |= kWritable;
    }

    [[nodiscard]] const char* name() const noexcept override { return "memory"; }
    [[nodiscard]] std::unique_ptr<kx_socket_set> create_socket_set() override {
        return std::make_unique<Set>(*this);
    }
    [[nodiscard]] std::unique_ptr<kx_net_address> resolve(std::string_view) override {
        return nullptr;
    }
    [[nodiscard]] std::unique_ptr<kx_net_socket> connect(const kx_net_address&, SocketType type,
                                                         ConnectMode) override {
        if (reach == Reach::refused_at_once) return nullptr;
        auto [socket, number] = arrival(0);
        if (type == SocketType::stream && reach != Reach::hangs) {
            line(number).stands = reach == Reach::stands;
            line(number).readiness = kWritable;
        }
        return std::move(socket);
    }
    [[nodiscard]] kx_host_info local_host_info() override { return {}; }
    [[nodiscard]] std::unique_ptr<kx_net_socket> listen_at(const kx_ip_address&, int,
                                                           SocketType) override {
        return arrival(0).first;
    }

private:
    class Socket final : public kx_net_socket {
    public:
        Socket(MemoryNet& net, std::size_t number) : net_(net), number_(number) {}
        ~Socket() override { Socket::close(); }
        Socket(const Socket&) = delete;
        Socket& operator=(const Socket&) = delete;

        std::int32_t read(void* buffer, std::uint32_t count) override {
            Line& from = net_.line(number_);
            const std::size_t some = std::min<std::size_t>(count, from.arrived.size() - from.taken);
            if (some == 0) return from.ended ? -1 : 0;
            std::copy_n(from.arrived.begin() + static_cast<std::ptrdiff_t>(from.taken), some,
                        static_cast<std::byte*>(buffer));
            from.taken += some;
            return static_cast<std::int32_t>(some);
        }
        std::int32_t write(const void*, std::uint32_t count) override {
            Line& to = net_.line(number_);
            if (to.closed) return -1;
            if (to.deaf) return 0;
            to.sent += count;
            return static_cast<std::int32_t>(count);
        }
        std::int32_t write_gathered(std::span<const iovec> pieces) override {
            std::size_t all = 0;
            for (const iovec& piece : pieces)
                all += piece.iov_len;
            return write(nullptr, static_cast<std::uint32_t>(all));
        }
        std::size_t receive_batch(std::span<DatagramSlot> slots) override {
            Line& from = net_.line(number_);
            if (slots.empty() || from.arrived.empty()) return 0;
            auto& bytes = slots[0].bytes;
            bytes = bytes.first(std::min(bytes.size(), from.arrived.size()));
            std::copy_n(from.arrived.begin(), bytes.size(), bytes.begin());
            from.arrived.clear();
            slots[0].peer = kx_ip_address(from.address, 4665);
            return 1;
        }
        void send_batch(std::span<const DatagramSlot> slots) override {
            for (const DatagramSlot& slot : slots)
                net_.line(number_).sent += slot.bytes.size();
        }
        bool close() override {
            Line& mine = net_.line(number_);
            mine.interest = 0;
            return !std::exchange(mine.closed, true);
        }
        [[nodiscard]] bool connected() const override { return net_.line(number_).stands; }
        [[nodiscard]] std::optional<kx_ip_address> peer_address() const override {
            return kx_ip_address(net_.line(number_).address, 1);
        }
        [[nodiscard]] int handle() const noexcept override { return static_cast<int>(number_); }

        std::uint32_t seek(std::uint32_t) override { return 0; }
        [[nodiscard]] std::uint32_t size() const override { return 0; }
        [[nodiscard]] std::uint32_t tell() const override { return 0; }
        AcceptResult accept(std::unique_ptr<kx_net_socket>&) override {
            return AcceptResult::drained;
        }
        std::int32_t recv_from(void*, std::uint32_t, kx_ip_address&) override { return -1; }
        std::int32_t send_to(const void*, std::uint32_t, const kx_ip_address&) override {
            return -1;
        }
        std::uint32_t wait_ready(std::uint32_t, int, const WaitProgress&) override { return 0; }
        void set_blocking(bool) override {}
        [[nodiscard]] std::optional<kx_ip_address> local_address() const override {
            return std::nullopt;
        }

    private:
        MemoryNet& net_;
        const std::size_t number_;
    };

    class Set final : public kx_socket_set {
    public:
        explicit Set(MemoryNet& net) : net_(net) {}

        bool add(int handle, std::uint32_t flags, Task& task) override {
            Line& watched = net_.line(static_cast<std::size_t>(handle));
            watched.task = &task;
            watched.interest = flags | kException | kPeerEnded;
            return true;
        }
        void want_writable(int handle, Task&) override {
            net_.line(static_cast<std::size_t>(handle)).interest |= kWritable;
        }
        void remove(int handle) override {
            net_.line(static_cast<std::size_t>(handle)).interest = 0;
        }
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
        MemoryNet& net_;
        std::vector<ReadyTask> ready_;
    };

    std::vector<std::unique_ptr<Line>> lines_;
};

}  // namespace vorrim::fuzz
